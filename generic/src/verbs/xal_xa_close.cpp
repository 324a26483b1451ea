// xa_close: closes all connections of a resource manager in the calling thread identity and removes it.
//
// A connection that another thread is at work on is left alone, and so the resource manager stays: XAER_PROTO.
#include "base/xal_xid.h"
#include "connections/xal_conn.h"
#include "dtm/xal_dtm.h"
#include "personality/xal_personality.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMNOFLAGS, -1};

// True when the server still has the branch of an associated or suspended connection attached.
bool branch_is_live(XA_CONNECTION *conn) {
  if (conn->xc_state != XCS_ASSOC && conn->xc_state != XCS_SUSPEND) {
    return false;
  }
  return xa__dtm_status(conn, &conn->xc_xid) == XA_OK && conn->transtat == DTM_STATE_ATTACHED;
}

// The branch whose end failed last, and its connection. When the two are met again, ending once more would not help.
struct EndedBranch {
  const XA_CONNECTION *conn = nullptr;
  XID xid = {};

  bool is(const XA_CONNECTION *other) const {
    return conn == other && memcmp(&xid, &other->xc_xid, xid_size(xid)) == 0;
  }
};

// Closes one held connection. False when it carries a live branch that must not be ended here; then it is released. A
// branch whose end did not help is closed with its connection.
bool close_one(XA_CONNECTION *conn, int32_t rmid, EndedBranch &ended) {
  if (!ended.is(conn) && branch_is_live(conn)) {
    if (!personality_has(XAPF_CLOSE_ENDS)) {
      xc_release(conn);
      return false;
    }
    ended = {conn, conn->xc_xid};
    xc_release(conn);
    // Whatever came of it, the next round closes the connection, unless another thread has joined it again by then.
    if (xa_end(&ended.xid, rmid, TMSUCCESS) == XA_OK) {
      ended.conn = nullptr;
    }
    return true;
  }
  if (ended.conn == conn) {
    ended.conn = nullptr;
  }
  conn->xc_state = XCS_CLOSING;
  xc_close(conn);
  return true;
}

// Closes every connection; false when one carries a live branch that must not be ended.
bool close_connections(int32_t rmid) {
  EndedBranch ended;
  XA_CONNECTION *conn = nullptr;
  while (xc_get(rmid, nullptr, &conn, XCF_ANY) == XCRET_CONN && conn != nullptr) {
    if (!close_one(conn, rmid, ended)) {
      return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int32_t xa_close(const char *info, int32_t rmid, int32_t flags) {
  const VerbScope scope("xa_close", EntryLine::info(rmid, flags, info));
  if (!flags_accepted(validflags, flags)) {
    return scope.traced(XAER_INVAL);
  }
  if (!close_connections(rmid)) {
    return scope.reported(XAER_PROTO);
  }
  switch (xal_freelrm(rmid)) {
    case 1:
      return scope.traced(XA_OK);
    case XAER_NOTA:
      return scope.reported(XAER_PROTO);
    default:
      return scope.reported(XAER_RMERR);
  }
}
