// Requests to the server's DTM procedures: building and sending them, and condensing the replies into the three numbers
// rpcret, rpcstat and transtat of the connection. Also the reader of language commands that answer one value.
//
// The caller holds the serialisation mutex and the connection. Sending happens under the mutex; it is given up for each
// call in which the client library may wait for the server, and held again whenever a result is handled. Every branch
// verb comes through here several times, so its traces are asked for before a call is made to write them.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "record/xal_results.h"

namespace {

constexpr char xa_dtm_beginrpc[] = "$beginTrvDtmXact";
constexpr char xa_dtm_attachrpc[] = "$attachTrvDtmXact";
constexpr char xa_dtm_detachrpc[] = "$detachTrvDtmXact";
constexpr char xa_dtm_statusrpc[] = "$statusTrvDtmXact";
constexpr char xa_dtm_preparerpc[] = "$prepareTrvDtmXact";
constexpr char xa_dtm_commitrpc[] = "$commitTrvDtmXact";
constexpr char xa_dtm_rollbackrpc[] = "$rollbackTrvDtmXact";
constexpr char xa_dtm_forgetrpc[] = "$forgetTrvDtmXact";

constexpr int32_t name_param_size = 255;
constexpr int32_t not_received = -19999;  // how the trace shows a part of the reply that did not come

// What an operation code sends; the code is the row's place in the table.
struct DtmOperation {
  int32_t code;
  const char *procedure;  // null: the code sends nothing
  int32_t options;        // "@flags"
  bool forces_attach;     // adds DTM_OPTION_FORCE_ATTACH under XAPF_FORCE_ATTACH
};

// clang-format off
constexpr DtmOperation dtm_operations[] = {
    // code                 procedure            options                 forces attach
    {0,                     nullptr,             0,                      false},
    {DTM_BEGIN,             xa_dtm_beginrpc,     DTM_OPTION_NEW,         false},
    {DTM_ATTACH,            xa_dtm_attachrpc,    0,                      false},
    {DTM_ATTACH_NOWAIT,     xa_dtm_attachrpc,    DTM_OPTION_NOWAIT,      false},
    {DTM_DETACH,            xa_dtm_detachrpc,    0,                      false},
    {DTM_DETACH_NOWAIT,     xa_dtm_detachrpc,    DTM_OPTION_UNDO_ATTACH, false},
    {DTM_STATUS,            xa_dtm_statusrpc,    0,                      false},
    {7,                     nullptr,             0,                      false},
    {DTM_FORGET,            xa_dtm_forgetrpc,    0,                      false},
    {DTM_PREPARE,           xa_dtm_preparerpc,   0,                      true},
    {DTM_COMMIT,            xa_dtm_commitrpc,    0,                      true},
    {DTM_COMMIT_ONEPHASE,   xa_dtm_commitrpc,    DTM_OPTION_ONE_PHASE,   true},
    {DTM_ROLLBACK,          xa_dtm_rollbackrpc,  0,                      true},
    {DTM_ABORT,             xa_dtm_rollbackrpc,  DTM_OPTION_BACKGROUND,  false},
};
// clang-format on
constexpr int32_t operation_count = sizeof dtm_operations / sizeof dtm_operations[0];

constexpr bool codes_are_places() {
  for (int32_t place = 0; place < operation_count; ++place) {
    if (dtm_operations[place].code != place) {
      return false;
    }
  }
  return true;
}
static_assert(codes_are_places());

// Null for a code that sends nothing.
const DtmOperation *find_operation(int32_t code) {
  const bool in_table = code >= 0 && code < operation_count && dtm_operations[code].procedure != nullptr;
  return in_table ? &dtm_operations[code] : nullptr;
}

// The DTM mode of the active TM type; false when the type is not in the table.
bool find_mode(int32_t tm_type, int32_t *mode) {
  for (const TmTypeMode *row = tm_type_to_mode; row->tm_type != 0; ++row) {
    if (row->tm_type == tm_type) {
      *mode = row->mode;
      return true;
    }
  }
  return false;
}

// The formats of the request's parameters never change, so they are built beforehand.
constexpr QLT_FORMAT param_format(std::string_view name, int32_t datatype, int32_t maxlen) {
  QLT_FORMAT format{};
  std::copy(name.begin(), name.end(), format.fmt_name);
  format.fmt_namelen = QLT_NULLTERM;
  format.fmt_datatype = datatype;
  format.fmt_maxlen = maxlen;
  format.fmt_status = QLT_INPUT_PARAM;
  return format;
}
constexpr QLT_FORMAT name_format = param_format("@name", QLT_CHAR_TYPE, name_param_size);
constexpr QLT_FORMAT mode_format = param_format("@mode", QLT_INT_TYPE, QLT_UNUSED);
constexpr QLT_FORMAT status_format = param_format("@status", QLT_INT_TYPE, QLT_UNUSED);
constexpr QLT_FORMAT flags_format = param_format("@flags", QLT_INT_TYPE, QLT_UNUSED);

int32_t integer_param(QLT_COMMAND *command, const QLT_FORMAT &format, const int32_t &value) {
  return ct_param(command, &format, &value, sizeof value, QLT_UNUSED);
}

int32_t mode_param(const TraceScope &trace, QLT_COMMAND *command, int32_t &mode) {
  const int32_t tm_type = active_personality().tm_type;
  if (!find_mode(tm_type, &mode)) {
    trace.error()("Invalid TM Type %d", tm_type);
    return CS_FAIL;
  }
  return integer_param(command, mode_format, mode);
}

int32_t cancel_all(QLT_COMMAND *command) {
  const SerialisePause pause;
  return ct_cancel(nullptr, command, CS_CANCEL_ALL);
}

// One part of a reply: whether it came, and its value.
struct ReplyPart {
  bool received = false;
  int32_t value = 0;

