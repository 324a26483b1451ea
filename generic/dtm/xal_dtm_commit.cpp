// Committing a branch, in two phases or in one. Here the heuristic check comes before the polling for a busy branch.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "record/xal_record.h"

namespace {

int32_t commit_one_phase(XA_CONNECTION *conn, const XID *xid) {
  if (personality_has(XAPF_FORCE_ATTACH)) {
    return dtm_request(conn, DTM_COMMIT_ONEPHASE, xid, DTM_WANT_COMMITTED, dtm_commit_1p_frc_att_maps);
  }
  return dtm_request(conn, DTM_COMMIT_ONEPHASE, xid, DTM_WANT_COMMITTED, dtm_commit_1p_maps);
}

}  // namespace

int32_t xa__dtm_commit(XA_CONNECTION *conn, const XID *xid, int32_t flags) {
  const TraceScope trace("xa__dtm_commit", TRACE_ZDB);
  int32_t ret = XA_OK;
  switch (flags & ~TMASYNC) {
    case TMNOFLAGS:
    case TMNOWAIT:
      ret = dtm_request(conn, DTM_COMMIT, xid, DTM_WANT_COMMITTED, dtm_commit_nf_maps);
      break;
    case TMONEPHASE:
    case TMONEPHASE | TMNOWAIT:
      if (!personality_has(XAPF_FORCE_ATTACH)) {
        const int32_t attached = dtm_attach_first(conn, xid, dtm_start_jn_maps);
        if (attached != XA_OK) {
          return trace.xa(attached);
        }
      }
      ret = commit_one_phase(conn, xid);
      break;
    default:
      trace.error()("Invalid flags %d", flags);
      return trace.xa(XAER_INVAL);
  }
  if (ret == XAER_NOTA) {
    ret = xa__dtm_check_heur(conn, xid);
    if (ret == XAER_PROTO) {
      trace.error()("internal state conflict XAER_PROTO vs. XAER_NOTA. Returning XAER_RMERR");
      ret = XAER_RMERR;
    }
  }
  if (ret == XA_RETRY && conn->rpcstat == DTM_BUSY) {
    ret = xa__dtm_await_completion(conn, xid);
  }
  return trace.xa(ret);
}
