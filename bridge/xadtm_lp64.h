/*
 * xadtm_lp64.h - the switch records for transaction managers whose XA words are C `long`, 64 bits wide.
 *
 * Such a manager's XID has 152 bytes and its switch record 128, where those of xa.h have 140 and 120. The records below
 * have the manager's layout and lead to the same resource managers; libxadtm_lp64.so holds them. The types have names
 * of their own and there is no macro for a flag or a code, so that this header goes together with the manager's own XA
 * header: its `struct xa_switch_t *` may point to any of these records.
 *
 * docs/transaction-managers.md says how the verbs answer, and what a manager should make of it.
 */
#ifndef XADTM_LP64_H
#define XADTM_LP64_H

#ifdef __cplusplus
extern "C" {
#endif
#ifdef __GNUC__
#pragma GCC visibility push(default) /* the library is built hidden */
#endif

/* A transaction branch identifier; the fields are those of XID in xa.h. */
struct xadtm_lp64_xid {
  long formatID;
  long gtrid_length;
  long bqual_length;
  char data[128];
};

/* A switch record; the entries are those of xa_switch_t in xa.h, in the same order. */
struct xadtm_lp64_switch {
  char name[32];
  long flags;
  long version;
  int (*xa_open_entry)(const char *info, int rmid, long flags);
  int (*xa_close_entry)(const char *info, int rmid, long flags);
  int (*xa_start_entry)(const struct xadtm_lp64_xid *xid, int rmid, long flags);
  int (*xa_end_entry)(const struct xadtm_lp64_xid *xid, int rmid, long flags);
  int (*xa_rollback_entry)(const struct xadtm_lp64_xid *xid, int rmid, long flags);
  int (*xa_prepare_entry)(const struct xadtm_lp64_xid *xid, int rmid, long flags);
  int (*xa_commit_entry)(const struct xadtm_lp64_xid *xid, int rmid, long flags);
  int (*xa_recover_entry)(struct xadtm_lp64_xid *xids, long count, int rmid, long flags);
  int (*xa_forget_entry)(const struct xadtm_lp64_xid *xid, int rmid, long flags);
  int (*xa_complete_entry)(int *handle, int *result, int rmid, long flags);
};

/* Only one flavour works in a process: the first whose open finds the configuration. */
extern const struct xadtm_lp64_switch tarvex_MTS_xa_switch_lp64;
extern const struct xadtm_lp64_switch tarvex_TUX_xa_switch_lp64;
extern const struct xadtm_lp64_switch tarvex_TXS_xa_switch_lp64;

#ifdef __GNUC__
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
} /* extern "C" */
#define XADTM_LP64_LAYOUT(rule) static_assert(rule, "the layout of a machine whose long is 64 bits wide")
#elif defined __STDC_VERSION__ && __STDC_VERSION__ >= 201112L
#define XADTM_LP64_LAYOUT(rule) _Static_assert(rule, "the layout of a machine whose long is 64 bits wide")
#else
#define XADTM_LP64_LAYOUT(rule) extern int xadtm_lp64_layout[(rule) ? 1 : -1]
#endif

XADTM_LP64_LAYOUT(sizeof(long) == 8);
XADTM_LP64_LAYOUT(sizeof(struct xadtm_lp64_xid) == 152);
XADTM_LP64_LAYOUT(__builtin_offsetof(struct xadtm_lp64_xid, gtrid_length) == 8);
XADTM_LP64_LAYOUT(__builtin_offsetof(struct xadtm_lp64_xid, bqual_length) == 16);
XADTM_LP64_LAYOUT(__builtin_offsetof(struct xadtm_lp64_xid, data) == 24);
XADTM_LP64_LAYOUT(sizeof(struct xadtm_lp64_switch) == 128);
XADTM_LP64_LAYOUT(__builtin_offsetof(struct xadtm_lp64_switch, flags) == 32);
XADTM_LP64_LAYOUT(__builtin_offsetof(struct xadtm_lp64_switch, version) == 40);
XADTM_LP64_LAYOUT(__builtin_offsetof(struct xadtm_lp64_switch, xa_open_entry) == 48);
XADTM_LP64_LAYOUT(__builtin_offsetof(struct xadtm_lp64_switch, xa_complete_entry) == 120);
#undef XADTM_LP64_LAYOUT

#endif /* XADTM_LP64_H */
