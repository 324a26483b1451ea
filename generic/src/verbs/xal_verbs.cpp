// What the XA verbs share: giving connections back, closing a resource manager whose server cannot be reached, the
// check of an XID that no connection holds, and the scheme of the four completing verbs.
//
// Everything runs under the serialisation mutex. A completing verb marks its connection busy before it sends anything,
// and leaves the branch's XID on it, so that the next verb for the branch finds the same connection.
#include "verbs/xal_verbs.h"

#include "base/xal_xid.h"
#include "connections/xal_conn.h"
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"

namespace {

bool never_ended(const XA_CONNECTION *conn) {
  return conn->xc_state == XCS_ASSOC || conn->xc_state == XCS_SUSPEND;
}

// Finds the connection to complete the branch on, its lookup result going to *found.
VerbStep find_for_completion(const Completion &verb, const XID *xid, int32_t rmid, XA_CONNECTION **conn) {
  int32_t found = xc_get(rmid, xid, conn, XCF_MATCH | XCF_UNUSED | XCF_OPEN);
  if (found == XCRET_MATCH && never_ended(*conn)) {
    xc_release(*conn);
    if (verb.never_ended != XA_OK) {
      return VerbStep::end(verb.never_ended);
    }
    // The rollback that follows says what became of the branch.
    static_cast<void>(xa_end(xid, rmid, TMFAIL));
    found = xc_get(rmid, xid, conn, XCF_UNUSED | XCF_OPEN);
  }
  if (found != XCRET_MATCH && found != XCRET_CONN) {
    return VerbStep::end(verb_lookup_failed(found, *conn, rmid));
  }
  return VerbStep::go_on(found);
}

// A commit that must not wait does not: true when the server still has the branch attached.
// The branch need not be the one whose XID lies on the connection.
bool must_wait(XA_CONNECTION *conn, const XID *xid) {
  return xa__dtm_status(conn, xid) == XA_OK && conn->transtat == DTM_STATE_ATTACHED;
}

// Sends the request, once more on a new connection when the first was lost. *conn is null when it is gone.
int32_t send_completion(const Completion &verb, const XID *xid, int32_t rmid, int32_t flags, XA_CONNECTION **conn) {
  (*conn)->xc_state = verb.busy_state;
  verb_set_branch(*conn, *xid);
  const int32_t ret = verb.request(*conn, xid, flags);
  if (!verb_connection_lost(ret)) {
    return ret;
  }
  const int32_t reopened = xc_reopen_conn(rmid, *conn, conn);
  if (reopened != XA_OK) {
    return reopened;
  }
  (*conn)->xc_state = verb.busy_state;
  return verb.request(*conn, xid, flags);
}

}  // namespace

void verb_close_rm(int32_t rmid) {
  // What could not be closed stays open for the transaction manager to close; the caller reports the failure itself.
  static_cast<void>(xa_close("", rmid, TMNOFLAGS));
}

void verb_set_branch(XA_CONNECTION *conn, const XID &xid) {
  conn->xc_xid = XID{};
  xid_copy(conn->xc_xid, xid);
  xc_forget_branch(conn);
}

void verb_free(XA_CONNECTION *conn) {
  conn->xc_state = XCS_UNUSED;
  conn->xc_xid.formatID = -1;
  xc_release(conn);
}

int32_t verb_lookup_failed(int32_t found, XA_CONNECTION *conn, int32_t rmid) {
  if (found == XCRET_NOLRM) {
    return XAER_INVAL;
  }
  if (found < 0 && !verb_connection_lost(found)) {
    return found;
  }
  if (xc_handed_out(found)) {
    xc_release(conn);
  }
  verb_close_rm(rmid);
  return XAER_RMFAIL;
}

int32_t xa__check_xid(XA_CONNECTION *conn, const XID *xid, int32_t rmid) {
  const TraceScope trace("xa__check_xid", TRACE_VERBOSE);
  const bool borrowed = conn == nullptr;
  if (borrowed) {
    const int32_t found = xc_get(rmid, xid, &conn, XCF_UNUSED | XCF_OPEN);
    if (found == XCRET_NOLRM) {
      return trace.xa(XAER_INVAL);
    }
    if (found != XCRET_CONN) {
      if (xc_handed_out(found)) {
        conn->xc_state = XCS_UNUSED;
        xc_release(conn);
      }
      return trace.xa(XAER_RMERR);
    }
  }
  const int32_t answer = xa__dtm_status(conn, xid);
  if (borrowed) {
    conn->xc_state = XCS_UNUSED;
    xc_release(conn);
  }
  if (answer == XA_OK) {
    return trace.xa(XAER_PROTO);
  }
  return trace.xa(answer == XAER_NOTA ? XAER_NOTA : XAER_RMFAIL);
}

int32_t verb_complete(const Completion &verb, const XID *xid, int32_t rmid, int32_t flags) {
  const VerbScope scope(verb.name, EntryLine::branch(rmid, flags, xid));
  if (!flags_accepted(verb.validflags, flags)) {
    return scope.traced(XAER_INVAL);
  }
  if (xid == nullptr || !xid_lengths_fit(*xid)) {
    return scope.reported(XAER_INVAL);
  }
  XA_CONNECTION *conn = nullptr;
  const VerbStep found = find_for_completion(verb, xid, rmid, &conn);
  if (found.ends) {
    return scope.reported(found.code);
  }
  if (flags == TMNOWAIT && must_wait(conn, xid)) {
    if (found.code == XCRET_CONN) {
      conn->xc_state = XCS_UNUSED;
    }
    xc_release(conn);
    return scope.traced(XA_RETRY);
  }
  int32_t ret = send_completion(verb, xid, rmid, flags, &conn);
  if (conn != nullptr) {
    conn->xc_state = XCS_UNUSED;  // its XID stays: the next verb for the branch finds this connection again
    xc_release(conn);
  }
  if (ret == XAER_RMERR) {
    ret = XAER_RMFAIL;
  }
  if (ret == XAER_RMFAIL) {
    verb_close_rm(rmid);
  }
  return scope.reported(ret);
}
