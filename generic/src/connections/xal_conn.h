// The connection layer: XA_CONNECTION and its states, settings rows, fetched results, and the operations that find,
// make, settle and close connections. All of them run under the serialisation mutex unless their comment says more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "quillet.h"
#include "xa.h"

struct xa_lrminfo;

// Longest branch name with its terminating zero: 8 + 1 + 86 + 1 + 86 + 2 + 31 + 1.
inline constexpr int32_t XA_NAME_SIZE = 216;

// The links of a connection in its LRM's circular list; the list's head is a pair of links that an empty list points
// at.
struct XC_LINKS {
  XC_LINKS *xc_next;
  XC_LINKS *xc_prev;
};

// One server connection with the branch it serves. Owned by its LRM's list from xc_open on; freed by xc_open when
// connecting fails, and by xc_get when a search meets it in XCS_CLOSED and nobody holds it.
struct xa_connection : XC_LINKS {
  int32_t xc_mutex;  // placeholder
  xa_lrminfo *xc_lrm;
  QLT_CONNECTION *xc_conn;
  QLT_COMMAND *xc_cmd;        // carries every DTM request
  QLT_COMMAND *xc_recov_cmd;  // carries an open recovery scan, else null
  XID xc_xid;                 // formatID -1: no branch
  int32_t xc_state;
  int32_t rpcret;    // class of the last DTM reply
  int32_t rpcstat;   // error code of the last DTM reply
  int32_t transtat;  // transaction state of the last DTM reply
  void *xc_srvmsg_cb;
  void *xc_climsg_cb;
  void *xc_tmdata;  // the personality's

  // How often the record is held, from hand-out to release, and by which thread. A held record is never purged, nor
  // handed out again; a thread that looks for just this record waits for its release.
  int32_t xc_holds;
  const void *xc_holder;
  // The branch name last encoded for a request on this connection, and the XID it stands for (length 0: none yet).
  XID xc_named_xid;
  int32_t xc_named_data;  // bytes of its data that count
  int32_t xc_name_length;
  char xc_name[XA_NAME_SIZE];
};
using XA_CONNECTION = xa_connection;

// Connection states. What holds in each, and who enters it:
inline constexpr int32_t XCS_INUSE = -1;         // handed out, no branch yet: xc_get, xc_reopen_conn
inline constexpr int32_t XCS_UNUSED = 0;         // connected, free for any branch: every verb when it is done
inline constexpr int32_t XCS_ASSOC = 1;          // xc_xid is associated with the thread identity: xa_start
inline constexpr int32_t XCS_CLOSED = 2;         // no server connection, waits to be purged: xc_close
inline constexpr int32_t XCS_SUSPEND = 3;        // xc_xid is suspended here, unknown to the server: xa_end
inline constexpr int32_t XCS_OPENED = 100;       // freshly made: xc_open
inline constexpr int32_t XCS_STARTING = 101;     // xa_start is at work
inline constexpr int32_t XCS_ENDING = 102;       // xa_end is at work
inline constexpr int32_t XCS_PREPARING = 103;    // xa_prepare is at work
inline constexpr int32_t XCS_COMMITTING = 104;   // xa_commit is at work
inline constexpr int32_t XCS_ROLLINGBACK = 105;  // xa_rollback is at work, or xa_end after a failed end
inline constexpr int32_t XCS_CLOSING = 106;      // xa_close or xc_reopen_conn is at work
inline constexpr int32_t XCS_FORGETTING = 107;   // xa_forget is at work
inline constexpr int32_t XCS_RECOVER = 108;      // holds an open recovery scan: xa_recover

// Lookup flags of xc_get.
inline constexpr uint32_t XCF_ANY = 0x01;
inline constexpr uint32_t XCF_MATCH = 0x02;
inline constexpr uint32_t XCF_UNUSED = 0x04;
inline constexpr uint32_t XCF_OPEN = 0x08;
inline constexpr uint32_t XCF_ASSOC = 0x10;
inline constexpr uint32_t XCF_SUSPEND = 0x20;
inline constexpr uint32_t XCF_RECOVER = 0x40;

// Lookup results of xc_get; those below XCRET_NOCONN hand out a connection, which the caller then holds.
inline constexpr int32_t XCRET_FIRST = 2000;
inline constexpr int32_t XCRET_MATCH = 2001;
inline constexpr int32_t XCRET_CONN = 2002;
inline constexpr int32_t XCRET_ASSOC = 2003;
inline constexpr int32_t XCRET_SUSPEND = 2004;
inline constexpr int32_t XCRET_RECOVER = 2005;
inline constexpr int32_t XCRET_LAST = 2100;
inline constexpr int32_t XCRET_NOCONN = 2101;
inline constexpr int32_t XCRET_NOLRM = 2102;

