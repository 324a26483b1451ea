// The login of a new connection: application name, user and password, then the connect, tried once more without
// failover when it fails. The password reaches no log line.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

namespace {

int32_t set_text(XA_CONNECTION *conn, int32_t property, char *value) {
  return ct_con_props(conn->xc_conn, CS_SET, property, value, QLT_NULLTERM, nullptr);
}

int32_t connect_without_failover(const TraceScope &trace, XA_CONNECTION *conn) {
  const XA_LRMINFO *lrm = conn->xc_lrm;
  int32_t off = 0;
  if (ct_con_props(conn->xc_conn, CS_SET, QLT_PROP_FAILOVER, &off, QLT_UNUSED, nullptr) != CS_SUCCEED) {
    trace.error()("unable to clear failover for retry");
    return CS_FAIL;
  }
  const int32_t ret = ct_connect(conn->xc_conn, lrm->lrm_server, QLT_NULLTERM);
  if (ret == CS_SUCCEED) {
    trace.warning()("Connected without failover to serv: %s, user: %s", lrm->lrm_server, lrm->lrm_user);
  }
  return ret;
}

}  // namespace

int32_t xa__dtm_connect(XA_CONNECTION *conn) {
  const TraceScope trace("xa__conn_connect", TRACE_CONN);
  XA_LRMINFO *lrm = conn->xc_lrm;
  CS_CONTEXT *context = nullptr;
  int32_t ret = cs_ctx_global(QLT_VERSION, &context);
  if (ret != CS_SUCCEED) {
    return trace.cs(ret);
  }
  if (set_text(conn, QLT_PROP_APPNAME, lrm->lrm_name) != CS_SUCCEED) {
    trace.message()("xa_conn_connect: failed to set application name");
  }
  if (lrm->lrm_user[0] != '\0') {
    ret = set_text(conn, QLT_PROP_USER, lrm->lrm_user);
    if (ret != CS_SUCCEED) {
      trace.error()("xa_conn_connect: failed to set user name\n");
      return trace.cs(ret);
    }
  }
  if (lrm->lrm_password[0] != '\0') {
    ret = set_text(conn, QLT_PROP_PASSWORD, lrm->lrm_password);
    if (ret != CS_SUCCEED) {
      trace.error()("xa_conn_connect: failed to set password");
      return trace.cs(ret);
    }
  }
  trace.progress()("xc__open: Connecting to serv: %s, user: %s\n", lrm->lrm_server, lrm->lrm_user);
  ret = ct_connect(conn->xc_conn, lrm->lrm_server, QLT_NULLTERM);
  if (ret == CS_FAIL) {
    ret = connect_without_failover(trace, conn);
  }
  return trace.cs(ret);
}
