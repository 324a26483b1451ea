// Starting a branch on the server: begin for a new one, attach for a join or a resume.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"

int32_t xa__dtm_start(XA_CONNECTION *conn, const XID *xid, int32_t flags) {
  const TraceScope trace("xa__dtm_start", TRACE_ZDB);
  const int32_t word = flags & ~TMASYNC;
  const bool nowait = (word & TMNOWAIT) != 0;
  const int32_t attach = nowait ? DTM_ATTACH_NOWAIT : DTM_ATTACH;
  int32_t ret = XA_OK;
  switch (word & ~TMNOWAIT) {
    case TMNOFLAGS:
      return trace.xa(dtm_request(conn, DTM_BEGIN, xid, DTM_WANT_ATTACHED, dtm_start_nf_maps));
    case TMJOIN:
      ret = dtm_request(conn, attach, xid, DTM_WANT_ATTACHED, dtm_start_jn_maps);
      break;
    case TMRESUME:
      ret = dtm_request(conn, attach, xid, DTM_WANT_ATTACHED, dtm_start_rs_maps);
      break;
    default:
      trace.error()("Invalid flags %d", flags);
      return trace.xa(XAER_INVAL);
  }
  if (ret == XA_RETRY && !nowait) {
    trace.error()("Unexpected DTM BUSY indication");
    ret = XAER_RMERR;
  }
  return trace.xa(ret);
}
