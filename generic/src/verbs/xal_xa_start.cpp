// xa_start: associates a branch with one of the calling thread identity's connections.
//
// The steps, in order: deal with a connection that is still associated; pick the connection; put the XID on it; look
// for suspended branches before a join; start the branch on the server; publish the connection. The connection is held
// from the lookup to the end; what is not held is looked up again after every nested verb and every pause.
#include "base/xal_xid.h"
#include "connections/xal_conn.h"
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMNOFLAGS, TMJOIN, TMRESUME, TMNOWAIT, TMNOWAIT | TMJOIN, TMNOWAIT | TMRESUME, -1};

constexpr uint32_t first_wait = 2;  // seconds
constexpr uint32_t longest_wait = 180;
constexpr uint32_t join_wait = 2;

// One xa_start call.
struct StartCall {
  TraceScope trace;
  const XID *xid;
  int32_t rmid;
  int32_t flags;
  XA_CONNECTION *conn = nullptr;  // held; null when there is none (any more)
  uint32_t interval = first_wait;
  const XA_CONNECTION *refused = nullptr;  // the leftover whose end was refused, and its branch
  XID refused_xid = {};

  bool joins() const { return (flags & TMJOIN) != 0; }
  bool resumes() const { return (flags & TMRESUME) != 0; }
  int32_t without_nowait() const { return flags & ~TMNOWAIT; }
};

bool same_bytes(const XID &left, const XID &right) {
  return xid_size(left) == xid_size(right) && memcmp(&left, &right, xid_size(left)) == 0;
}

// ---- A leftover association -----------------------------------------------------------------------------------------

// What the server says of a leftover branch: the code noted for the caller, and whether it is still attached there.
struct LeftoverState {
  int32_t noted;
  bool attached;
};

LeftoverState ask_leftover(XA_CONNECTION *conn) {
  const int32_t answer = xa__dtm_status(conn, &conn->xc_xid);
  const bool gone = answer == XAER_NOTA || answer == XAER_RMERR;
  return {gone ? XA_OK : XAER_PROTO, answer == XA_OK && conn->transtat == DTM_STATE_ATTACHED};
}

// Gives the server time to let go of a leftover branch; the result once the waiting has lasted too long.
VerbStep wait_for_detach(StartCall &call) {
  if (call.interval >= longest_wait) {
    call.trace.progress()("xa_start: time out for ZDB to dettach\n");
    verb_close_rm(call.rmid);
    return VerbStep::end(XAER_RMFAIL);
  }
  {
    const SerialisePause pause;  // the thread that still works on the branch must be able to end it
    xal_sleep(call.interval);
  }
  call.interval *= 2;
  call.trace.progress()("xa_start: sleep %d sec for ZDB to dettach\n", static_cast<int32_t>(call.interval));
  return VerbStep::go_on(XA_OK);
}

// A leftover whose end is refused and that is met again unchanged would be met for ever.
bool refused_before(StartCall &call, const XA_CONNECTION *conn, const XID &branch) {
  return call.refused == conn && same_bytes(call.refused_xid, branch);
}

void note_refusal(StartCall &call, const XA_CONNECTION *conn, const XID &branch) {
  call.refused = conn;
  call.refused_xid = branch;
}

// True when another thread has put its branch on the connection meanwhile.
bool carries_another(const XA_CONNECTION *conn, const XID &branch) {
  return conn->xc_state == XCS_ASSOC && !same_bytes(conn->xc_xid, branch);
}

// Ends the leftover association of a connection that is no longer held.
VerbStep end_leftover(StartCall &call, XA_CONNECTION *conn, const XID &branch, int32_t noted) {
  const bool kindly = personality_has(XAPF_CLOSE_ENDS);
  const int32_t ended = xa_end(&branch, call.rmid, kindly ? TMSUCCESS : TMFAIL);
  if (ended != XA_OK) {
    note_refusal(call, conn, branch);
    if (kindly && xc_still_there(call.rmid, conn) && !carries_another(conn, branch)) {
      // The connection must not stay published; a failing withdrawal is logged by the operation.
      static_cast<void>(active_personality().cs_obj_clear(conn));
    }
    return VerbStep::go_on(XA_OK);
  }
  return !kindly && noted != XA_OK ? VerbStep::end(noted) : VerbStep::go_on(XA_OK);
}

