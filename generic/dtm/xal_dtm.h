// The DTM protocol: branch names, the requests to the server's DTM procedures, and the branch operations built on them.
// Callers hold the serialisation mutex and the connection; the mutex is given up while the client library waits for
// results, but not for a login.
#pragma once

#include <cstdint>

#include "dtm/dtm_protocol.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "record/xal_results.h"

class TraceScope;

// Operation codes of xa__dtm_rpc: a procedure of the server with its options.
inline constexpr int32_t DTM_BEGIN = 1;             // makes a branch and attaches it to the session
inline constexpr int32_t DTM_ATTACH = 2;            // attaches a branch that exists, once its session lets it go
inline constexpr int32_t DTM_ATTACH_NOWAIT = 3;     // the same without waiting
inline constexpr int32_t DTM_DETACH = 4;            // lets the branch go, in the state that is wanted
inline constexpr int32_t DTM_DETACH_NOWAIT = 5;     // undoes DTM_ATTACH_NOWAIT
inline constexpr int32_t DTM_STATUS = 6;            // asks for the state
inline constexpr int32_t DTM_FORGET = 8;            // forgets a heuristic outcome
inline constexpr int32_t DTM_PREPARE = 9;           // the first phase
inline constexpr int32_t DTM_COMMIT = 10;           // the second
inline constexpr int32_t DTM_COMMIT_ONEPHASE = 11;  // both in one
inline constexpr int32_t DTM_ROLLBACK = 12;         // undoes the work; not while another session is in it
inline constexpr int32_t DTM_ABORT = 13;            // the same, done when that session lets go

// Classes of a reply (rpcret).
inline constexpr int32_t DTM_REPLY_STATUS = 0;     // a plain status; transtat is the state
inline constexpr int32_t DTM_REPLY_ERROR = 1;      // a negative status, or one with a transaction state
inline constexpr int32_t DTM_REPLY_RPCERROR = -2;  // "@$rpcerror"
inline constexpr int32_t DTM_REPLY_RPCSTATE = -3;  // "@$rpcerror" and "@xactstatus"
inline constexpr int32_t DTM_REPLY_BROKEN = -4;    // the conversation broke off
inline constexpr int32_t DTM_REPLY_NOSTATUS = -5;  // no status

// ---- Branch names ---------------------------------------------------------------------------------------------------

// The text encoding of count bytes, which ends with a zero byte, into out: four characters for three bytes. The number
// of characters.
int32_t xa__dtm_encode(const void *bytes, int32_t count, char *out);
// The branch name of xid on the LRM into out (XA_NAME_SIZE bytes); returns out.
char *xa__dtm_encode_xid(const XID *xid, const char *lrm_name, char *out);
// The bytes of a zero-terminated encoded text into out; their number, or -1 for a character outside the alphabet.
int32_t xa__dtm_decode(const char *text, char *out);
// Makes the connection's branch name (xc_name, xc_name_length) stand for xid, encoding it when it does not yet.
void dtm_name_branch(XA_CONNECTION *conn, const XID *xid);

// ---- Requests -------------------------------------------------------------------------------------------------------

// Sends one DTM request and reads its reply into rpcret, rpcstat and transtat. CS_SUCCEED only when the results ended
// normally with a usable status; failures before the sending leave the three fields as they were.
int32_t xa__dtm_rpc(XA_CONNECTION *conn, int32_t code, const XID *xid, int32_t status);
// The reading part of it, on a command that has been sent.
int32_t xa__dtm_process_results(XA_CONNECTION *conn);

// Results of xa__dtm_1result, which reads a language command's only value.
inline constexpr int32_t DTM_ONE_VALUE = 1;      // read
inline constexpr int32_t DTM_NO_ROW_RESULT = 0;  // the command brought no rows at all
inline constexpr int32_t DTM_NO_ROW = 3;         // its row result was empty
inline constexpr int32_t DTM_MANY_RESULTS = 4;   // read, and there was a second row result
inline constexpr int32_t DTM_MANY_ROWS = 6;      // read, and there was a second row
inline constexpr int32_t DTM_FAILED = -1;        // broken off, or a result of another kind
// The value goes into the buffer of maxlen bytes, as datatype and format. Whatever follows is thrown away.
int32_t xa__dtm_1result(XA_CONNECTION *conn, int32_t datatype, int32_t format, void *buffer, int32_t maxlen);

// ct_results with the serialisation mutex given up for the call.
int32_t dtm_results_paused(QLT_COMMAND *command, int32_t *type);
// ct_cancel of everything the command still has, with the serialisation mutex given up for the call.
void dtm_cancel_paused(QLT_COMMAND *command);
// The first column's first value of a fetched integer result; false when there is none.
bool dtm_first_integer(const XA_RESULTS &results, int32_t *value);

// ---- Outcome maps ---------------------------------------------------------------------------------------------------

// A row of an outcome table: what a reply must be like, and what is made of it.
struct DtmOutcome {
  uint32_t compare;    // which of the next four words are compared, a hexadecimal digit each; 0 ends the table
  int32_t rpc_result;  // xa__dtm_rpc's
  int32_t transtat;    // a DTM_STATE_
  int32_t rpcret;      // a DTM_REPLY_
  int32_t rpcstat;     // a refusal
  int32_t xa_code;     // in an end row: the fallback, when its table is its list's last
};
using DtmOutcomeTable = const DtmOutcome *;
using DtmOutcomeList = const DtmOutcomeTable *;

