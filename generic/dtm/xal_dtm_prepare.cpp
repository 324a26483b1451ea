// Preparing a branch. A connection that never carried it attaches and detaches first, unless the personality lets the
// completing request attach by itself. Here the polling for a busy branch comes before the heuristic check.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "record/xal_record.h"

namespace {

// What a branch that the server does not know any more came to.
int32_t outcome_of_unknown(const TraceScope &trace, XA_CONNECTION *conn, const XID *xid) {
  const int32_t ret = xa__dtm_check_heur(conn, xid);
  if (ret == XAER_PROTO) {
    trace.error()("internal state conflict XAER_PROTO vs. XAER_NOTA. Returning XAER_RMERR");
    return XAER_RMERR;
  }
  if (dtm_is_heuristic(ret)) {
    // This spelling stays: operators and scripts search for it.
    trace.message()("xa__dtm_prepare: Heuristic completion ocurred");
  }
  return ret;
}

}  // namespace

int32_t xa__dtm_prepare(XA_CONNECTION *conn, const XID *xid) {
  const TraceScope trace("xa__dtm_prepare", TRACE_ZDB);
  DtmOutcomeList list = dtm_prepare_frc_att_maps;
  if (!personality_has(XAPF_FORCE_ATTACH)) {
    const int32_t attached = dtm_attach_first(conn, xid, dtm_attprep_maps);
    if (attached != XA_OK) {
      return trace.xa(attached);
    }
    list = dtm_prepare_maps;
  }
  int32_t ret = dtm_request(conn, DTM_PREPARE, xid, DTM_WANT_PREPARED, list);
  if (ret == XA_RETRY && conn->rpcstat == DTM_BUSY) {
    ret = xa__dtm_await_completion(conn, xid);
  }
  if (ret == XAER_NOTA) {
    ret = outcome_of_unknown(trace, conn, xid);
  }
  return trace.xa(ret);
}