// True when a lookup result handed out a connection.
inline bool xc_handed_out(int32_t result) {
  return result >= XCRET_FIRST && result < XCRET_LAST;
}

// ---- XIDs ----------------------------------------------------------------------------------------------------------

inline int32_t xid_clamped(int32_t length) {
  const bool as_it_is = static_cast<uint32_t>(length) <= 64;
  return __builtin_expect(as_it_is ? 1 : 0, 1) != 0 ? length : (length < 0 ? 0 : 64);
}
// True when an XID's lengths are those that the XA standard allows. Others would be clamped in the branch's name, and
// give it the name of another branch, or one that a recovery passes over.
inline bool xid_lengths_fit(const XID &xid) {
  return static_cast<uint32_t>(xid.gtrid_length) - 1 < MAXGTRIDSIZE &&
         static_cast<uint32_t>(xid.bqual_length) <= MAXBQUALSIZE;
}
// The bytes of an XID's data that count, each length clamped to 0 to 64; with the header in the second.
inline size_t xid_data_size(const XID &xid) {
  return static_cast<size_t>(xid_clamped(xid.gtrid_length)) + static_cast<size_t>(xid_clamped(xid.bqual_length));
}
inline size_t xid_size(const XID &xid) {
  return offsetof(XID, data) + xid_data_size(xid);
}
// Copies the bytes that count; nothing else of the target is touched, nothing else of the source is read.
inline void xid_copy(XID &to, const XID &from) {
  memcpy(&to, &from, xid_size(from));
}
// Two XIDs are equal when neither is null and the bytes that count are the same.
bool xid_equal(const XID &left, const XID &right);

// ---- Lookup ---------------------------------------------------------------------------------------------------------

// Finds the calling thread identity's connection for rmid: the one that serves xid (read only with XCF_MATCH), one in a
// wanted state, an unused one, or a new one. Returns an XCRET code, or the XA code of a failed xc_open. On a hand-out
// *out holds the connection, held by the caller until xc_release; otherwise *out is null. May give the serialisation
// mutex up, while connecting or while another thread holds the connection looked for.
int32_t xc_get(int32_t rmid, const XID *xid, XA_CONNECTION **out, uint32_t flags);

// Makes and links a new connection. Entered with the LRM's mutex held; on XA_OK it is released and *out is held.
int32_t xc_open(xa_lrminfo *lrm, XA_CONNECTION **out);

// Takes a hold on a record for the calling thread, and gives it back (with the record's mutex).
void xc_hold(XA_CONNECTION *conn);
void xc_release(XA_CONNECTION *conn);

// Gives the serialisation mutex up for a moment, to let another thread get on with what the caller waits for.
void xc_wait_briefly();

// Waits until no other thread of conn's LRM is at work on the branch. conn is held, and must not carry the branch
// itself meanwhile: its looker would wait for the caller.
void xc_await_branch(const XA_CONNECTION *conn, const XID &xid);

// True while conn is still a record of rmid in the calling thread identity. To be asked, after a nested verb, before a
// record that was released meanwhile is used again.
bool xc_still_there(int32_t rmid, const XA_CONNECTION *conn);

// Makes the record the only one of its LRM that carries its branch: others that still keep its XID from a completed
// request, while this one's was on no record yet, forget it.
void xc_forget_branch(const XA_CONNECTION *conn);

// Debug builds: no connection is held by the calling thread, and every connection of rmid is in a settled state.
void xc_assert_settled(int32_t rmid);

// ---- Making and closing ---------------------------------------------------------------------------------------------

// Connects the record to its LRM's server: XA_OK, XAER_RMERR, or XAER_INVAL when the readiness check rejects the
// server. On failure no handle is left.
int32_t xc_connect(XA_CONNECTION *conn);
// Sets the login properties and logs in, once more without failover when the first login fails.
int32_t xa__dtm_connect(XA_CONNECTION *conn);
// Replaces a held record's server connection. On XA_OK *out is conn, still held, in XCS_INUSE; otherwise *out is null,
// the hold is gone and the record waits in XCS_CLOSED.
int32_t xc_reopen_conn(int32_t rmid, XA_CONNECTION *conn, XA_CONNECTION **out);
// Shuts the server connection down and releases the held record, which is then in XCS_CLOSED. Always XA_OK. Gives the
// serialisation mutex up while the client library works; the hold keeps everybody else off the record meanwhile.
int32_t xc_close(XA_CONNECTION *conn);

