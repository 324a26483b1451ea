/*
 * xadtm.h - the names that libxadtm.so exports, for transaction managers and application code.
 *
 * A transaction manager needs the switch record of its flavour and nothing else. Application code running under MTS
 * may ask for statement numbers. The log, decoder and thread operations are there for tools and for the
 * database's other libraries. Nothing here throws, aborts or exits.
 */
#ifndef XADTM_H
#define XADTM_H

#include <stdint.h>

#include "xa.h"

#ifdef __cplusplus
extern "C" {
#endif
#ifdef __GNUC__
#pragma GCC visibility push(default) /* the library is built hidden */
#endif

/* The switch records: name "TARVEX_XA_SERVER", flags TMNOFLAGS, version 0. Only one flavour works in a process. */
extern const struct xa_switch_t tarvex_MTS_xa_switch;
extern const struct xa_switch_t tarvex_TUX_xa_switch;
extern const struct xa_switch_t tarvex_TXS_xa_switch;

/*
 * The entry functions that the records point to. Each holds the process-wide serialisation mutex around the generic
 * entry point of its name and returns that one's result; all but open return XAER_PROTO while no flavour is active.
 */
int32_t trv_mts_xa_open(const char *info, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_close(const char *info, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_start(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_end(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_rollback(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_prepare(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_commit(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_forget(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_mts_xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags);

int32_t trv_tux_xa_open(const char *info, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_close(const char *info, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_start(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_end(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_rollback(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_prepare(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_commit(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_forget(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_tux_xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags);

int32_t trv_txs_xa_open(const char *info, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_close(const char *info, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_start(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_end(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_rollback(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_prepare(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_commit(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_forget(const XID *xid, int32_t rmid, int32_t flags);
int32_t trv_txs_xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags);

/*
 * The generic entry points behind every flavour's entry functions. They expect the caller to hold the serialisation
 * mutex and a flavour to be active (xa_open: the mutex of the given personality); transaction managers use the switch.
 */
struct xa_personality;
int32_t xa_open(const char *info, int32_t rmid, int32_t flags, const struct xa_personality *personality);
int32_t xa_close(const char *info, int32_t rmid, int32_t flags);
int32_t xa_start(const XID *xid, int32_t rmid, int32_t flags);
int32_t xa_end(const XID *xid, int32_t rmid, int32_t flags);
int32_t xa_rollback(const XID *xid, int32_t rmid, int32_t flags);
int32_t xa_prepare(const XID *xid, int32_t rmid, int32_t flags);
int32_t xa_commit(const XID *xid, int32_t rmid, int32_t flags);
int32_t xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags);
int32_t xa_forget(const XID *xid, int32_t rmid, int32_t flags);
int32_t xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags);

/*
 * The next statement number (1, 2, 3 ... per server connection) of the branch that the calling thread works on for
 * this resource manager. MTS only: XAER_PROTO when no branch is associated, XAER_INVAL under another flavour.
 */
int32_t TrvXA_GetStatementNr(int32_t rmid);

/*
 * The log. xalog_msg writes one line; types are -1 "Error", -2 "Fatal Error", 0 to 6, 10 and 11 the trace categories,
 * 100 "Message", 101 "Warning", 102 "Note". Without an open log, errors go to standard error as bare text and all else
 * is dropped. xalog_open_file opens the process's log once (1, also when one is open already; 0 on failure).
 * xalog_init opens the file of the open string's -L option, else default_path.
 */
void xalog_msg(const char *function, const char *text, int32_t line, int32_t type);
int32_t xalog_open_file(const char *path);
int32_t xalog_init(const char *open_string, const char *default_path);
void xal_display_nolog(const char *text);

/* Entry lines of the XA calls; the text is the calling thread's and is valid until its next call of any of the three.
 */
const char *xalog_entr_dft(int32_t rmid, int32_t flags, const XID *xid);
const char *xalog_entr_recover(int32_t rmid, int32_t flags, int32_t count);
const char *xalog_entr_info(int32_t rmid, int32_t flags, const char *info);
const char *xalog_xa_name(int32_t index);

/* Trace keywords: both add bits to the trace mask and return where reading stopped. */
const char *xacmn_log_trace_add(const char *text);
const char *xacmn_log_flags_set(const char *text);

/* Decoders. Each text is the calling thread's and is valid until its next call of a decoder with the same buffer. */
const char *xacmn_log_xareturn(int32_t code);
const char *xacmn_log_csreturn(int32_t code);
const char *xacmn_log_hexreturn(int32_t value);
const char *xacmn_log_dump_xarc(int32_t code);
const char *xacmn_log_dump_csrc(int32_t code);
const char *xacmn_log_dump_xaflags(int32_t flags);
const char *xacmn_log_dump_xid(const XID *xid);
/* Writes at most 64 bytes as hexadecimal text into out (144 bytes suffice); returns its terminating zero. */
char *xacmn_log_hex_sprintf(char *out, const void *bytes, int32_t count);

/* The version and the proprietary notice. */
extern const char *const xadtm__Vdate;
extern const char *const xadtm__Vcopyright;
const char *xadtm__getVdate(void);

/* 1 when the flags go together for the verb (index as in xalog_xa_name), else 0; 0 for an index outside 0 to 9. */
int32_t xacmn_validate_flags(int32_t verb, int32_t flags);
int32_t xacmn_no_op(void);

#ifdef __GNUC__
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* XADTM_H */
