// Rolling a branch back. Another session's work is aborted asynchronously; the attach before the rollback asks for the
// abort-only state and is never undone. The heuristic check comes before the polling for a busy branch.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "record/xal_record.h"

namespace {

int32_t attach_and_roll_back(XA_CONNECTION *conn, const XID *xid) {
  if (personality_has(XAPF_FORCE_ATTACH)) {
    return dtm_request(conn, DTM_ROLLBACK, xid, DTM_WANT_ROLLEDBACK, dtm_dtcrollback_maps);
  }
  const int32_t attached = dtm_request(conn, DTM_ATTACH_NOWAIT, xid, DTM_WANT_ABORTONLY, dtm_rollback_att_maps);
  if (attached != XA_OK) {
    return attached;
  }
  return dtm_request(conn, DTM_ROLLBACK, xid, DTM_WANT_ROLLEDBACK, dtm_rollback_maps);
}

}  // namespace

int32_t xa__dtm_rollback(XA_CONNECTION *conn, const XID *xid) {
  const TraceScope trace("xa__dtm_rollback", TRACE_ZDB);
  int32_t ret = attach_and_roll_back(conn, xid);
  if (ret == XA_RBOTHER) {
    // This spelling stays: operators and scripts search for it.
    trace.message()("Performing asyncronous abort");
    ret = dtm_request(conn, DTM_ABORT, xid, DTM_WANT_ROLLEDBACK, dtm_rollback_maps);
    if (ret == XA_RBOTHER) {
      ret = XAER_RMERR;
    }
  }
  if (ret == XAER_NOTA) {
    ret = xa__dtm_check_heur(conn, xid);
    if (ret == XAER_PROTO) {
      trace.error()("xa__dtm_rollback: internal state conflict XAER_PROTO vs. XAER_NOTA. Returning XAER_RMERR\n");
      ret = XAER_RMERR;
    }
  }
  if (ret == XA_RETRY && conn->rpcstat == DTM_BUSY) {
    ret = xa__dtm_await_completion(conn, xid);
  }
  return trace.xa(ret);
}
