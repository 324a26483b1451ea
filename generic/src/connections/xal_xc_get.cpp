// The connection lookup: on every XA call the verb asks here for the connection that fits, and gets it held.
//
// The serialisation mutex orders all lookups, but verbs give it up while they wait for the server. What keeps other
// threads off a connection meanwhile is its hold, from hand-out to release: a held record is not purged, not closed and
// not taken as unused, and a thread that looks for exactly this record waits until it is released.
#include <cassert>
#include <ctime>

#include "base/xal_xid.h"
#include "common_routines.h"
#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

namespace {

constexpr uint32_t by_state = XCF_ASSOC | XCF_SUSPEND | XCF_RECOVER;

// A thread is recognised by the address of its count of holds. It is small enough for the room that the loader gives
// each thread at its start: one that is made at its first use ends the process when there is no memory for it.
[[gnu::tls_model("initial-exec")]] thread_local constinit int32_t holds_of_thread = 0;

bool held(const XA_CONNECTION *conn) {
  return conn->xc_holds > 0;
}

bool held_elsewhere(const XA_CONNECTION *conn) {
  return held(conn) && conn->xc_holder != &holds_of_thread;
}

// Unlinks a closed record and frees it; returns the links that followed it.
XC_LINKS *purge(XA_CONNECTION *conn) {
  XC_LINKS *next = conn->xc_next;
  _trvxadummy_take_mutex(conn->xc_mutex);
  conn->xc_prev->xc_next = conn->xc_next;
  conn->xc_next->xc_prev = conn->xc_prev;
  conn->xc_next = conn;
  conn->xc_prev = conn;
  _trvxadummy_release_mutex(conn->xc_mutex);
  _trvxadummy_delete_mutex(conn->xc_mutex);
  comn_free(conn);
  return next;
}

void hand_out(XA_LRMINFO *lrm, XA_CONNECTION *conn) {
  _trvxadummy_take_mutex(conn->xc_mutex);
  xc_hold(conn);
  _trvxadummy_release_mutex(lrm->lrm_mutex);
}

// The XCRET code for a record in a state that the flags ask for; XCRET_NOCONN for any other.
int32_t wanted_state(const XA_CONNECTION *conn, uint32_t flags) {
  if ((flags & XCF_ASSOC) != 0 && conn->xc_state == XCS_ASSOC) {
    return XCRET_ASSOC;
  }
  if ((flags & XCF_SUSPEND) != 0 && conn->xc_state == XCS_SUSPEND) {
    return XCRET_SUSPEND;
  }
  if ((flags & XCF_RECOVER) != 0 && conn->xc_state == XCS_RECOVER) {
    return XCRET_RECOVER;
  }
  return XCRET_NOCONN;
}

// One walk over the LRM's records, and what it came to: an XCRET code, or the XA code of a failed xc_open, and the
// connection that goes with it.
struct Walk {
  const XID *xid;
  uint32_t flags;
  XA_CONNECTION *match = nullptr;
  XA_CONNECTION *candidate = nullptr;
  int32_t result = XCRET_NOCONN;
  XA_CONNECTION *handed_out = nullptr;
};

// How a lookup goes on.
enum class Next : uint8_t {
  record,      // with the next record of the list
  look_again,  // from the start, after a while: another thread holds the connection looked for
  done         // not at all: the walk has its result
};

Next answer(Walk &walk, XA_LRMINFO *lrm, XA_CONNECTION *conn, int32_t result) {
  hand_out(lrm, conn);
  walk.handed_out = conn;
  walk.result = result;
  return Next::done;
}

Next answer_unused(Walk &walk, XA_LRMINFO *lrm, XA_CONNECTION *conn) {
  conn->xc_state = XCS_INUSE;
  return answer(walk, lrm, conn, XCRET_CONN);
}

bool is_match(const Walk &walk, const XA_CONNECTION *conn) {
  return (walk.flags & XCF_MATCH) != 0 && walk.xid != nullptr && xid_equal(*walk.xid, conn->xc_xid);
}

// Looks at one live record.
Next visit(Walk &walk, XA_LRMINFO *lrm, XA_CONNECTION *conn) {
  const int32_t state_result = (walk.flags & by_state) != 0 ? wanted_state(conn, walk.flags) : XCRET_NOCONN;
  if (held(conn)) {
    const bool looked_for = state_result != XCRET_NOCONN || is_match(walk, conn);
    return looked_for && held_elsewhere(conn) ? Next::look_again : Next::record;
  }
  if ((walk.flags & XCF_ANY) != 0) {
    return answer(walk, lrm, conn, XCRET_CONN);
  }
  if (state_result != XCRET_NOCONN) {
    return answer(walk, lrm, conn, state_result);
  }
  if (walk.match == nullptr && is_match(walk, conn)) {
    walk.match = conn;
    if ((walk.flags & by_state) == 0) {
      return answer(walk, lrm, conn, XCRET_MATCH);
    }
  }
  if ((walk.flags & XCF_UNUSED) != 0 && walk.candidate == nullptr && conn->xc_state == XCS_UNUSED) {
    walk.candidate = conn;
    if ((walk.flags & (XCF_MATCH | by_state)) == 0) {
      return answer_unused(walk, lrm, conn);
    }
  }
  return Next::record;
}

// While a connection was made, another thread may have put the branch on one: a branch is carried by one only.
bool matched_meanwhile(const Walk &walk, const XA_LRMINFO *lrm, const XA_CONNECTION *opened) {
  for (const XC_LINKS *at = lrm->lrm_conns.xc_next; at != &lrm->lrm_conns; at = at->xc_next) {
    const auto *conn = static_cast<const XA_CONNECTION *>(at);
    if (conn != opened && is_match(walk, conn) && (!held(conn) || held_elsewhere(conn))) {
      return true;
    }
  }
  return false;
}

// Makes a new connection the walk's result.
Next open_new(Walk &walk, XA_LRMINFO *lrm) {
  XA_CONNECTION *opened = nullptr;
  const int32_t ret = xc_open(lrm, &opened);
  if (ret != XA_OK) {
    _trvxadummy_release_mutex(lrm->lrm_mutex);
    walk.result = ret;
    return Next::done;
  }
  if (matched_meanwhile(walk, lrm, opened)) {
    opened->xc_state = XCS_UNUSED;
    xc_release(opened);
    return Next::look_again;
  }
  opened->xc_state = XCS_INUSE;
  walk.handed_out = opened;
  walk.result = XCRET_CONN;
  return Next::done;
}

// What the end of the list leaves: a match, an unused connection, a new one, or none.
Next settle(Walk &walk, XA_LRMINFO *lrm) {
  if (walk.match != nullptr) {
    return answer(walk, lrm, walk.match, XCRET_MATCH);
  }
  if (walk.candidate != nullptr) {
    return answer_unused(walk, lrm, walk.candidate);
  }
  if ((walk.flags & XCF_OPEN) != 0) {
    return open_new(walk, lrm);
  }
  _trvxadummy_release_mutex(lrm->lrm_mutex);
  return Next::done;
}

// Walks over the records of rmid's LRM, newest first, and frees the closed ones. False when it is to look again.
bool search(int32_t rmid, Walk &walk) {
  XA_LRMINFO *lrm = xal_getlrm(rmid);
  if (lrm == nullptr) {
    walk.result = XCRET_NOLRM;
    return true;
  }
  XC_LINKS *at = lrm->lrm_conns.xc_next;
  while (at != &lrm->lrm_conns) {
    auto *conn = static_cast<XA_CONNECTION *>(at);
    if (conn->xc_state == XCS_CLOSED && !held(conn)) {
      at = purge(conn);
      continue;
    }
    const Next next = visit(walk, lrm, conn);
    if (next == Next::look_again) {
      _trvxadummy_release_mutex(lrm->lrm_mutex);
    }
    if (next != Next::record) {
      return next == Next::done;
    }
    at = at->xc_next;
  }
  return settle(walk, lrm) == Next::done;
}

}  // namespace

