// The recovery scan: the server's list of in-doubt branches, read in batches across several calls.
//
// The scan runs on a command of its own, xc_recov_cmd, which stays open between calls; whichever way a scan ends, the
// command is dropped. Rows are branch names of all LRMs; those of others are passed over, and those that are no branch
// name are passed over with a warning, never counted. The mutex is given up for each ct_results; rows are fetched with
// it held.
#include <cctype>
#include <cstring>

#include "config/xal_open_string.h"
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "record/xal_results.h"
#include "registry/xal_registry.h"

namespace {

constexpr char scan_procedure[] = "sp_transactions";
constexpr char scan_query_type[] = "xa_recover";
constexpr int32_t row_size = 256;
constexpr int32_t param_size = 255;
constexpr size_t longest_field = 127;  // characters of an encoded gtrid or bqual

// A row's branch name, split into its fields.
struct BranchRow {
  uint32_t format_id;
  char gtrid[longest_field + 1];
  char bqual[longest_field + 1];
  char lrm[XAL_FIELD_SIZE];
};

// Reads up to eight hexadecimal digits and the underscore behind them; null when they are not there.
const char *split_format_id(const char *text, uint32_t *value) {
  *value = 0;
  int32_t digits = 0;
  for (; isxdigit(static_cast<unsigned char>(*text)) != 0; ++text, ++digits) {
    const int lower = tolower(static_cast<unsigned char>(*text));
    *value = *value << 4 | static_cast<uint32_t>(lower <= '9' ? lower - '0' : lower - 'a' + 10);
  }
  return digits >= 1 && digits <= 8 && *text == '_' ? text + 1 : nullptr;
}

// Copies a field up to its underscore; null when it is too long or the underscore is missing.
const char *split_field(const char *text, char (&out)[longest_field + 1]) {
  const size_t length = strcspn(text, "_");
  if (length > longest_field || text[length] != '_') {
    return nullptr;
  }
  memcpy(out, text, length);
  out[length] = '\0';
  return text + length + 1;
}

// Copies the LRM name, which ends at white space; false when it is too long. It is empty only at the row's end: an LRM
// without a name, which MTS allows, prepares branches under such names.
bool split_lrm(const char *text, char (&out)[XAL_FIELD_SIZE]) {
  constexpr const char *blanks = " \t\n\v\f\r";
  const size_t length = strcspn(text, blanks);
  if (length >= sizeof out || (length == 0 && text[strspn(text, blanks)] != '\0')) {
    return false;
  }
  memcpy(out, text, length);
  out[length] = '\0';
  return true;
}

bool split_row(const char *text, BranchRow &row) {
  const char *rest = split_format_id(text, &row.format_id);
  if (rest != nullptr) {
    rest = split_field(rest, row.gtrid);
  }
  if (rest != nullptr) {
    rest = split_field(rest, row.bqual);
  }
  return rest != nullptr && *rest == ':' && split_lrm(rest + 1, row.lrm);
}

// Decodes a row's fields into an XID; false when they are no legal XID.
bool decode_row(const BranchRow &row, XID &xid) {
  char gtrid[longest_field];
  char bqual[longest_field];
  const int32_t gtrid_length = xa__dtm_decode(row.gtrid, gtrid);
  if (gtrid_length < 1 || gtrid_length > MAXGTRIDSIZE) {
    return false;
  }
  const int32_t bqual_length = xa__dtm_decode(row.bqual, bqual);
  if (bqual_length < 0 || bqual_length > MAXBQUALSIZE) {
    return false;
  }
  xid = XID{};
  xid.formatID = static_cast<int32_t>(row.format_id);
  xid.gtrid_length = gtrid_length;
  xid.bqual_length = bqual_length;
  memcpy(xid.data, gtrid, static_cast<size_t>(gtrid_length));
  memcpy(xid.data + gtrid_length, bqual, static_cast<size_t>(bqual_length));
  return true;
}

// Fetches rows until count XIDs are stored or the rows end; the last fetch's code goes to *code.
int32_t fetch_batch(const TraceScope &trace, XA_CONNECTION *conn, XID *xids, int32_t count, int32_t *code) {
  int32_t stored = 0;
  *code = CS_SUCCEED;
  while (stored < count) {
    char text[row_size] = "";
    *code = xa__conn_fetch_1c1r(conn->xc_recov_cmd, QLT_CHAR_TYPE, QLT_FMT_NULLTERM, text, sizeof text);
    if (*code != CS_SUCCEED) {
      break;
    }
    text[sizeof text - 1] = '\0';
    if (dtm_accept_row(trace, conn->xc_lrm->lrm_name, text, xids[stored])) {
      ++stored;
    }
  }
  return stored;
}

int32_t cancel_current(QLT_COMMAND *command) {
  return ct_cancel(nullptr, command, QLT_CANCEL_CURRENT);
}

// Whether a status came, its value, and how the results ended.
struct ScanEnd {
  bool has_status = false;
  int32_t status = 0;
};

void take_scan_status(const TraceScope &trace, QLT_COMMAND *command, ScanEnd &end) {
  trace.event()("ct_results loop CS_STATUS_RESULT");
  if (end.has_status) {
    trace.message()("duplicate status");
  }
  XA_RESULTS results{};
  results.res_rows = 2;
  const ResultsScope scope(results);
  end.has_status = true;
  end.status = -1;
  if (xa__conn_fetch_data(command, &results) != CS_END_DATA || !dtm_first_integer(results, &end.status)) {
    trace.warning()("Failure obtaining CS_STATUS_RESULT");
    return;
  }
  trace.misc()("%s = %d", "CS_STATUS_RESULT", end.status);
}

void handle_remaining_result(const TraceScope &trace, QLT_COMMAND *command, int32_t type, ScanEnd &end) {
  switch (type) {
    case CS_ROW_RESULT:
      trace.warning()("CS_ROW_RESULT");
      break;
    case CS_STATUS_RESULT:
      take_scan_status(trace, command, end);
      break;
    case CS_CMD_FAIL:
      trace.warning()("CS_CMD_FAIL");
      break;
    case CS_PARAM_RESULT:
    case QLT_MSG_RESULT:
    case CS_CMD_DONE:
    case CS_CMD_SUCCEED:
      trace.event()("ct_results loop result type %d", type);
      break;
    default:
      trace.error()("Unexpected result type %d", type);
      break;
  }
}

// What the end of a scan confirms.
int32_t scan_verdict(const TraceScope &trace, const ScanEnd &end, int32_t last_code) {
  if (end.has_status && end.status == 0) {
    return CS_END_RESULTS;
  }
  if (end.has_status && end.status > 0) {
    // This spelling stays: operators and scripts search for it.
    trace.warning()("some XIDs could not be returned (databsee still being recovered)");
    return CS_SUCCEED;
  }
  if (end.has_status) {
    trace.warning()("Unable to determine if all XIDs could be returned");
    return CS_FAIL;
  }
  if (last_code == CS_END_RESULTS) {
    trace.warning()("No status result to confirm all XIDs were returned");
    return CS_FAIL;
  }
  trace.warning()("Unable to determine if all XIDs could be returned");
  return CS_CANCELED;
}

// Opens a new scan up to its rows: CS_SUCCEED, CS_END_RESULTS when there are none, or an XA error code.
int32_t open_scan(const TraceScope &trace, XA_CONNECTION *conn) {
  if (conn->xc_recov_cmd != nullptr) {
    xa_dtm_terminate_scan(conn);
  }
  if (xa_dtm_start_scan(conn) != CS_SUCCEED) {
    return XAER_RMERR;
  }
  const int32_t advanced = xa_dtm_recov_scan(conn);
  if (advanced != CS_SUCCEED && advanced != CS_END_RESULTS) {
    trace.error()("Unexpected start scan result %d", advanced);
    return XAER_RMFAIL;
  }
  return advanced;
}

int32_t send_scan(const TraceScope &trace, XA_CONNECTION *conn) {
  int32_t ret = ct_command(conn->xc_recov_cmd, QLT_RPC_COMMAND, scan_procedure, QLT_NULLTERM, QLT_NO_RECOMPILE);
  if (ret != CS_SUCCEED) {
    trace.error()("Unable to declare recovery rpc (%s)", xacmn_log_dump_csrc(ret));
    return ret;
  }
  QLT_FORMAT format{};
  strcpy(format.fmt_name, "@query_type");
  format.fmt_namelen = QLT_NULLTERM;
  format.fmt_datatype = QLT_CHAR_TYPE;
  format.fmt_maxlen = param_size;
  format.fmt_status = QLT_INPUT_PARAM;
  ret = ct_param(conn->xc_recov_cmd, &format, scan_query_type, sizeof scan_query_type - 1, QLT_UNUSED);
  if (ret != CS_SUCCEED) {
    trace.error()("Unable to set state param (%s)", xacmn_log_dump_csrc(ret));
    return ret;
  }
  ret = ct_send(conn->xc_recov_cmd);
  if (ret != CS_SUCCEED) {
    trace.error()("Unable to send recovery command (%s)", xacmn_log_dump_csrc(ret));
  }
  return ret;
}

}  // namespace

