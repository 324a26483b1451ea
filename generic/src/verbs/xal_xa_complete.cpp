// xa_complete: refused always, since no call is ever asynchronous here. It looks at none of its arguments.
#include "log/xal_log.h"

extern "C" int32_t xa_complete(int32_t *, int32_t *, int32_t, int32_t) {
  const TraceScope trace("xa_complt", TRACE_XA);
  trace.error()("Return %s\n%s", xacmn_log_xareturn(XAER_PROTO), "xa_complete is not provided");
  return trace.xa(XAER_PROTO);
}