  void set(int32_t received_value) {
    received = true;
    value = received_value;
  }
  int32_t shown() const { return received ? value : not_received; }
};

// A DTM reply as it comes in.
struct DtmReply {
  ReplyPart rpcerror;
  ReplyPart status;
  ReplyPart xactstatus;
  int32_t code = CS_SUCCEED;  // the last client-library code
  bool stop = false;          // cancel the rest and leave the loop
};

// Takes an output parameter over; only its first column counts.
void take_parameter(const TraceScope &trace, const XA_RESULTS &results, DtmReply &reply) {
  const QLT_FORMAT &format = results.res_fmts[0];
  int32_t value = 0;
  const bool integer = format.fmt_datatype == QLT_INT_TYPE && dtm_first_integer(results, &value);
  trace.event()("CS_PARAM_RESULT %s, %d", format.fmt_name, value);
  if (!integer) {
    trace.warning()("invalid return parameter type %d", format.fmt_datatype);
  } else if (strcmp(format.fmt_name, "@$rpcerror") == 0 && !reply.rpcerror.received) {
    reply.rpcerror.set(value);
    trace.misc()("%s = %d", format.fmt_name, value);
  } else if (strcmp(format.fmt_name, "@xactstatus") == 0 && !reply.xactstatus.received) {
    reply.xactstatus.set(value);
    trace.misc()("%s = %d", format.fmt_name, value);
  } else {
    trace.warning()("invalid or duplicated return parameter name %s", format.fmt_name);
  }
}

void handle_parameter(const TraceScope &trace, QLT_COMMAND *command, DtmReply &reply) {
  XA_RESULTS results{};
  results.res_rows = 2;
  const ResultsScope scope(results);
  reply.code = xa__conn_fetch_data(command, &results);
  if (reply.code != CS_END_DATA || results.res_rowsread < 1) {
    trace.error()("Failure obtaining CS_PARAM_RESULT");
    reply.stop = true;
    return;
  }
  take_parameter(trace, results, reply);
}

void handle_status(const TraceScope &trace, QLT_COMMAND *command, DtmReply &reply) {
  if (reply.status.received) {
    trace.message()("duplicate status");
    reply.stop = true;
  }
  XA_RESULTS results{};
  results.res_rows = 2;
  const ResultsScope scope(results);
  int32_t value = 0;
  reply.code = xa__conn_fetch_data(command, &results);
  if (reply.code != CS_END_DATA || !dtm_first_integer(results, &value)) {
    trace.warning()("Failure obtaining CS_STATUS_RESULT");
    reply.stop = true;
    return;
  }
  reply.status.set(value);
  if (tracing(XATR_MISC)) {
    trace.misc()("%s = %d", "CS_STATUS_RESULT", value);
  }
}

void handle_result(const TraceScope &trace, QLT_COMMAND *command, int32_t type, DtmReply &reply) {
  switch (type) {
    case CS_PARAM_RESULT:
      handle_parameter(trace, command, reply);
      break;
    case CS_STATUS_RESULT:
      handle_status(trace, command, reply);
      break;
    case CS_CMD_DONE:
    case CS_CMD_SUCCEED:
      if (tracing(XATR_MISC)) {
        trace.misc()(type == CS_CMD_DONE ? "CS_CMD_DONE" : "CS_CMD_SUCCEED");
      }
      break;
    case CS_CMD_FAIL:
      trace.warning()("CS_CMD_FAIL: Server command failed (improper configuration?)");
      break;
    default:
      trace.error()("Unexpected Quillet result %d", type);
      reply.code = CS_FAIL;
      reply.stop = true;
      break;
  }
}

// Fills the connection's outcome from what was received.
void condense(const DtmReply &reply, XA_CONNECTION *conn) {
  const int32_t state = reply.xactstatus.received ? reply.xactstatus.value : -1;
  if (reply.rpcerror.received) {
    conn->rpcret = reply.xactstatus.received ? DTM_REPLY_RPCSTATE : DTM_REPLY_RPCERROR;
    conn->rpcstat = reply.rpcerror.value;
    conn->transtat = state;
  } else if (!reply.status.received) {
    conn->rpcret = DTM_REPLY_NOSTATUS;
    conn->rpcstat = 0;
    conn->transtat = state;
  } else if (reply.status.value < 0) {
    conn->rpcret = DTM_REPLY_ERROR;
    conn->rpcstat = reply.status.value;
    conn->transtat = state;
  } else {
    conn->rpcret = reply.xactstatus.received ? DTM_REPLY_ERROR : DTM_REPLY_STATUS;
    conn->rpcstat = reply.xactstatus.received ? reply.xactstatus.value : 0;
    conn->transtat = reply.status.value;
  }
}

// The function's code once the outcome stands. A conversation that broke off is never a success.
int32_t reply_code(const DtmReply &reply, XA_CONNECTION *conn) {
  if (reply.code != CS_END_RESULTS) {
    conn->rpcret = DTM_REPLY_BROKEN;
    return reply.code == CS_SUCCEED ? CS_FAIL : reply.code;
  }
  return conn->rpcret == DTM_REPLY_STATUS || conn->rpcret == DTM_REPLY_ERROR ? CS_SUCCEED : CS_FAIL;
}

// Reads the one row of a one-value result, and makes sure that no second one follows.
int32_t read_only_row(const TraceScope &trace, QLT_COMMAND *command, int32_t datatype, int32_t format, void *buffer,
                      int32_t maxlen) {
  if (xa__conn_fetch_1c1r(command, datatype, format, buffer, maxlen) != CS_SUCCEED) {
    return DTM_NO_ROW;
  }
  int32_t scratch = 0;
  if (xa__conn_fetch_1c1r(command, QLT_INT_TYPE, QLT_FMT_NONE, &scratch, sizeof scratch) != CS_END_DATA) {
    trace.verbose()("more than one row returned");
    return DTM_MANY_ROWS;
  }
  return DTM_ONE_VALUE;
}

}  // namespace