bool dtm_accept_row(const TraceScope &trace, const char *own_lrm, const char *text, XID &xid) {
  trace.misc()("encoded xid: %s", text);
  BranchRow row{};
  const bool split = split_row(text, row);
  trace.misc()("formatID %lx , gtridbuf  %s , bqualbuf %s", static_cast<unsigned long>(row.format_id), row.gtrid,
               row.bqual);
  trace.misc()("LRM name %s , xa_conn lrm %s", row.lrm, own_lrm);
  if (split && strcmp(row.lrm, own_lrm) != 0) {
    return false;
  }
  if (!split || !decode_row(row, xid)) {
    trace.warning()("skipped a transaction that is not named as a branch: %s", text);
    return false;
  }
  return true;
}

int32_t xa_dtm_start_scan(XA_CONNECTION *conn) {
  const TraceScope trace("xa_dtm_start_scan", TRACE_MISC);
  const int32_t ret = ct_cmd_alloc(conn->xc_conn, &conn->xc_recov_cmd);
  if (ret != CS_SUCCEED) {
    conn->xc_recov_cmd = nullptr;
    trace.error()("Unable to allocate command for recovery (%s)", xacmn_log_dump_csrc(ret));
    return trace.cs(ret);
  }
  trace.event()("recovery command %s %s", scan_procedure, scan_query_type);
  return trace.cs(send_scan(trace, conn));
}

