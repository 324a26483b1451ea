// Forgetting a heuristically completed branch: the server is asked for the outcome first, and told to forget only a
// branch that has one.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"

int32_t xa__dtm_forget(XA_CONNECTION *conn, const XID *xid) {
  const TraceScope trace("xa__dtm_forget", TRACE_ZDB);
  int32_t ret = xa__dtm_check_heur(conn, xid);
  if (dtm_is_heuristic(ret)) {
    ret = dtm_request(conn, DTM_FORGET, xid, DTM_WANT_FORGOTTEN, dtm_forget_maps);
  }
  return trace.xa(ret == XAER_PROTO ? XAER_NOTA : ret);
}