int32_t dtm_results_paused(QLT_COMMAND *command, int32_t *type) {
  const SerialisePause pause;
  return ct_results(command, type);
}

void dtm_cancel_paused(QLT_COMMAND *command) {
  // Nothing can be done about a failing cancel: the outcome is a broken conversation either way.
  static_cast<void>(cancel_all(command));
}

bool dtm_first_integer(const XA_RESULTS &results, int32_t *value) {
  if (results.res_rowsread < 1 || results.res_fmts[0].fmt_maxlen < static_cast<int32_t>(sizeof *value)) {
    return false;
  }
  memcpy(value, results.res_data[0], sizeof *value);
  return true;
}

int32_t xa__dtm_rpc(XA_CONNECTION *conn, int32_t code, const XID *xid, int32_t status) {
  const TraceScope trace("xa__dtm_rpc", TRACE_CONN);
  const DtmOperation *operation = find_operation(code);
  if (operation == nullptr) {
    return trace.cs(CS_FAIL);
  }
  const bool forced = operation->forces_attach && personality_has(XAPF_FORCE_ATTACH);
  const int32_t options = operation->options + (forced ? DTM_OPTION_FORCE_ATTACH : 0);
  QLT_COMMAND *const command = conn->xc_cmd;
  int32_t ret = ct_command(command, QLT_RPC_COMMAND, operation->procedure, QLT_NULLTERM, QLT_NO_RECOMPILE);
  if (ret != CS_SUCCEED) {
    trace.error()("ct_command failed");
    return trace.cs(ret);
  }
  int32_t mode = 0;  // stands until the request is sent, as all its parameters do
  const char *branch = "";
  if (xid != nullptr) {
    dtm_name_branch(conn, xid);
    branch = conn->xc_name;
    ret = ct_param(command, &name_format, branch, conn->xc_name_length, QLT_UNUSED);
    if (ret != CS_SUCCEED) {
      trace.error()("xa__dtm_rpc: ct_param failed");
      return trace.cs(ret);
    }
  }
  if (code == DTM_BEGIN) {
    ret = mode_param(trace, command, mode);
    if (ret != CS_SUCCEED) {
      return trace.cs(ret);
    }
  }
  ret = integer_param(command, status_format, status);
  if (ret == CS_SUCCEED) {
    ret = integer_param(command, flags_format, options);
  }
  if (ret != CS_SUCCEED) {
    return trace.cs(ret);
  }
  if (tracing(XATR_EVENT)) {
    trace.event()("xid: %s sent with rpc: %s with flag: %d, status %d", branch, operation->procedure, options, status);
  }
  if (ct_send(command) != CS_SUCCEED) {
    trace.error()("xa__dtm_rpc: ct_send failed");
    return trace.cs(CS_FAIL);
  }
  return trace.cs(xa__dtm_process_results(conn));
}