int32_t xa_dtm_recov_scan(XA_CONNECTION *conn) {
  const TraceScope trace("xa_dtm_recov_scan", TRACE_MISC);
  int32_t type = 0;  // of the last result, which an error shows
  for (;;) {
    const int32_t code = dtm_results_paused(conn->xc_recov_cmd, &type);
    if (code == CS_END_RESULTS) {
      return trace.cs(code);
    }
    if (code == CS_FAIL) {
      trace.error()("ct_results retcode (%s) , result type %d", xacmn_log_dump_csrc(code), type);
      return trace.cs(code);
    }
    if (code != CS_SUCCEED) {
      trace.error()("ct_results (%s), result type %d", xacmn_log_dump_csrc(code), type);
      return trace.cs(code);
    }
    switch (type) {
      case CS_ROW_RESULT:
        if (tracing(XATR_EVENT)) {
          trace.event()("ct_results loop retcode (%s) , result type %d", xacmn_log_dump_csrc(code), type);
        }
        return trace.cs(CS_SUCCEED);
      case CS_PARAM_RESULT:
      case CS_STATUS_RESULT:
      case QLT_MSG_RESULT:
      case CS_CMD_DONE:
      case CS_CMD_SUCCEED:
        trace.event()("ct_results: result type %d\n No rows returned.", type);
        break;
      case CS_CMD_FAIL:
        trace.error()("CS_CMD_FAIL result type %d", type);
        break;
      default:
        trace.error()("Unexpected result type %d", type);
        return trace.cs(CS_FAIL);
    }
  }
}

int32_t xa_dtm_terminate_scan(XA_CONNECTION *conn) {
  const TraceScope trace("xa_dtm_terminate_scan", TRACE_MISC);
  ScanEnd end;
  if (conn->xc_recov_cmd == nullptr) {
    return trace.cs(scan_verdict(trace, end, CS_FAIL));  // it could not even be allocated
  }
  int32_t type = 0;
  int32_t code = dtm_results_paused(conn->xc_recov_cmd, &type);
  while (code == CS_SUCCEED) {
    handle_remaining_result(trace, conn->xc_recov_cmd, type, end);
    // A result that was read to its end has nothing left to cancel; the code says nothing more.
    static_cast<void>(cancel_current(conn->xc_recov_cmd));
    code = dtm_results_paused(conn->xc_recov_cmd, &type);
  }
  const int32_t cancelled = ct_cancel(nullptr, conn->xc_recov_cmd, CS_CANCEL_ALL);
  if (cancelled != CS_SUCCEED) {
    trace.error()("ct_cancel failed %s", xacmn_log_dump_csrc(cancelled));
  }
  const int32_t dropped = ct_cmd_drop(conn->xc_recov_cmd);
  conn->xc_recov_cmd = nullptr;
  if (dropped != CS_SUCCEED) {
    trace.error()("Unable to free command %s\n", xacmn_log_dump_csrc(dropped));
  }
  return trace.cs(scan_verdict(trace, end, code));
}

int32_t xa__dtm_recover(XA_CONNECTION *conn, XID *xids, int32_t count, int32_t flags) {
  const TraceScope trace("xa__dtm_recover", TRACE_ZDB);
  if ((flags & TMSTARTRSCAN) != 0) {
    const int32_t opened = open_scan(trace, conn);
    if (opened != CS_SUCCEED) {
      xa_dtm_terminate_scan(conn);
      return opened == CS_END_RESULTS ? trace.hex(0) : trace.xa(opened);
    }
  } else if (conn->xc_recov_cmd == nullptr) {
    trace.error()("No recovery command established");
    return trace.xa(XAER_PROTO);
  }
  int32_t code = CS_SUCCEED;
  const int32_t stored = fetch_batch(trace, conn, xids, count, &code);
  if (code != CS_SUCCEED && code != CS_END_DATA) {
    xa_dtm_terminate_scan(conn);
    return trace.xa(XAER_RMERR);
  }
  if ((flags & TMENDRSCAN) != 0 || stored < count) {
    // This spelling stays: operators and scripts search for it.
    trace.event()("TMENDSCAN or receive count %d not requested count %d", stored, count);
    const int32_t ended = xa_dtm_terminate_scan(conn);
    if (ended != CS_END_RESULTS) {
      trace.error()("scan termination failed (%s)", xacmn_log_dump_csrc(ended));
      return trace.xa(XAER_RMERR);
    }
  }
  return trace.hex(stored);
}
