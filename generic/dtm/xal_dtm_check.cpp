// The readiness check of a new connection: distributed transaction management must be switched on at the server, and
// the login must be allowed to call the DTM procedures. The second is tried with a branch that cannot exist.
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

namespace {

constexpr char config_query[] = "select value from master.dbo.sysconfigures \t\t\t where name = \"enable DTM\" ";
constexpr int32_t dtm_enabled = 1;

int32_t send_config_query(const TraceScope &trace, XA_CONNECTION *conn) {
  int32_t ret = ct_command(conn->xc_cmd, QLT_LANG_COMMAND, config_query, QLT_NULLTERM, QLT_UNUSED);
  if (ret != CS_SUCCEED) {
    trace.error()("ct_command returned %s, Unable to determine DTM configuration status", xacmn_log_csreturn(ret));
    return XAER_RMFAIL;
  }
  ret = ct_send(conn->xc_cmd);
  if (ret != CS_SUCCEED) {
    trace.error()("ct_send returned %s, Unable to determine DTM configuration status", xacmn_log_csreturn(ret));
    return XAER_RMFAIL;
  }
  return XA_OK;
}

// XA_OK when a value was read into *value.
int32_t read_config_value(const TraceScope &trace, XA_CONNECTION *conn, int32_t *value) {
  switch (xa__dtm_1result(conn, QLT_INT_TYPE, QLT_FMT_NONE, value, sizeof *value)) {
    case DTM_ONE_VALUE:
      return XA_OK;
    case DTM_MANY_RESULTS:
      trace.warning()("Multiple results returned for DTM configuration status");
      return XA_OK;
    case DTM_MANY_ROWS:
      trace.warning()("Multiple rows returned for DTM configuration status");
      return XA_OK;
    case DTM_NO_ROW_RESULT:
      trace.error()("No results returned for DTM configuration status, pre 12.0 ZDB?");
      return XAER_RMERR;
    case DTM_NO_ROW:
      // This wording stays: operators and scripts search for it.
      trace.error()("No rows for returned for DTM configuration status");
      return XAER_RMERR;
    default:
      trace.error()("Unable to determine DTM configuration status");
      return XAER_RMFAIL;
  }
}

int32_t check_configuration(const TraceScope &trace, XA_CONNECTION *conn) {
  int32_t value = -1;
  int32_t ret = send_config_query(trace, conn);
  if (ret == XA_OK) {
    ret = read_config_value(trace, conn, &value);
  }
  if (ret == XA_OK && value != dtm_enabled) {
    trace.error()("Server %s is not configured for XA DTM use (sp_configure \"enable DTM\", 1 )",
                  conn->xc_lrm->lrm_server);
    ret = XAER_RMERR;
  }
  return ret;
}

// False when the client library says that the connection is gone.
bool connection_alive(const XA_CONNECTION *conn) {
  int32_t status = 0;
  const int32_t ret = ct_con_props(conn->xc_conn, CS_GET, QLT_PROP_CON_STATUS, &status, QLT_UNUSED, nullptr);
  return ret == CS_SUCCEED && (status & (QLT_CON_OPEN | QLT_CON_BROKEN)) == QLT_CON_OPEN;
}

// The result for a probe outcome other than the normal one, with its message.
int32_t judge_outcome(const TraceScope &trace, const XA_CONNECTION *conn, int32_t outcome) {
  switch (outcome) {
    case XAER_DUPID:
      trace.warning()("Unexpected duplicate ID in connection check");
      return XA_OK;
    case XAER_RMERR:
      if (!connection_alive(conn)) {
        trace.error()("Connection failed after established. Unable to check");
        return XAER_RMFAIL;
      }
      trace.error()("Connection not usable for DTM. Check that user has dtm_tm_role on server");
      return XAER_RMERR;
    default:
      trace.error()("Unexpected return value %s when checking connection for usability", xacmn_log_xareturn(outcome));
      return XAER_RMFAIL;
  }
}

int32_t probe(const TraceScope &trace, XA_CONNECTION *conn) {
  const int32_t rpc = xa__dtm_rpc(conn, DTM_STATUS, &dtm_check_xid, DTM_WANT_ANY);
  const int32_t outcome = dtm_ret_to_xa(dtm_check_maps, conn, rpc);
  if (outcome == XAER_NOTA) {
    return XA_OK;
  }
  const int32_t ret = judge_outcome(trace, conn, outcome);
  trace.note()("Connection check for user %s on server %s", conn->xc_lrm->lrm_user, conn->xc_lrm->lrm_server);
  trace.note()("Connection check return values: ctlib %s, dtm= %d, rpc = %d, status = %d", xacmn_log_csreturn(rpc),
               conn->transtat, conn->rpcret, conn->rpcstat);
  return ret;
}

}  // namespace

int32_t xa__dtm_check(XA_CONNECTION *conn) {
  const TraceScope trace("xa__dtm_check", TRACE_ZDB);
  const int32_t configured = check_configuration(trace, conn);
  return trace.xa(configured == XA_OK ? probe(trace, conn) : configured);
}