int32_t xa__dtm_process_results(XA_CONNECTION *conn) {
  const TraceScope trace("xa__dtm_process_results", TRACE_CONN);
  QLT_COMMAND *const command = conn->xc_cmd;
  DtmReply reply;
  int32_t type = 0;
  while (!reply.stop) {
    reply.code = dtm_results_paused(command, &type);
    if (reply.code != CS_SUCCEED) {
      break;
    }
    if (tracing(XATR_MISC)) {
      trace.misc()("ctresult -> %d, type %d", reply.code, type);
    }
    handle_result(trace, command, type, reply);
  }
  if (reply.stop) {
    dtm_cancel_paused(command);
  }
  condense(reply, conn);
  const int32_t ret = reply_code(reply, conn);
  if (tracing(XATR_MISC)) {
    trace.misc()("ret=%d, rpcret=%d, stat=%d, err=%d", reply.code, reply.status.shown(), reply.xactstatus.shown(),
                 reply.rpcerror.shown());
    trace.misc()("rpcret=%d, rpcstat=%d, transtat=%d", conn->rpcret, conn->rpcstat, conn->transtat);
  }
  return trace.cs(ret);
}

int32_t xa__dtm_1result(XA_CONNECTION *conn, int32_t datatype, int32_t format, void *buffer, int32_t maxlen) {
  const TraceScope trace("xa__dtm_1result", TRACE_VERBOSE);
  bool row_read = false;
  for (;;) {
    int32_t type = 0;
    const int32_t code = dtm_results_paused(conn->xc_cmd, &type);
    if (code == CS_END_RESULTS) {
      return trace.hex(row_read ? DTM_ONE_VALUE : DTM_NO_ROW_RESULT);
    }
    int32_t failure = DTM_FAILED;
    if (code == CS_SUCCEED && (type == CS_CMD_DONE || type == CS_CMD_SUCCEED)) {
      continue;
    }
    if (code == CS_SUCCEED && type == CS_ROW_RESULT && !row_read) {
      failure = read_only_row(trace, conn->xc_cmd, datatype, format, buffer, maxlen);
      if (failure == DTM_ONE_VALUE) {
        row_read = true;
        continue;
      }
    } else if (code == CS_SUCCEED && type == CS_ROW_RESULT) {
      trace.verbose()("more than one result");
      failure = DTM_MANY_RESULTS;
    } else if (code == CS_SUCCEED) {
      trace.verbose()("Unexpected result type %d", type);
    }
    xa__conn_discard_results(conn->xc_cmd);
    return trace.hex(failure);
  }
}