// ---- Message callbacks while connecting -----------------------------------------------------------------------------

int32_t xc_install_callbacks(XA_CONNECTION *conn);
int32_t xc_deinstall_callbacks(XA_CONNECTION *conn);
int32_t xc_setup_ctdiagcb(QLT_CONNECTION *connection);
extern "C" int32_t xaclientmsg_cb(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_CLIENT_MESSAGE *message);
extern "C" int32_t xaservermsg_cb(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_SERVER_MESSAGE *message);

// ---- Application objects --------------------------------------------------------------------------------------------

// Closes every cursor, and the statements behind them, that application code left on the LRM under the calling thread's
// identity. 1 when none is left, 0 when one could not be removed.
int32_t xc_obj_cln_curs(CS_CONTEXT *context, XA_CONNECTION *conn);
int32_t xc__obj_curs_dealloc(QLT_COMMAND *command);
int32_t xa__obj_cln_dynsql(CS_CONTEXT *context, XA_CONNECTION *conn, const void *cursor_data,
                           const QLT_OBJECT_NAME *cursor_name, const QLT_OBJECT_DATA *cursor);
int32_t xa__obj_dynsql_drop(XA_CONNECTION *conn, const void *cursor_data, const QLT_OBJECT_NAME *name,
                            const QLT_OBJECT_DATA *data);
void xc__obj_log(const char *title, const QLT_OBJECT_NAME *name, const QLT_OBJECT_DATA *data);
void xc__obj_format(const void *bytes, int32_t length, char *out, int32_t size);

// ---- Settings rows --------------------------------------------------------------------------------------------------

// One setting of the client library; a list ends with a row whose xs_flags is XS_END.
struct XA_SETTING {
  int32_t xs_code;
  int32_t xs_int;  // the value when xs_str is null
  char *xs_str;    // a heap string, or null
  int32_t xs_len;
  uint32_t xs_flags;
  const char *xs_label;  // the keyword, for messages
};

inline constexpr uint32_t XS_PROP = 0x1;
inline constexpr uint32_t XS_OPT = 0x2;
inline constexpr uint32_t XS_CAP = 0x4;
inline constexpr uint32_t XS_DTINFO = 0x8;
inline constexpr uint32_t XS_CTX = 0x40;
inline constexpr uint32_t XS_CON = 0x80;
inline constexpr uint32_t XS_PRECONN = 0x200;
inline constexpr uint32_t XS_POSTCONN = 0x400;
inline constexpr uint32_t XS_DEFAULT = 0x800;
inline constexpr uint32_t XS_FORCED = 0x1000;
inline constexpr uint32_t XS_USER = 0x2000;
inline constexpr uint32_t XS_FATAL = 0x100000;
inline constexpr uint32_t XS_END = 0xFFFFFFFF;

// The library's own settings.
extern const XA_SETTING dtm_set_list[];

// Applies the rows whose flags hold every bit of the mask, in order. conn may be null for context rows. 0 when a row
// marked XS_FATAL failed, else 1.
int32_t xc_set_values(XA_CONNECTION *conn, const XA_SETTING *list, uint32_t mask);

// ---- Fetching -------------------------------------------------------------------------------------------------------

// A fetched result. The caller sets res_rows and frees the rest with xa__conn_free_results, whatever the fetch said.
// The arrays share one heap block, which res_fmts begins, and each column's buffers another, which its res_data begins;
// a single column's short buffers lie in the first.
struct XA_RESULTS {
  int32_t res_rows;
  int32_t res_rowsread;
  int32_t res_ncols;
  QLT_FORMAT *res_fmts;
  char **res_data;
  int32_t **res_lens;
  int32_t **res_inds;
};

int32_t xa__conn_fetch_1c1r(QLT_COMMAND *command, int32_t datatype, int32_t format, void *buffer, int32_t maxlen);
int32_t xa__conn_fetch_data(QLT_COMMAND *command, XA_RESULTS *results);
int32_t xa__conn_free_results(XA_RESULTS *results);
// Throws the remaining results away, giving the serialisation mutex up meanwhile. The last code of ct_results.
int32_t xa__conn_discard_results(QLT_COMMAND *command);

// Frees what a fetch left in its descriptor, whichever way the scope is left.
class ResultsScope {
 public:
  explicit ResultsScope(XA_RESULTS &results) : results_(results) {}
  ~ResultsScope() { xa__conn_free_results(&results_); }
  ResultsScope(const ResultsScope &) = delete;
  ResultsScope &operator=(const ResultsScope &) = delete;

 private:
  XA_RESULTS &results_;
};
