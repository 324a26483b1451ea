// Making connections: the record, its settings, the login, the personality's share and the readiness check, and the
// re-making of a lost connection under a record that stays in its list.
//
// Runs under the serialisation mutex, the login too. Only the readiness check, while it waits for the server, and the
// closing of a connection that is replaced give it up. Meanwhile lrm_opens keeps the LRM, and a hold keeps a record
// that is being reopened.
#include "common_routines.h"
#include "config/xal_config.h"
#include "config/xal_settings.h"
#include "connections/xal_conn.h"
#include "connections/xal_context.h"
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

namespace {

constexpr int32_t property_rows = 9;
constexpr int32_t capability_rows = 53;
constexpr int32_t option_rows = 9;
constexpr int32_t abort_wait = 5000;

// The settings that the configuration gives for one connect; the scope frees their texts.
class ConfiguredSettings {
 public:
  ConfiguredSettings() {
    prepare(properties);
    prepare(capabilities);
    prepare(options);
  }
  ~ConfiguredSettings() {
    xacmn_clean_val(properties, 0);
    xacmn_clean_val(capabilities, 0);
    xacmn_clean_val(options, 0);
  }
  ConfiguredSettings(const ConfiguredSettings &) = delete;
  ConfiguredSettings &operator=(const ConfiguredSettings &) = delete;

  XA_SETTING properties[property_rows + 1];
  XA_SETTING capabilities[capability_rows + 1];
  XA_SETTING options[option_rows + 1];

 private:
  template <size_t Rows>
  static void prepare(XA_SETTING (&list)[Rows]) {
    for (XA_SETTING &row : list) {
      row.xs_flags = 0;
    }
    list[Rows - 1].xs_flags = XS_END;
    xacmn_clean_val(list, 1);
  }
};

bool apply_before_login(XA_CONNECTION *conn, const ConfiguredSettings &configured) {
  return xc_set_values(conn, dtm_set_list, XS_DEFAULT | XS_PRECONN) == 1 &&
         xc_set_values(conn, configured.properties, XS_USER | XS_PRECONN) == 1 &&
         xc_set_values(conn, configured.capabilities, XS_USER | XS_PRECONN) == 1 &&
         xc_set_values(conn, dtm_set_list, XS_FORCED | XS_PRECONN) == 1;
}

bool apply_after_login(XA_CONNECTION *conn, const ConfiguredSettings &configured) {
  return xc_set_values(conn, dtm_set_list, XS_DEFAULT | XS_POSTCONN) == 1 &&
         xc_set_values(conn, configured.options, XS_USER | XS_POSTCONN) == 1 &&
         xc_set_values(conn, dtm_set_list, XS_FORCED | XS_POSTCONN) == 1;
}

// How far a connect got, which says what a failure has to take back.
enum class Progress { allocated, logged_in, initialised, commanded };

// Takes a failed connect back. The codes are not acted on: the connect has failed, and its handles go in any case.
void take_back(XA_CONNECTION *conn, Progress progress) {
  if (progress >= Progress::initialised) {
    active_personality().xa_conn_free(conn);
  }
  if (progress >= Progress::logged_in) {
    static_cast<void>(ct_close(conn->xc_conn, QLT_CLOSE_FORCED));
  }
  if (progress >= Progress::commanded) {
    static_cast<void>(ct_cmd_drop(conn->xc_cmd));
  }
  static_cast<void>(ct_con_drop(conn->xc_conn));
  conn->xc_cmd = nullptr;
  conn->xc_conn = nullptr;
}

int32_t give_up(XA_CONNECTION *conn, Progress progress, int32_t code) {
  take_back(conn, progress);
  return code;
}

// From the configuration to the allocated command; XA_OK or XAER_RMERR, with everything taken back.
int32_t configure_and_log_in(const TraceScope &trace, XA_CONNECTION *conn) {
  ConfiguredSettings configured;
  const XA_LRMINFO *lrm = conn->xc_lrm;
  if (xal_lrm_lookup(lrm->lrm_name, nullptr, configured.capabilities, configured.properties, configured.options) != 1) {
    return give_up(conn, Progress::allocated, XAER_RMERR);
  }
  if (!apply_before_login(conn, configured)) {
    return give_up(conn, Progress::allocated, XAER_RMERR);
  }
  // Without the callbacks only the log misses the messages of the set-up.
  static_cast<void>(xc_install_callbacks(conn));
  const int32_t logged_in = xa__dtm_connect(conn);
  if (logged_in != CS_SUCCEED) {
    trace.error()("Connect(%s) failed, rc=%i", lrm->lrm_server, logged_in);
    return give_up(conn, Progress::allocated, XAER_RMERR);
  }
  if (active_personality().xa_conn_init(conn) != 1) {
    return give_up(conn, Progress::logged_in, XAER_RMERR);
  }
  int32_t wait = abort_wait;
  if (ct_con_props(conn->xc_conn, CS_SET, QLT_PROP_ABORT_WAIT, &wait, QLT_UNUSED, nullptr) != CS_SUCCEED) {
    trace.error()("unable to condition for abort, CT Library hangs may occur");
  }
  if (!apply_after_login(conn, configured)) {
    return give_up(conn, Progress::initialised, XAER_RMERR);
  }
  if (ct_cmd_alloc(conn->xc_conn, &conn->xc_cmd) != CS_SUCCEED) {
    conn->xc_cmd = nullptr;
    trace.error()("ct_cmd_alloc() failed!");
    return give_up(conn, Progress::initialised, XAER_RMERR);
  }
  return XA_OK;
}

XA_CONNECTION *new_record(XA_LRMINFO *lrm) {
  auto *conn = static_cast<XA_CONNECTION *>(comn_malloc(sizeof(XA_CONNECTION)));
  if (conn != nullptr) {
    *conn = XA_CONNECTION{};
    conn->xc_lrm = lrm;
    conn->xc_xid.formatID = -1;
    conn->xc_state = XCS_OPENED;
  }
  return conn;
}

// The newest connection is the first that a search meets.
void link_record(XA_LRMINFO *lrm, XA_CONNECTION *conn) {
  conn->xc_next = lrm->lrm_conns.xc_next;
  conn->xc_prev = &lrm->lrm_conns;
  conn->xc_next->xc_prev = conn;
  conn->xc_prev->xc_next = conn;
}

}  // namespace