// Deals with a connection that is still associated; afterwards the lookup is repeated, unless the call ends.
VerbStep leave_association(StartCall &call, XA_CONNECTION *conn) {
  const XID branch = conn->xc_xid;
  if (refused_before(call, conn, branch)) {
    xc_release(conn);
    return VerbStep::end(XAER_PROTO);
  }
  if (xid_equal(*call.xid, branch)) {
    xc_release(conn);
    return end_leftover(call, conn, branch, call.without_nowait() == TMNOFLAGS ? XAER_DUPID : XAER_PROTO);
  }
  const LeftoverState state = ask_leftover(conn);
  xc_release(conn);
  if (active_personality().tm_type == XATM_MTS) {
    if (state.attached) {
      return wait_for_detach(call);
    }
    call.trace.progress()("xa_start: after %d sec, ZDB dettached the transaction\n",
                          static_cast<int32_t>(call.interval));
  }
  return end_leftover(call, conn, branch, state.noted);
}

// ---- Picking the connection -----------------------------------------------------------------------------------------

// The lookup's result, once no connection is associated any more.
VerbStep look_up(StartCall &call) {
  for (;;) {
    const int32_t found = xc_get(call.rmid, call.xid, &call.conn, XCF_MATCH | XCF_UNUSED | XCF_OPEN | XCF_ASSOC);
    if (found != XCRET_ASSOC) {
      return VerbStep::go_on(found);
    }
    XA_CONNECTION *leftover = call.conn;
    call.conn = nullptr;
    const VerbStep left = leave_association(call, leftover);
    if (left.ends) {
      return left;
    }
  }
}

VerbStep refuse_suspended(StartCall &call, int32_t code) {
  xc_release(call.conn);
  call.conn = nullptr;
  return VerbStep::end(code);
}

// The branch is suspended on the connection: only a resume goes on, and the server need not be asked.
VerbStep take_suspended(StartCall &call) {
  if (call.resumes()) {
    call.conn->xc_state = XCS_STARTING;
    return VerbStep::go_on(XCRET_SUSPEND);
  }
  if (call.joins()) {
    call.trace.note()("Attempt to join transaction suspended in same thread");
    return refuse_suspended(call, XAER_PROTO);
  }
  return refuse_suspended(call, XAER_DUPID);
}

// Goes on with XCRET_SUSPEND for a local resume, with another lookup result for a start on the server.
VerbStep pick_connection(StartCall &call) {
  const VerbStep found = look_up(call);
  if (found.ends) {
    return found;
  }
  if (found.code == XCRET_MATCH && call.conn->xc_state == XCS_SUSPEND) {
    return take_suspended(call);
  }
  if (found.code == XCRET_MATCH || found.code == XCRET_CONN) {
    return found;
  }
  return VerbStep::end(verb_lookup_failed(found.code, call.conn, call.rmid));
}

// ---- Starting on the server -----------------------------------------------------------------------------------------

void set_up_branch(StartCall &call) {
  call.conn->xc_state = XCS_STARTING;
  verb_set_branch(call.conn, *call.xid);
  if (tracing(XATR_EVENT | XATR_VERBOSE)) {
    call.trace.progress()("xa_start: set up XID %s", xacmn_log_dump_xid(&call.conn->xc_xid));
  }
}

// Before a join: while a branch of this identity is suspended and alive on the server, a join must not wait for it.
// Returns the flag to add. Suspended branches that the server does not know any more are ended.
int32_t check_suspended(const StartCall &call) {
  const XA_CONNECTION *refused = nullptr;
  for (;;) {
    XA_CONNECTION *suspended = nullptr;
    const int32_t found = xc_get(call.rmid, call.xid, &suspended, XCF_SUSPEND);
    if (found != XCRET_SUSPEND) {
      if (xc_handed_out(found)) {
        xc_release(suspended);
      }
      return 0;
    }
    const XID branch = suspended->xc_xid;
    const int32_t answer = xa__dtm_status(suspended, &branch);
    xc_release(suspended);
    if (answer == XA_OK) {
      return (call.flags & TMNOWAIT) == 0 ? TMNOWAIT : 0;
    }
    if (refused == suspended) {
      return 0;  // its end was refused before; it would be met for ever
    }
    if (xa_end(&branch, call.rmid, TMFAIL) != XA_OK) {
      refused = suspended;
    }
  }
}