void xc_wait_briefly() {
  const SerialisePause pause;
  const timespec briefly{0, 1'000'000};
  nanosleep(&briefly, nullptr);
}

void xc_await_branch(const XA_CONNECTION *conn, const XID &xid) {
  const XA_LRMINFO *lrm = conn->xc_lrm;
  const XC_LINKS *at = lrm->lrm_conns.xc_next;
  while (at != &lrm->lrm_conns) {
    const auto *other = static_cast<const XA_CONNECTION *>(at);
    if (held_elsewhere(other) && xid_equal(other->xc_xid, xid)) {
      xc_wait_briefly();
      at = &lrm->lrm_conns;  // the list may have changed
    }
    at = at->xc_next;
  }
}

void xc_hold(XA_CONNECTION *conn) {
  ++conn->xc_holds;
  conn->xc_holder = &holds_of_thread;
  ++holds_of_thread;
}

void xc_release(XA_CONNECTION *conn) {
  --conn->xc_holds;
  if (conn->xc_holds == 0) {
    conn->xc_holder = nullptr;
  }
  --holds_of_thread;
  _trvxadummy_release_mutex(conn->xc_mutex);
}

bool xc_still_there(int32_t rmid, const XA_CONNECTION *conn) {
  const XA_LRMINFO *lrm = xal_peeklrm(rmid);
  if (lrm == nullptr) {
    return false;
  }
  for (const XC_LINKS *at = lrm->lrm_conns.xc_next; at != &lrm->lrm_conns; at = at->xc_next) {
    if (at == conn) {
      return !held(conn);
    }
  }
  return false;
}