// The lists: tables in the order in which they are searched.
extern const DtmOutcomeTable dtm_start_nf_maps[];
extern const DtmOutcomeTable dtm_start_jn_maps[];
extern const DtmOutcomeTable dtm_start_rs_maps[];
extern const DtmOutcomeTable dtm_end_succ_maps[];
extern const DtmOutcomeTable dtm_end_susp_maps[];
extern const DtmOutcomeTable dtm_attprep_maps[];
extern const DtmOutcomeTable dtm_prepare_maps[];
extern const DtmOutcomeTable dtm_prepare_frc_att_maps[];
extern const DtmOutcomeTable dtm_commit_nf_maps[];
extern const DtmOutcomeTable dtm_commit_1p_maps[];
extern const DtmOutcomeTable dtm_commit_1p_frc_att_maps[];
extern const DtmOutcomeTable dtm_rollback_att_maps[];
extern const DtmOutcomeTable dtm_rollback_maps[];
extern const DtmOutcomeTable dtm_dtcrollback_maps[];
extern const DtmOutcomeTable dtm_forget_maps[];
extern const DtmOutcomeTable dtm_status_maps[];
extern const DtmOutcomeTable dtm_await_maps[];
extern const DtmOutcomeTable dtm_check_maps[];
// The XID of no branch, for the readiness check.
extern const XID dtm_check_xid;

// The XA code of the last request on the connection, by the first row that matches.
int32_t dtm_ret_to_xa(DtmOutcomeList list, const XA_CONNECTION *conn, int32_t rpc_result);

// ---- Branch operations ----------------------------------------------------------------------------------------------

// Each answers an XA code, made of the replies by the outcome maps; XAER_RMERR (here and there XAER_RMFAIL) when the
// connection was lost, which the verb then looks into. None touches the record's state.

// Begins the branch (TMNOFLAGS), or attaches it (TMJOIN, TMRESUME), with TMNOWAIT without waiting. XAER_DUPID: there is
// such a branch; XAER_NOTA: there is none; XA_RETRY only with TMNOWAIT.
int32_t xa__dtm_start(XA_CONNECTION *conn, const XID *xid, int32_t flags);
// Detaches the branch: as ended (TMSUCCESS, TMFAIL), suspended, or suspended for any session (TMMIGRATE).
int32_t xa__dtm_end(XA_CONNECTION *conn, const XID *xid, int32_t flags);
// Prepares it: XA_OK, XA_RDONLY, or a heuristic code for one that an operator has settled.
int32_t xa__dtm_prepare(XA_CONNECTION *conn, const XID *xid);
// Commits it, with TMONEPHASE unprepared. XAER_NOTA: the server does not know it, nor a heuristic outcome.
int32_t xa__dtm_commit(XA_CONNECTION *conn, const XID *xid, int32_t flags);
// Rolls it back; while another session is in it, as soon as that lets go.
int32_t xa__dtm_rollback(XA_CONNECTION *conn, const XID *xid);
// Forgets a heuristic outcome. XAER_NOTA: there is none.
int32_t xa__dtm_forget(XA_CONNECTION *conn, const XID *xid);
// XA_OK: the server knows it, and its state is in transtat. XAER_NOTA: it does not.
int32_t xa__dtm_status(XA_CONNECTION *conn, const XID *xid);
// Asks for the state every second for as long as the server knows the branch; XAER_NOTA then. The serialisation mutex
// stays held in the sleeps.
int32_t xa__dtm_await_completion(XA_CONNECTION *conn, const XID *xid);
// The branch's row in the server's transaction table: XA_HEURCOM, XA_HEURRB; XAER_PROTO for any other state, XAER_NOTA
// without a row; XAER_RMERR or XAER_RMFAIL when it cannot be read.
int32_t xa__dtm_check_heur(XA_CONNECTION *conn, const XID *xid);

// One request with the status it wants, its outcome looked up in the list.
int32_t dtm_request(XA_CONNECTION *conn, int32_t code, const XID *xid, int32_t status, DtmOutcomeList list);
// Attach and detach before a completing request on a connection that never carried the branch: XA_OK to go on, else
// the operation's result.
int32_t dtm_attach_first(XA_CONNECTION *conn, const XID *xid, DtmOutcomeList attach_list);
// True for the four heuristic codes.
bool dtm_is_heuristic(int32_t code);

// ---- Recovery and readiness -----------------------------------------------------------------------------------------

// Stores up to count XIDs of the server's in-doubt branches: their number, or an XA error code.
int32_t xa__dtm_recover(XA_CONNECTION *conn, XID *xids, int32_t count, int32_t flags);
// Sends the scan on a command of its own, xc_recov_cmd: CS_SUCCEED, else the code of the client call that failed.
int32_t xa_dtm_start_scan(XA_CONNECTION *conn);
// Advances to the scan's rows: CS_SUCCEED; CS_END_RESULTS when there are none; else the code of the client call that
// failed.
int32_t xa_dtm_recov_scan(XA_CONNECTION *conn);
// Reads what is left, cancels it, and drops the command. CS_END_RESULTS: the server's status confirms that the rows
// were all; CS_SUCCEED: it says that some could not be returned; CS_FAIL, CS_CANCELED: nobody knows.
int32_t xa_dtm_terminate_scan(XA_CONNECTION *conn);
// Takes one row of the scan over; true when it names a branch of the LRM and its XID was stored.
bool dtm_accept_row(const TraceScope &trace, const char *own_lrm, const char *text, XID &xid);

// Sets the login properties and logs in, once more without failover when the first login fails. The code of the client
// call that failed, else CS_SUCCEED. The serialisation mutex is kept.
int32_t xa__dtm_connect(XA_CONNECTION *conn);
// XA_OK when the new connection can be used for DTM work, else XAER_RMERR or XAER_RMFAIL.
int32_t xa__dtm_check(XA_CONNECTION *conn);