// Sends the start, once more on a new connection when the first was lost.
int32_t send_start(StartCall &call, int32_t flags) {
  const int32_t ret = xa__dtm_start(call.conn, call.xid, flags);
  if (!verb_connection_lost(ret)) {
    return ret;
  }
  const int32_t reopened = xc_reopen_conn(call.rmid, call.conn, &call.conn);
  if (reopened != XA_OK) {
    return reopened;
  }
  call.conn->xc_state = XCS_STARTING;
  return xa__dtm_start(call.conn, call.xid, flags);
}

// Waits before a join is tried again. Whoever resumes or completes the branch meanwhile must not wait for this call:
// the mutex is given up, and the branch is off the record, which only the hold keeps. Afterwards a thread that has
// found nothing to wait for and is at work on the branch is let finish, else one of the two would meet the other's
// attach.
void wait_for_resume(const StartCall &call) {
  call.conn->xc_xid.formatID = -1;
  {
    const SerialisePause pause;
    xal_sleep(join_wait);
  }
  xc_await_branch(call.conn, *call.xid);
  verb_set_branch(call.conn, *call.xid);
}

// Joins again for as long as the server answers that the branch was detached with a suspend. The next answer tells
// that it was resumed (busy), ended or completed.
int32_t start_until_joined(StartCall &call, int32_t added) {
  for (;;) {
    const int32_t ret = send_start(call, call.flags | added);
    if (added != 0 && ret == XA_RETRY) {
      return XAER_PROTO;
    }
    if (ret != XA_OK || !call.joins() || call.conn->transtat != DTM_STATE_DETACHED) {
      return ret;
    }
    // The next join shows whether the detach worked.
    static_cast<void>(xa__dtm_end(call.conn, call.xid, TMSUSPEND | TMMIGRATE));
    wait_for_resume(call);
  }
}

int32_t start_on_server(StartCall &call) {
  set_up_branch(call);
  const int32_t added = call.joins() ? check_suspended(call) : 0;
  const int32_t ret = start_until_joined(call, added);
  if (ret == XA_OK && call.resumes() && call.conn->transtat != DTM_STATE_DETACHED) {
    // It was not suspended with migration: nothing to resume. The caller learns that, whatever the end says.
    static_cast<void>(xa__dtm_end(call.conn, call.xid, TMSUCCESS));
    return XAER_PROTO;
  }
  return ret;
}

// ---- Finishing ------------------------------------------------------------------------------------------------------

int32_t publish(const StartCall &call, int32_t ret) {
  if (ret != XA_OK) {
    return ret;
  }
  const int32_t inserted = active_personality().cs_obj_insert(call.conn);
  if (inserted != CS_SUCCEED) {
    call.trace.error()("Unable to record connection for retrieval (%d)\n", inserted);
    return XAER_RMERR;
  }
  return XA_OK;
}

// The single exit of the passing state XCS_STARTING.
void settle(StartCall &call, int32_t ret) {
  XID branch;
  const bool shown = call.conn != nullptr && tracing(XATR_EVENT | XATR_VERBOSE);
  if (shown) {
    branch = call.conn->xc_xid;
    branch.formatID = ret == XA_OK ? branch.formatID : -1;
  }
  if (call.conn != nullptr && ret == XA_OK) {
    call.conn->xc_state = XCS_ASSOC;
    xc_release(call.conn);
  } else if (call.conn != nullptr) {
    verb_free(call.conn);
  }
  if (ret == XAER_RMFAIL) {
    verb_close_rm(call.rmid);
  }
  if (shown) {
    call.trace.progress()("xa_start: done, XID %s", xacmn_log_dump_xid(&branch));
  }
}

}  // namespace

extern "C" int32_t xa_start(const XID *xid, int32_t rmid, int32_t flags) {
  const VerbScope scope("xa_start", EntryLine::branch(rmid, flags, xid));
  if (!flags_accepted(validflags, flags)) {
    return scope.traced(XAER_INVAL);
  }
  if (xid == nullptr || xid->formatID == -1 || !xid_lengths_fit(*xid)) {
    return scope.reported(XAER_INVAL);  // no later lookup, nor a recovery, would find such a branch
  }
  StartCall call{scope.trace(), xid, rmid, flags};
  const VerbStep picked = pick_connection(call);
  if (picked.ends) {
    return scope.reported(picked.code);
  }
  const bool resumed_here = picked.code == XCRET_SUSPEND;
  const int32_t started = resumed_here ? XA_OK : start_on_server(call);
  const int32_t ret = publish(call, started);
  settle(call, ret);
  return scope.reported(ret);
}