int32_t xc_connect(XA_CONNECTION *conn) {
  const TraceScope trace("xc_connect", TRACE_CONN);
  QLT_CONNECTION *allocated = nullptr;
  if (ct_con_alloc(xl_context, &allocated) != CS_SUCCEED) {
    trace.error()("ct_con_alloc() failed!");
    return trace.xa(XAER_RMERR);
  }
  conn->xc_conn = allocated;
  const int32_t ret = configure_and_log_in(trace, conn);
  if (ret != XA_OK) {
    return trace.xa(ret);
  }
  if (xa__dtm_check(conn) != XA_OK) {
    return trace.xa(give_up(conn, Progress::commanded, XAER_INVAL));
  }
  // The connection works whether or not its former message handling is back.
  static_cast<void>(xc_deinstall_callbacks(conn));
  return trace.xa(XA_OK);
}

int32_t xc_open(XA_LRMINFO *lrm, XA_CONNECTION **out) {
  const TraceScope trace("xc_open", TRACE_CONN);
  *out = nullptr;
  XA_CONNECTION *conn = new_record(lrm);
  if (conn == nullptr) {
    trace.error()("malloc() failed for the XA_CONNECTION!");
    return trace.xa(XAER_RMERR);
  }
  ++lrm->lrm_opens;
  const int32_t ret = xc_connect(conn);
  --lrm->lrm_opens;
  if (ret != XA_OK) {
    comn_free(conn);
    return trace.xa(ret);
  }
  conn->xc_mutex = _trvxadummy_create_mutex();
  _trvxadummy_take_mutex(conn->xc_mutex);
  xc_hold(conn);
  link_record(lrm, conn);
  _trvxadummy_release_mutex(lrm->lrm_mutex);
  *out = conn;
  return trace.xa(XA_OK);
}

int32_t xc_reopen_conn(int32_t, XA_CONNECTION *conn, XA_CONNECTION **out) {
  const TraceScope trace("xc_reopen_conn", TRACE_CONN);
  conn->xc_state = XCS_CLOSING;
  *out = nullptr;
  // A withdrawal that fails is logged by the operation; the connection goes all the same.
  static_cast<void>(active_personality().cs_obj_clear(conn));
  if (conn->xc_conn != nullptr) {
    xc_hold(conn);  // the closing gives the caller's hold back; this one keeps the record meanwhile
    xc_close(conn);
  }
  const int32_t ret = xc_connect(conn);
  if (ret != XA_OK) {
    xc_release(conn);
    return trace.xa(ret);
  }
  _trvxadummy_take_mutex(conn->xc_mutex);
  conn->xc_state = XCS_INUSE;
  *out = conn;
  return trace.xa(XA_OK);
}
