// xa_end: ends the association of a branch with a connection. A plain suspend stays in the library, and a resume in the
// same thread identity undoes it without asking the server; everything else goes to the server and frees the
// connection.
#include "connections/xal_conn.h"
#include "connections/xal_context.h"
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMSUCCESS, TMSUSPEND, TMSUSPEND | TMMIGRATE, TMFAIL, -1};
constexpr int32_t no_error = XA_OK;

// One xa_end call.
struct EndCall {
  TraceScope trace;
  const XID *xid;
  int32_t rmid;
  int32_t flags;
  XA_CONNECTION *conn = nullptr;  // held; null when there is none (any more)

  bool suspends() const { return (flags & TMSUSPEND) != 0; }
};

// ---- Finding the association ----------------------------------------------------------------------------------------

VerbStep refuse(const EndCall &call) {
  xc_release(call.conn);
  return VerbStep::end(XAER_PROTO);
}

// What a lookup means that neither found the branch nor could look: here every failure to open a connection counts.
VerbStep lookup_failed(const EndCall &call, int32_t found) {
  if (found == XCRET_NOLRM) {
    return VerbStep::end(XAER_INVAL);
  }
  if (xc_handed_out(found)) {
    xc_release(call.conn);
  }
  verb_close_rm(call.rmid);
  return VerbStep::end(XAER_RMFAIL);
}

// A suspend needs a connection with the branch; without one the server says what is wrong.
VerbStep find_to_suspend(EndCall &call) {
  const int32_t found = xc_get(call.rmid, call.xid, &call.conn, XCF_MATCH);
  if (found == XCRET_MATCH) {
    return call.conn->xc_state == XCS_ASSOC ? VerbStep::go_on(found) : refuse(call);
  }
  if (found == XCRET_NOCONN) {
    const int32_t checked = xa__check_xid(nullptr, call.xid, call.rmid);
    if (checked == XAER_RMFAIL) {
      verb_close_rm(call.rmid);
    }
    return VerbStep::end(checked);
  }
  return lookup_failed(call, found);
}

VerbStep find_to_finish(EndCall &call) {
  const int32_t found = xc_get(call.rmid, call.xid, &call.conn, XCF_MATCH | XCF_UNUSED | XCF_OPEN);
  if (found == XCRET_MATCH) {
    const bool associated = call.conn->xc_state == XCS_ASSOC || call.conn->xc_state == XCS_SUSPEND;
    return associated ? VerbStep::go_on(found) : refuse(call);
  }
  if (found == XCRET_CONN) {
    const int32_t checked = xa__check_xid(call.conn, call.xid, call.rmid);
    verb_free(call.conn);
    return VerbStep::end(checked);
  }
  return lookup_failed(call, found);
}

// ---- Ending it ------------------------------------------------------------------------------------------------------

// Removes what application code and the flavour attached to the connection; an error does not stop the end.
int32_t clean_up(const EndCall &call) {
  int32_t error = no_error;
  if (call.flags != TMSUSPEND && xc_obj_cln_curs(xl_context, call.conn) != CS_SUCCEED) {
    error = XAER_RMFAIL;
  }
  const int32_t cleared = active_personality().cs_obj_clear(call.conn);
  if (cleared != CS_SUCCEED) {
    call.trace.error()("Unable to forget connection being closed (%d)\n", cleared);
    error = XAER_RMFAIL;
  }
  return error;
}

// Rolls the branch back on a new connection, after the old one was lost with its end.
int32_t roll_back_lost(EndCall &call) {
  const int32_t reopened = xc_reopen_conn(call.rmid, call.conn, &call.conn);
  if (reopened != XA_OK) {
    return reopened;
  }
  call.conn->xc_state = XCS_ROLLINGBACK;
  const int32_t ret = xa__dtm_rollback(call.conn, call.xid);
  return ret == XA_OK ? XA_RBCOMMFAIL : ret;
}

int32_t end_on_server(EndCall &call) {
  int32_t ret = xa__dtm_end(call.conn, call.xid, call.flags);
  if (verb_connection_lost(ret)) {
    ret = roll_back_lost(call);
  }
  if (call.conn != nullptr) {
    verb_free(call.conn);
  }
  return ret == XAER_NOTA ? XA_OK : ret;
}

int32_t suspend_here(const EndCall &call) {
  call.conn->xc_state = XCS_SUSPEND;
  xc_release(call.conn);
  return XA_OK;
}

}  // namespace

extern "C" int32_t xa_end(const XID *xid, int32_t rmid, int32_t flags) {
  const VerbScope scope("xa_end", EntryLine::branch(rmid, flags, xid));
  if (!flags_accepted(validflags, flags)) {
    return scope.traced(XAER_INVAL);
  }
  if (xid == nullptr) {
    return scope.reported(XAER_INVAL);
  }
  EndCall call{scope.trace(), xid, rmid, flags};
  const VerbStep found = call.suspends() ? find_to_suspend(call) : find_to_finish(call);
  if (found.ends) {
    return scope.reported(found.code);
  }
  call.conn->xc_state = XCS_ENDING;
  const int32_t error = clean_up(call);
  int32_t ret = flags == TMSUSPEND ? suspend_here(call) : end_on_server(call);
  if (error != no_error) {
    ret = error;
  }
  if (ret == XAER_RMFAIL) {
    verb_close_rm(rmid);
  }
  return scope.reported(ret);
}
