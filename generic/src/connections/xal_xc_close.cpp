// Closing a server connection, in the order that its status calls for. It never fails: every problem is logged and the
// record ends in XCS_CLOSED whatever happens.
//
// Entered with the serialisation mutex and the held record. The mutex is given up for the client library's work; no
// other thread can use the record meanwhile, since it is held.
#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "record/xal_record.h"

namespace {

constexpr int32_t status_bits = QLT_CON_OPEN | QLT_CON_BROKEN;

// The connection's status word, as far as the client library could report it.
struct Status {
  bool known;
  int32_t bits;
};

Status read_status(const TraceScope &trace, QLT_CONNECTION *connection) {
  int32_t status = 0;
  const int32_t ret = ct_con_props(connection, CS_GET, QLT_PROP_CON_STATUS, &status, QLT_UNUSED, nullptr);
  if (ret != CS_SUCCEED) {
    trace.error()("unable to get connection status, %x", static_cast<uint32_t>(ret));
    return {false, 0};
  }
  return {true, status & status_bits};
}

// Cancels what a working connection still has pending; the status may be another one afterwards.
Status cancel_pending(const TraceScope &trace, QLT_CONNECTION *connection) {
  const int32_t ret = ct_cancel(connection, nullptr, CS_CANCEL_ALL);
  if (ret != CS_SUCCEED) {
    trace.event()("unable to cancel results (CS_CANCEL_ALL), %x", static_cast<uint32_t>(ret));
  }
  return read_status(trace, connection);
}

void drop_commands(const TraceScope &trace, XA_CONNECTION *conn) {
  if (conn->xc_recov_cmd != nullptr) {
    const int32_t ret = ct_cmd_drop(conn->xc_recov_cmd);
    conn->xc_recov_cmd = nullptr;
    if (ret != CS_SUCCEED) {
      trace.event()("unable to drop recovery command, %x", static_cast<uint32_t>(ret));
    }
  }
  if (conn->xc_cmd == nullptr) {
    trace.error()("xc_cmd NULL, no command to drop");
    return;
  }
  const int32_t ret = ct_cmd_drop(conn->xc_cmd);
  conn->xc_cmd = nullptr;
  if (ret != CS_SUCCEED) {
    trace.event()("unable to drop command, %x", static_cast<uint32_t>(ret));
  }
}

void close_forced(const TraceScope &trace, QLT_CONNECTION *connection) {
  const int32_t ret = ct_close(connection, QLT_CLOSE_FORCED);
  if (ret != CS_SUCCEED) {
    trace.error()("unable to close (FORCED), %x", static_cast<uint32_t>(ret));
  }
}

void close_by_status(const TraceScope &trace, QLT_CONNECTION *connection, int32_t bits) {
  if (bits == QLT_CON_OPEN) {
    const int32_t ret = ct_close(connection, QLT_UNUSED);
    if (ret != CS_SUCCEED) {
      trace.event()("close failure (NORMAL), %x", static_cast<uint32_t>(ret));
      close_forced(trace, connection);
    }
  } else if (bits == (QLT_CON_OPEN | QLT_CON_BROKEN)) {
    close_forced(trace, connection);
  }
}

// The client library's work. Without a readable status nothing is cancelled, dropped or closed but the connection
// handle itself.
void shut_down(const TraceScope &trace, XA_CONNECTION *conn) {
  Status status = read_status(trace, conn->xc_conn);
  if (status.known && status.bits == QLT_CON_OPEN) {
    status = cancel_pending(trace, conn->xc_conn);
  }
  if (status.known) {
    drop_commands(trace, conn);
  }
  active_personality().xa_conn_free(conn);
  if (status.known) {
    close_by_status(trace, conn->xc_conn, status.bits);
  }
  const int32_t dropped = ct_con_drop(conn->xc_conn);
  if (dropped != CS_SUCCEED) {
    trace.error()("unable to drop connection, %x", static_cast<uint32_t>(dropped));
  }
}

}  // namespace

int32_t xc_close(XA_CONNECTION *conn) {
  const TraceScope trace("xc_close", TRACE_CONN);
  if (conn->xc_conn == nullptr) {
    trace.event()("connection already closed");
    return trace.xa(XA_OK);
  }
  // A withdrawal that fails is logged by the operation; the connection goes all the same.
  static_cast<void>(active_personality().cs_obj_clear(conn));
  {
    const SerialisePause pause;  // the record is held and in XCS_CLOSING: nobody else touches it
    shut_down(trace, conn);
  }
  conn->xc_conn = nullptr;
  conn->xc_cmd = nullptr;
  conn->xc_recov_cmd = nullptr;
  conn->xc_state = XCS_CLOSED;
  xc_release(conn);
  return trace.xa(XA_OK);
}
