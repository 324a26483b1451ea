// Ending the work on a branch: always a detach, with the state that the flags ask for.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"

int32_t xa__dtm_end(XA_CONNECTION *conn, const XID *xid, int32_t flags) {
  const TraceScope trace("xa__dtm_end", TRACE_ZDB);
  switch (flags & ~TMASYNC) {
    case TMSUCCESS:
    case TMFAIL:
      return trace.xa(dtm_request(conn, DTM_DETACH, xid, DTM_WANT_ENDED, dtm_end_succ_maps));
    case TMSUSPEND:
      return trace.xa(dtm_request(conn, DTM_DETACH, xid, DTM_WANT_SUSPENDED, dtm_end_susp_maps));
    case TMSUSPEND | TMMIGRATE:
      return trace.xa(dtm_request(conn, DTM_DETACH, xid, DTM_WANT_MIGRATED, dtm_end_susp_maps));
    default:
      trace.error()("Invalid flags %d", flags);
      return trace.xa(XAER_INVAL);
  }
}
