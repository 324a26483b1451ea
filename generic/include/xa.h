/*
 * xa.h - the X/Open XA interface: branch identifiers, flags, return codes and the switch record.
 *
 * Names and values are those of the XA standard, whose chapters are given below. Every word is a signed 32-bit integer
 * on every platform, so an XID is always 140 bytes and the switch record's flags and version are always 32 bits wide.
 */
#ifndef XA_H
#define XA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Chapter 4.2, transaction identification; 4.3, resource manager switch. */
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

/*
 * Chapter 4.3: the record through which a transaction manager reaches a resource manager. The entries stand in the
 * standard's order; chapter 5 says what each does, chapter 6 when it may be called.
 */
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

/* Chapter 4.4: flags of the switch record. */
#define TMNOFLAGS 0x00000000   /* no feature; in a call: no flag */
#define TMREGISTER 0x00000001  /* the resource manager registers branches by itself (ax_reg) */
#define TMNOMIGRATE 0x00000002 /* it does not let a suspended branch be resumed by another thread */
#define TMUSEASYNC 0x00000004  /* it can work asynchronously */

/* Chapter 4.4: flags of the XA calls. */
#define TMASYNC ((int32_t)0x80000000) /* work asynchronously; refused here */
#define TMONEPHASE 0x40000000         /* xa_commit: commit in one phase, without a prepare */
#define TMFAIL 0x20000000             /* xa_end: the work failed, the branch is to be rolled back */
#define TMNOWAIT 0x10000000           /* answer XA_RETRY rather than wait */
#define TMRESUME 0x08000000           /* xa_start: go on with a suspended association */
#define TMSUCCESS 0x04000000          /* xa_end: the work is done */
#define TMSUSPEND 0x02000000          /* xa_end: the work is interrupted */
#define TMSTARTRSCAN 0x01000000       /* xa_recover: begin a scan */
#define TMENDRSCAN 0x00800000         /* xa_recover: end the scan after this call */
#define TMMULTIPLE 0x00400000         /* xa_complete: wait for any asynchronous call */
#define TMJOIN 0x00200000             /* xa_start: join a branch that exists */
#define TMMIGRATE 0x00100000          /* with TMSUSPEND: any thread may resume it */

/*
 * Chapter 4.5: return codes. XA_RBBASE to XA_RBEND: the branch is marked rollback-only or rolled back, and why.
 */
#define XA_RBBASE 100      /* the first of them */
#define XA_RBROLLBACK 100  /* no reason given */
#define XA_RBCOMMFAIL 101  /* communication inside the resource manager failed */
#define XA_RBDEADLOCK 102  /* a deadlock */
#define XA_RBINTEGRITY 103 /* its data would be inconsistent */
#define XA_RBOTHER 104     /* another reason */
#define XA_RBPROTO 105     /* a protocol error inside the resource manager */
#define XA_RBTIMEOUT 106   /* it took too long */
#define XA_RBTRANSIENT 107 /* may be tried again */
#define XA_RBEND 107       /* the last of them */
#define XA_NOMIGRATE 9     /* suspended, but only here may it be resumed */
#define XA_HEURHAZ 8       /* may have been completed heuristically */
#define XA_HEURCOM 7       /* was committed heuristically */
#define XA_HEURRB 6        /* was rolled back heuristically */
#define XA_HEURMIX 5       /* was in part committed, in part rolled back heuristically */
#define XA_RETRY 4         /* no effect; to be called again */
#define XA_RDONLY 3        /* it changed nothing, and is gone */
#define XA_OK 0            /* done */
#define XAER_ASYNC (-2)    /* an asynchronous call is outstanding */
#define XAER_RMERR (-3)    /* the resource manager failed at the branch */
#define XAER_NOTA (-4)     /* there is no such branch */
#define XAER_INVAL (-5)    /* the arguments are invalid */
#define XAER_PROTO (-6)    /* not in this state */
#define XAER_RMFAIL (-7)   /* the resource manager cannot be had */
#define XAER_DUPID (-8)    /* there is such a branch already */
#define XAER_OUTSIDE (-9)  /* it has work outside any global transaction */

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
