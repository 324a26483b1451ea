// Asking the server how a branch stands: the status query, and the polling for a branch that is still busy.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_threads.h"
#include "record/xal_record.h"

int32_t xa__dtm_status(XA_CONNECTION *conn, const XID *xid) {
  const TraceScope trace("xa__dtm_status", TRACE_ZDB);
  return trace.xa(dtm_request(conn, DTM_STATUS, xid, DTM_WANT_ANY, dtm_status_maps));
}

int32_t xa__dtm_await_completion(XA_CONNECTION *conn, const XID *xid) {
  const TraceScope trace("await_completion", TRACE_ZDB);
  int32_t ret = XA_RETRY;
  while (ret == XA_RETRY) {
    // The serialisation mutex stays held for the sleep; the request gives it up while the server works.
    xal_sleep(1);
    ret = dtm_request(conn, DTM_STATUS, xid, DTM_WANT_ANY, dtm_await_maps);
  }
  return trace.xa(ret);
}
