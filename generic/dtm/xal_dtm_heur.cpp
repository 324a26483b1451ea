// The check for a heuristic outcome, in the server's transaction table.
#include <cstdio>

#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "record/xal_results.h"

namespace {

int32_t state_to_xa(int32_t state) {
  switch (state) {
    case DTM_STATE_HEUR_COMMITTED:
      return XA_HEURCOM;
    case DTM_STATE_HEUR_ROLLEDBACK:
      return XA_HEURRB;
    default:
      return XAER_PROTO;
  }
}

// Sends the query for the branch's state; XA_OK when its results can be read.
int32_t send_state_query(const TraceScope &trace, XA_CONNECTION *conn, const XID *xid) {
  char query[XA_NAME_SIZE + 80];
  dtm_name_branch(conn, xid);
  snprintf(query, sizeof query, "select state from master..systransactions where xactname = \"%s\" ", conn->xc_name);
  if (ct_command(conn->xc_cmd, QLT_LANG_COMMAND, query, QLT_NULLTERM, QLT_UNUSED) != CS_SUCCEED) {
    trace.error()("xa_dtm_check_heur: ct_command failed");
    return XAER_RMFAIL;
  }
  if (ct_send(conn->xc_cmd) != CS_SUCCEED) {
    trace.error()("xa_dtm_check_heur: ct_send failed");
    return XAER_RMFAIL;
  }
  return XA_OK;
}

// Reads the one state of a row result.
int32_t read_state(const TraceScope &trace, QLT_COMMAND *command) {
  int32_t state = 0;
  const int32_t first = xa__conn_fetch_1c1r(command, QLT_INT_TYPE, QLT_FMT_NONE, &state, sizeof state);
  if (first == CS_END_DATA) {
    return XAER_NOTA;
  }
  if (first != CS_SUCCEED) {
    trace.error()("xa_dtm_check_heur: fetch failed %s", xacmn_log_dump_csrc(first));
    return XAER_RMERR;
  }
  int32_t scratch = 0;
  const int32_t second = xa__conn_fetch_1c1r(command, QLT_INT_TYPE, QLT_FMT_NONE, &scratch, sizeof scratch);
  if (second != CS_END_DATA) {
    trace.error()("xa_dtm_check_heur: improper end data %s", xacmn_log_dump_csrc(second));
    return XAER_RMERR;
  }
  return state_to_xa(state);
}

}  // namespace

int32_t xa__dtm_check_heur(XA_CONNECTION *conn, const XID *xid) {
  const TraceScope trace("xa_dtm_check_heur", TRACE_ZDB);
  const int32_t sent = send_state_query(trace, conn, xid);
  if (sent != XA_OK) {
    return trace.xa(sent);
  }
  for (;;) {
    int32_t type = 0;
    const int32_t code = dtm_results_paused(conn->xc_cmd, &type);
    if (code != CS_SUCCEED) {
      // No row result was seen: a query that ended normally found nothing; one that broke off says nothing.
      return trace.xa(code == CS_END_RESULTS ? XAER_NOTA : XAER_RMFAIL);
    }
    if (type == CS_CMD_DONE || type == CS_CMD_SUCCEED) {
      continue;
    }
    int32_t ret = XAER_RMFAIL;
    if (type == CS_ROW_RESULT) {
      ret = read_state(trace, conn->xc_cmd);
    } else {
      trace.error()("xa_dtm_check_heur: unexpected result type %d", type);
    }
    xa__conn_discard_results(conn->xc_cmd);
    return trace.xa(ret);
  }
}
