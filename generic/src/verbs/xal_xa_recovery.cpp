// xa_recover: hands out the XIDs of the server's in-doubt branches, in a scan that may span several calls. The scan
// lives on one connection, in XCS_RECOVER between the calls, so that no other call takes it.
#include "connections/xal_conn.h"
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMSTARTRSCAN, TMSTARTRSCAN | TMENDRSCAN, TMENDRSCAN, TMNOFLAGS, -1};

// Asks for the next XIDs. A connection lost at the start of a scan is replaced once; later the scan is lost with it.
int32_t scan(XID *xids, int32_t count, int32_t rmid, int32_t flags, XA_CONNECTION **conn) {
  (*conn)->xc_state = XCS_RECOVER;
  const int32_t ret = xa__dtm_recover(*conn, xids, count, flags);
  if (!verb_connection_lost(ret) || (flags & TMSTARTRSCAN) == 0) {
    return ret;
  }
  const int32_t reopened = xc_reopen_conn(rmid, *conn, conn);
  if (reopened != XA_OK) {
    return reopened;
  }
  (*conn)->xc_state = XCS_RECOVER;
  return xa__dtm_recover(*conn, xids, count, flags);
}

// The scan goes on after a batch that was filled, unless the caller ends it. A connection that keeps a scan forgets the
// branch it last completed: that branch's next request must not end the scan, and may put it on another connection.
void settle_scan(XA_CONNECTION *conn, int32_t ret, int32_t count, int32_t flags) {
  if ((flags & TMENDRSCAN) != 0 || ret < count) {
    conn->xc_state = XCS_UNUSED;
  } else {
    conn->xc_xid.formatID = -1;
  }
  xc_release(conn);
}

}  // namespace

extern "C" int32_t xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags) {
  const VerbScope scope("xa_recover", EntryLine::recover(rmid, flags, count));
  if (!flags_accepted(validflags, flags)) {
    return scope.traced(XAER_INVAL);
  }
  if (xids == nullptr || count <= 0) {
    return scope.reported(XAER_INVAL);
  }
  XA_CONNECTION *conn = nullptr;
  const int32_t found = xc_get(rmid, nullptr, &conn, XCF_RECOVER | XCF_UNUSED | XCF_OPEN);
  if (found != XCRET_RECOVER && found != XCRET_CONN) {
    if (xc_handed_out(found)) {
      xc_release(conn);
    }
    verb_close_rm(rmid);
    return scope.reported(XAER_RMFAIL);
  }
  const int32_t ret = scan(xids, count, rmid, flags, &conn);
  if (conn != nullptr) {
    settle_scan(conn, ret, count, flags);
  }
  if (ret == XAER_RMFAIL) {
    verb_close_rm(rmid);
  }
  if (ret < 0) {
    return scope.reported(ret);
  }
  scope.trace().misc()("XIDs requested %d XIDs returned %d", count, ret);
  return scope.trace().hex(ret);
}
