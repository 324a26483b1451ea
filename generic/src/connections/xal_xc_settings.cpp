// Settings rows: the library's own list, and the one routine that applies a list's rows to the client-library context
// or to a connection. Called while connecting and by the context's set-up, under the serialisation mutex.
#include "config/xal_settings.h"
#include "connections/xal_conn.h"
#include "connections/xal_context.h"
#include "log/xal_log.h"
#include "quillet.h"
#include "record/xal_record.h"

namespace {

constexpr uint32_t FORCED_BEFORE = XS_FORCED | XS_PRECONN | XS_CON | XS_PROP;
constexpr uint32_t FORCED_CONTEXT = XS_FORCED | XS_PRECONN | XS_CTX | XS_PROP;
constexpr uint32_t FORCED_AFTER = XS_FORCED | XS_POSTCONN | XS_CON | XS_PROP;
constexpr uint32_t DEFAULT_BEFORE = XS_DEFAULT | XS_PRECONN | XS_CON | XS_CAP;
constexpr uint32_t DEFAULT_AFTER = XS_DEFAULT | XS_POSTCONN | XS_CON | XS_OPT;
static_assert(FORCED_BEFORE == 0x1281 && FORCED_CONTEXT == 0x1241 && FORCED_AFTER == 0x1481);
static_assert(DEFAULT_BEFORE == 0xA84 && DEFAULT_AFTER == 0xC82);

// How a row is applied.
struct SettingCall {
  const char *name;  // null: no call fits the row
  int32_t (*apply)(XA_CONNECTION *conn, const XA_SETTING &row, void *value);
};

int32_t set_con_prop(XA_CONNECTION *conn, const XA_SETTING &row, void *value) {
  return ct_con_props(conn->xc_conn, CS_SET, row.xs_code, value, row.xs_len, nullptr);
}

int32_t set_context_prop(XA_CONNECTION *, const XA_SETTING &row, void *value) {
  return ct_config(xl_context, CS_SET, row.xs_code, value, row.xs_len, nullptr);
}

int32_t set_date_info(XA_CONNECTION *, const XA_SETTING &row, void *value) {
  return cs_dt_info(xl_context, CS_SET, nullptr, row.xs_code, QLT_UNUSED, value, row.xs_len, nullptr);
}

int32_t set_option(XA_CONNECTION *conn, const XA_SETTING &row, void *value) {
  return ct_options(conn->xc_conn, CS_SET, row.xs_code, value, row.xs_len, nullptr);
}

int32_t set_capability(XA_CONNECTION *conn, const XA_SETTING &row, void *value) {
  return ct_capability(conn->xc_conn, CS_SET, QLT_CAPABILITY_RESPONSE, row.xs_code, value);
}

// The first rule that fits decides; connection rows need a connection.
SettingCall choose_call(const XA_CONNECTION *conn, uint32_t flags) {
  const bool on_connection = (flags & XS_CON) != 0 && conn != nullptr;
  if ((flags & XS_PROP) != 0 && on_connection) {
    return {"ct_con_props", set_con_prop};
  }
  if ((flags & XS_PROP) != 0 && (flags & XS_CTX) != 0) {
    return {"ct_config", set_context_prop};
  }
  if ((flags & XS_DTINFO) != 0) {
    return {"cs_dt_info", set_date_info};
  }
  if ((flags & XS_OPT) != 0 && on_connection) {
    return {"ct_options", set_option};
  }
  if ((flags & XS_CAP) != 0 && on_connection) {
    return {"ct_capability", set_capability};
  }
  return {nullptr, nullptr};
}

void trace_setting(const TraceScope &trace, const SettingCall &call, const XA_SETTING &row) {
  const LogLine line = trace.detail(XATR_MISC, XALOG_MESSAGE);
  if (row.xs_str != nullptr) {
    line("%s(CS_SET, %s) to %s\n", call.name, row.xs_label, row.xs_str);
  } else {
    line("%s(CS_SET, %s) to %d\n", call.name, row.xs_label, row.xs_int);
  }
}

// Applies one row; false when a fatal row failed.
bool apply_row(const TraceScope &trace, XA_CONNECTION *conn, const XA_SETTING &row) {
  const SettingCall call = choose_call(conn, row.xs_flags);
  if (call.name == nullptr) {
    return true;
  }
  int32_t integer = row.xs_int;
  void *value = row.xs_str != nullptr ? static_cast<void *>(row.xs_str) : &integer;
  const int32_t ret = call.apply(conn, row, value);
  trace_setting(trace, call, row);
  if (ret == CS_SUCCEED) {
    return true;
  }
  const bool fatal = (row.xs_flags & XS_FATAL) != 0;
  const LogLine failed = fatal ? trace.error() : trace.event();
  failed("%s(CS_SET, %s) failed!\n", call.name, row.xs_label);
  return !fatal;
}

}  // namespace

// clang-format off
const XA_SETTING dtm_set_list[] = {
    // code  integer  string    length      flags                     label
    {9110,   8111,    nullptr,  QLT_UNUSED, FORCED_BEFORE | XS_FATAL, "CS_NETIO"},
    {9121,   1,       nullptr,  QLT_UNUSED, FORCED_BEFORE,            "CS_EXTRA_INF"},
    {9123,   1,       nullptr,  QLT_UNUSED, FORCED_BEFORE,            "CS_ANSI_BINDS"},
    {9142,   0,       nullptr,  QLT_UNUSED, FORCED_CONTEXT,           "CS_ANSI_BINDS"},
    {9196,   1,       nullptr,  QLT_UNUSED, FORCED_BEFORE,            "CS_HAFAILOVER for connection"},
    {9196,   0,       nullptr,  QLT_UNUSED, FORCED_AFTER,             "CS_HAFAILOVER for operation"},
    {34,     1,       nullptr,  QLT_UNUSED, DEFAULT_BEFORE,           "CS_RES_NOSTRIPBLANKS"},
    {5034,   1,       nullptr,  QLT_UNUSED, DEFAULT_AFTER,            "CS_OPT_ANSINULL"},
    {5017,   0,       nullptr,  QLT_UNUSED, DEFAULT_AFTER,            "CS_OPT_ARITHABORT"},
    {5016,   1,       nullptr,  QLT_UNUSED, DEFAULT_AFTER,            "CS_OPT_TRUNCIGNORE"},
    {5015,   0,       nullptr,  QLT_UNUSED, DEFAULT_AFTER,            "CS_OPT_ARITHIGNOR"},
    {5008,   3,       nullptr,  QLT_UNUSED, DEFAULT_AFTER | XS_FATAL, "CS_OPT_ISOLATION"},
    {5025,   0,       nullptr,  QLT_UNUSED, DEFAULT_AFTER,            "CS_OPT_CHAINXACTS"},
    {5026,   1,       nullptr,  QLT_UNUSED, DEFAULT_AFTER | XS_FATAL, "CS_OPT_CURCLOSEONXACT"},
    {0,      0,       nullptr,  0,          XS_END,                   nullptr},
};
// clang-format on

int32_t xc_set_values(XA_CONNECTION *conn, const XA_SETTING *list, uint32_t mask) {
  const TraceScope trace("xc_set_values", TRACE_CONN);
  for (const XA_SETTING *row = list; row->xs_flags != XS_END; ++row) {
    if ((row->xs_flags & mask) == mask && !apply_row(trace, conn, *row)) {
      return trace.cs(CS_FAIL);
    }
  }
  return trace.cs(CS_SUCCEED);
}
