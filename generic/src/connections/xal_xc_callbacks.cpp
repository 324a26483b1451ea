// Message handling while a connection is made: the client library's and the server's messages go into the library's
// log, and afterwards the connection gets the handling back that it inherited.
//
// Owns xc_ctdiag_clientcb and xc_ctdiag_servercb, by which the diagnostic handling's own callbacks are recognised; they
// are filled once, under the serialisation mutex. The callbacks run in the connecting thread and only write the log.
#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "quillet.h"
#include "record/xal_record.h"

namespace {

constexpr int32_t text_limit = 1024;

constinit void *xc_ctdiag_clientcb = nullptr;
constinit void *xc_ctdiag_servercb = nullptr;

int32_t get_callback(QLT_CONNECTION *connection, int32_t type, void **callback) {
  return ct_callback(nullptr, connection, CS_GET, type, callback);
}

int32_t set_callback(QLT_CONNECTION *connection, int32_t type, void *callback) {
  return ct_callback(nullptr, connection, CS_SET, type, callback);
}

int32_t init_diagnostics(QLT_CONNECTION *connection) {
  return ct_diag(connection, CS_INIT, QLT_UNUSED, QLT_UNUSED, nullptr);
}

// Takes the saved callback when it is the application's; null when there was none, or the diagnostic handling's own.
void *take_application_callback(void *&saved, const void *diagnostic) {
  void *callback = saved != diagnostic ? saved : nullptr;
  saved = nullptr;
  return callback;
}

// Diagnostic handling without stored messages. Neither code is acted on: the connection works without it as well.
void start_diagnostics(QLT_CONNECTION *connection, int32_t messages) {
  static_cast<void>(init_diagnostics(connection));
  static_cast<void>(ct_diag(connection, QLT_CLEAR, messages, QLT_UNUSED, nullptr));
}

// A message's text, or what stands for one that is empty or too long.
const char *text_or(const char *text, int32_t length, const char *empty, const char *too_long) {
  if (length == 0) {
    return empty;
  }
  return length >= text_limit ? too_long : text;
}

// A message's text as a zero-terminated one: what the client library passes need not end with a zero.
int32_t shown_length(int32_t length) {
  return length >= 0 && length < text_limit ? length : text_limit;
}

}  // namespace

int32_t xc_setup_ctdiagcb(QLT_CONNECTION *connection) {
  const TraceScope trace("xc_setup_ctdiagcb", TRACE_CONN);
  if (xc_ctdiag_clientcb != nullptr) {
    return trace.cs(CS_SUCCEED);
  }
  int32_t ret = init_diagnostics(connection);
  if (ret == CS_SUCCEED) {
    ret = get_callback(connection, QLT_CLIENTMSG_CB, &xc_ctdiag_clientcb);
  }
  if (ret == CS_SUCCEED) {
    ret = get_callback(connection, QLT_SERVERMSG_CB, &xc_ctdiag_servercb);
  }
  return trace.cs(ret);
}

int32_t xc_install_callbacks(XA_CONNECTION *conn) {
  const TraceScope trace("xc_install_callbacks", TRACE_CONN);
  int32_t ret = get_callback(conn->xc_conn, QLT_CLIENTMSG_CB, &conn->xc_climsg_cb);
  if (ret != CS_SUCCEED) {
    return trace.cs(ret);
  }
  ret = get_callback(conn->xc_conn, QLT_SERVERMSG_CB, &conn->xc_srvmsg_cb);
  if (ret != CS_SUCCEED) {
    return trace.cs(ret);
  }
  // Without the diagnostic handling's callbacks the saved ones are simply put back.
  static_cast<void>(xc_setup_ctdiagcb(conn->xc_conn));
  ret = set_callback(conn->xc_conn, QLT_CLIENTMSG_CB, reinterpret_cast<void *>(xaclientmsg_cb));
  if (ret == CS_SUCCEED) {
    ret = set_callback(conn->xc_conn, QLT_SERVERMSG_CB, reinterpret_cast<void *>(xaservermsg_cb));
  }
  return trace.cs(ret);
}

int32_t xc_deinstall_callbacks(XA_CONNECTION *conn) {
  const TraceScope trace("xc_deinstall_callbacks", TRACE_CONN);
  if (conn == nullptr) {
    return trace.cs(CS_SUCCEED);
  }
  void *client = take_application_callback(conn->xc_climsg_cb, xc_ctdiag_clientcb);
  void *server = take_application_callback(conn->xc_srvmsg_cb, xc_ctdiag_servercb);
  // Starting the diagnostic handling for one kind replaces both callbacks, so the application's are put back last.
  if (client == nullptr) {
    start_diagnostics(conn->xc_conn, QLT_CLIENT_MESSAGES);
  }
  if (server == nullptr) {
    start_diagnostics(conn->xc_conn, QLT_SERVER_MESSAGES);
  }
  int32_t ret = CS_SUCCEED;
  if (client != nullptr) {
    ret = set_callback(conn->xc_conn, QLT_CLIENTMSG_CB, client);
  }
  if (server != nullptr) {
    ret = set_callback(conn->xc_conn, QLT_SERVERMSG_CB, server);
  }
  return trace.cs(ret);
}

extern "C" {

int32_t xaclientmsg_cb(CS_CONTEXT *, QLT_CONNECTION *, QLT_CLIENT_MESSAGE *message) {
  const TraceScope trace("xaclientmsg_cb", TRACE_MISC);
  if (message->msg_severity == 0) {
    return trace.cs(CS_SUCCEED);
  }
  const char *text = text_or(message->msg_text, message->msg_textlen, "No Client message", "Client message too long");
  const auto number = static_cast<uint32_t>(message->msg_number);
  trace.message()("Nr=%d, Sev=%d, L=%d, O=%d; Msg: %.*s\n", static_cast<int32_t>(number & 0xFF),
                  static_cast<int32_t>(number >> 8 & 0xFF), static_cast<int32_t>(number >> 24),
                  static_cast<int32_t>(number >> 16 & 0xFF),
                  text == message->msg_text ? shown_length(message->msg_textlen) : text_limit, text);
  return trace.cs(CS_SUCCEED);
}

int32_t xaservermsg_cb(CS_CONTEXT *, QLT_CONNECTION *, QLT_SERVER_MESSAGE *message) {
  const TraceScope trace("xaservermsg_cb", TRACE_MISC);
  const char *text = text_or(message->msg_text, message->msg_textlen, "No Server message", "Server message too long");
  trace.message()("Server %.*s, Sev=%d, Nr=%d; Msg: %.*s\n", QLT_MAX_NAME, message->msg_server, message->msg_severity,
                  message->msg_number, text == message->msg_text ? shown_length(message->msg_textlen) : text_limit,
                  text);
  return trace.cs(CS_SUCCEED);
}

}  // extern "C"
