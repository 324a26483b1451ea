// The XA interface as transaction managers on 64-bit machines know it: names and values of the XA standard,
// with words of C `long`. Stands for such a manager's own header; it cannot be used together with libxadtm's xa.h.
#pragma once

#define XIDDATASIZE 128
#define MAXGTRIDSIZE 64
#define MAXBQUALSIZE 64
#define RMNAMESZ 32
#define MAXINFOSIZE 256

struct xid_t {
  long formatID;
  long gtrid_length;
  long bqual_length;
  char data[XIDDATASIZE];
};
typedef struct xid_t XID;

struct xa_switch_t {
  char name[RMNAMESZ];
  long flags;
  long version;
  int (*xa_open_entry)(char *, int, long);
  int (*xa_close_entry)(char *, int, long);
  int (*xa_start_entry)(XID *, int, long);
  int (*xa_end_entry)(XID *, int, long);
  int (*xa_rollback_entry)(XID *, int, long);
  int (*xa_prepare_entry)(XID *, int, long);
  int (*xa_commit_entry)(XID *, int, long);
  int (*xa_recover_entry)(XID *, long, int, long);
  int (*xa_forget_entry)(XID *, int, long);
  int (*xa_complete_entry)(int *, int *, int, long);
};

#define TMNOFLAGS 0x00000000L
#define TMASYNC 0x80000000L
#define TMONEPHASE 0x40000000L
#define TMFAIL 0x20000000L
#define TMNOWAIT 0x10000000L
#define TMRESUME 0x08000000L
#define TMSUCCESS 0x04000000L
#define TMSUSPEND 0x02000000L
#define TMSTARTRSCAN 0x01000000L
#define TMENDRSCAN 0x00800000L
#define TMJOIN 0x00200000L
#define TMMIGRATE 0x00100000L

#define XA_RBBASE 100
#define XA_RBEND 107
#define XA_RETRY 4
#define XA_OK 0
#define XAER_RMERR (-3)
#define XAER_NOTA (-4)
#define XAER_INVAL (-5)
#define XAER_PROTO (-6)
#define XAER_RMFAIL (-7)
#define XAER_DUPID (-8)