void xc_forget_branch(const XA_CONNECTION *conn) {
  const XA_LRMINFO *lrm = conn->xc_lrm;
  for (XC_LINKS *at = lrm->lrm_conns.xc_next; at != &lrm->lrm_conns; at = at->xc_next) {
    auto *other = static_cast<XA_CONNECTION *>(at);
    if (other != conn && other->xc_state == XCS_UNUSED && !held(other) && xid_equal(other->xc_xid, conn->xc_xid)) {
      other->xc_xid.formatID = -1;
    }
  }
}

void xc_assert_settled([[maybe_unused]] int32_t rmid) {
#ifndef NDEBUG
  assert(holds_of_thread == 0);
  const XA_LRMINFO *lrm = xal_peeklrm(rmid);
  if (lrm == nullptr) {
    return;
  }
  for (const XC_LINKS *at = lrm->lrm_conns.xc_next; at != &lrm->lrm_conns; at = at->xc_next) {
    const auto *conn = static_cast<const XA_CONNECTION *>(at);
    const int32_t state = conn->xc_state;
    assert(held(conn) || state == XCS_UNUSED || state == XCS_ASSOC || state == XCS_CLOSED || state == XCS_SUSPEND ||
           state == XCS_RECOVER);
    assert((state != XCS_ASSOC && state != XCS_SUSPEND) || conn->xc_conn != nullptr);
  }
#endif
}

int32_t xc_get(int32_t rmid, const XID *xid, XA_CONNECTION **out, uint32_t flags) {
  const TraceScope trace("xc_get", TRACE_RM);
  Walk walk{xid, flags};
  while (!search(rmid, walk)) {
    xc_wait_briefly();
    walk = Walk{xid, flags};
  }
  *out = walk.handed_out;
  if (trace.entered()) {
    trace.detail(0, XALOG_RM)("Return %s\n%s", xacmn_log_xareturn(walk.result), xacmn_log_dump_xid(xid));
  }
  return walk.result;
}
