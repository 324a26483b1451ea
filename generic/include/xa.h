/*
 * xa.h - the X/Open XA interface: branch identifiers, flags, return codes and the switch record.
 *
 * Names and values are those of the XA standard. Every word is a signed 32-bit integer on every platform, so an XID is
 * always 140 bytes and the switch record's flags and version are always 32 bits wide.
 */
#ifndef XA_H
#define XA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define XIDDATASIZE 128 /* bytes of XID data */
#define MAXGTRIDSIZE 64 /* most bytes of a global transaction identifier */
#define MAXBQUALSIZE 64 /* most bytes of a branch qualifier */
#define RMNAMESZ 32     /* bytes of a resource manager's name, the terminating zero included */
#define MAXINFOSIZE 256 /* bytes of an open or close string, the terminating zero included */

/*
 * A transaction branch identifier. formatID -1 marks a null XID. data holds the gtrid_length bytes (1 to 64) of the
 * global transaction identifier, directly followed by the bqual_length bytes (0 to 64) of the branch qualifier.
 */
typedef struct xid_t {
  int32_t formatID;
  int32_t gtrid_length;
  int32_t bqual_length;
  char data[XIDDATASIZE];
} XID;

/* The record through which a transaction manager reaches a resource manager; entries in the standard's order. */
struct xa_switch_t {
  char name[RMNAMESZ];
  int32_t flags;
  int32_t version;
  int32_t (*xa_open_entry)(const char *info, int32_t rmid, int32_t flags);
  int32_t (*xa_close_entry)(const char *info, int32_t rmid, int32_t flags);
  int32_t (*xa_start_entry)(const XID *xid, int32_t rmid, int32_t flags);
  int32_t (*xa_end_entry)(const XID *xid, int32_t rmid, int32_t flags);
  int32_t (*xa_rollback_entry)(const XID *xid, int32_t rmid, int32_t flags);
  int32_t (*xa_prepare_entry)(const XID *xid, int32_t rmid, int32_t flags);
  int32_t (*xa_commit_entry)(const XID *xid, int32_t rmid, int32_t flags);
  int32_t (*xa_recover_entry)(XID *xids, int32_t count, int32_t rmid, int32_t flags);
  int32_t (*xa_forget_entry)(const XID *xid, int32_t rmid, int32_t flags);
  int32_t (*xa_complete_entry)(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags);
};

/* Flags of the switch record. */
#define TMNOFLAGS 0x00000000
#define TMREGISTER 0x00000001
#define TMNOMIGRATE 0x00000002
#define TMUSEASYNC 0x00000004

/* Flags of the XA calls. */
#define TMASYNC ((int32_t)0x80000000)
#define TMONEPHASE 0x40000000
#define TMFAIL 0x20000000
#define TMNOWAIT 0x10000000
#define TMRESUME 0x08000000
#define TMSUCCESS 0x04000000
#define TMSUSPEND 0x02000000
#define TMSTARTRSCAN 0x01000000
#define TMENDRSCAN 0x00800000
#define TMMULTIPLE 0x00400000
#define TMJOIN 0x00200000
#define TMMIGRATE 0x00100000

/* Return codes. */
#define XA_RBBASE 100
#define XA_RBROLLBACK 100
#define XA_RBCOMMFAIL 101
#define XA_RBDEADLOCK 102
#define XA_RBINTEGRITY 103
#define XA_RBOTHER 104
#define XA_RBPROTO 105
#define XA_RBTIMEOUT 106
#define XA_RBTRANSIENT 107
#define XA_RBEND 107
#define XA_NOMIGRATE 9
#define XA_HEURHAZ 8
#define XA_HEURCOM 7
#define XA_HEURRB 6
#define XA_HEURMIX 5
#define XA_RETRY 4
#define XA_RDONLY 3
#define XA_OK 0
#define XAER_ASYNC (-2)
#define XAER_RMERR (-3)
#define XAER_NOTA (-4)
#define XAER_INVAL (-5)
#define XAER_PROTO (-6)
#define XAER_RMFAIL (-7)
#define XAER_DUPID (-8)
#define XAER_OUTSIDE (-9)

#ifdef __cplusplus
} /* extern "C" */

static_assert(sizeof(XID) == 140);
static_assert(__builtin_offsetof(XID, data) == 12);
static_assert(__builtin_offsetof(struct xa_switch_t, flags) == 32);
static_assert(__builtin_offsetof(struct xa_switch_t, version) == 36);
static_assert(__builtin_offsetof(struct xa_switch_t, xa_open_entry) == 40);
static_assert(sizeof(struct xa_switch_t) == 40 + 10 * sizeof(void *));
#endif

#endif /* XA_H */
