// Commands up to their sending: requests and their parameters, cursor and statement requests.
//
// A command that has not been sent is replaced by the next one; while results are pending nothing new may begin.
// Commands of one connection are independent of each other, since each reply is held here as a whole.
#include "arguments.h"
#include "conversion.h"
#include "handles.h"
#include "operation.h"

namespace {

using quillet::CommandLock;
using quillet::operation;
using quillet::Phase;
using quillet::Reason;
using quillet::releasing_operation;

constexpr int32_t text_max = 1 << 20;

// Begins a request on the command, or refuses while results are pending.
int32_t initiate(const CommandLock &locked, const char *caller, zdb::RequestKind kind, std::string text) {
  if (locked->phase == Phase::sent) {
    return locked.fail(Reason::results_pending,
                       std::string(caller) + ": results are pending; read them to the end or cancel them first");
  }
  quillet::reset_command(*locked);
  locked->request.kind = kind;
  locked->request.text = std::move(text);
  locked->phase = Phase::initiated;
  return CS_SUCCEED;
}

// Null, or the value at data; none when that does not fit its format.
std::optional<zdb::Value> parameter_value(const QLT_FORMAT &format, const void *data, int32_t length,
                                          int32_t indicator) {
  return indicator == QLT_IND_NULL ? zdb::Value() : quillet::read_value(format, data, length);
}

// Sends the initiated request and keeps the reply; the session is open.
int32_t send_request(const CommandLock &locked) {
  qlt_connection &connection = locked.connection();
  if (connection.broken || !connection.session->alive()) {
    connection.broken = true;
    quillet::reset_command(*locked);
    return locked.fail(Reason::connection_dead, "ct_send: the session has broken off; close the connection forced");
  }
  zdb::Reply reply = connection.session->execute(locked->request);
  locked->reply = {};
  locked->reply.cut_off = reply.broken_off;
  locked->reply.messages = std::move(reply.messages);
  for (zdb::Result &result : reply.results) {
    locked->reply.results.push_back(std::move(result));
  }
  locked->reply.fetch_codes.assign(reply.fetch_codes.begin(), reply.fetch_codes.end());
  locked->phase = Phase::sent;
  const bool failed = !reply.results.empty() && locked->reply.results.front().kind == zdb::ResultKind::failed;
  const auto kind = locked->request.kind;
  if ((kind == zdb::RequestKind::cursor_close || kind == zdb::RequestKind::cursor_drop) && !failed) {
    locked->cursor_status = locked->cursor_status_then;
  }
  return CS_SUCCEED;
}

}  // namespace

int32_t ct_cmd_alloc(QLT_CONNECTION *connection, QLT_COMMAND **command) {
  return operation("ct_cmd_alloc", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked || command == nullptr) {
      return CS_FAIL;
    }
    auto made = std::make_shared<qlt_command>();
    made->connection = locked.shared();
    *command = quillet::register_command(std::move(made));
    return CS_SUCCEED;
  });
}

// Whatever is pending on the command goes with it.
int32_t ct_cmd_drop(QLT_COMMAND *command) {
  return releasing_operation("ct_cmd_drop",
                             [&]() -> int32_t { return quillet::forget_command(command) ? CS_SUCCEED : CS_FAIL; });
}

// The cursor's name counts its terminating zero byte.
int32_t ct_cmd_props(QLT_COMMAND *command, int32_t action, int32_t property, void *buffer, int32_t length,
                     int32_t *outlen) {
  return operation("ct_cmd_props", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    if (action == CS_GET && property == CS_CUR_STATUS) {
      return quillet::copy_integer(locked->cursor_status, buffer, length, outlen);
    }
    if (action != CS_GET || property != CS_CUR_NAME) {
      return locked.fail(Reason::setting_refused, "ct_cmd_props: only a cursor's name and status can be read");
    }
    if (locked->cursor.empty()) {
      return locked.fail(Reason::no_cursor, "ct_cmd_props: there is no cursor on this command");
    }
    return quillet::copy_text(locked->cursor + '\0', buffer, length, outlen);
  });
}

int32_t ct_command(QLT_COMMAND *command, int32_t type, const char *text, int32_t length, int32_t option) {
  return operation("ct_command", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    auto request = quillet::text_argument(text, length, text_max);
    const bool is_procedure = type == QLT_RPC_COMMAND;
    if (!request || request->empty() || (!is_procedure && type != QLT_LANG_COMMAND) ||
        (option != QLT_UNUSED && !(is_procedure && option == QLT_NO_RECOMPILE))) {
      return locked.fail(Reason::bad_argument, "ct_command: no valid type, text or option");
    }
    return initiate(locked, "ct_command", is_procedure ? zdb::RequestKind::procedure : zdb::RequestKind::language,
                    std::move(*request));
  });
}

int32_t ct_param(QLT_COMMAND *command, const QLT_FORMAT *format, const void *data, int32_t length, int32_t indicator) {
  return operation("ct_param", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    if (locked->phase != Phase::initiated || locked->request.kind != zdb::RequestKind::procedure) {
      return locked.fail(Reason::nothing_to_send, "ct_param: no procedure call has been initiated");
    }
    if (format == nullptr || format->fmt_status != QLT_INPUT_PARAM) {
      return locked.fail(Reason::bad_argument, "ct_param: no format, or not one of an input parameter");
    }
    auto name = quillet::text_argument(format->fmt_name, format->fmt_namelen, QLT_MAX_NAME);
    auto value = parameter_value(*format, data, length, indicator);
    if (!name || !value) {
      return locked.fail(Reason::bad_argument, "ct_param: no valid name or value");
    }
    locked->request.parameters.push_back({std::move(*name), std::move(*value)});
    return CS_SUCCEED;
  });
}

int32_t ct_cursor(QLT_COMMAND *command, int32_t type, const char *name, int32_t namelen, const char *text,
                  int32_t textlen, int32_t option) {
  return operation("ct_cursor", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    const bool closes = type == CS_CURSOR_CLOSE && (option == CS_DEALLOC || option == QLT_UNUSED);
    const bool drops = type == CS_CURSOR_DEALLOC && option == QLT_UNUSED;
    if ((!closes && !drops) || name != nullptr || namelen != QLT_UNUSED || text != nullptr || textlen != QLT_UNUSED) {
      return locked.fail(Reason::bad_argument, "ct_cursor: only closing and deallocating are known, without texts");
    }
    if (locked->cursor_status != (closes ? QLT_CURSOR_OPEN : QLT_CURSOR_CLOSED)) {
      return locked.fail(Reason::no_cursor, "ct_cursor: there is no cursor in that state on this command");
    }
    const bool stays = closes && option != CS_DEALLOC;
    const int32_t code = initiate(
        locked, "ct_cursor", stays ? zdb::RequestKind::cursor_close : zdb::RequestKind::cursor_drop, locked->cursor);
    if (code == CS_SUCCEED) {
      locked->cursor_status_then = stays ? QLT_CURSOR_CLOSED : 0;
    }
    return code;
  });
}

int32_t ct_dynamic(QLT_COMMAND *command, int32_t type, const char *name, int32_t namelen, const char *text,
                   int32_t textlen) {
  return operation("ct_dynamic", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    auto statement = quillet::text_argument(name, namelen, QLT_MAX_NAME);
    if (type != CS_DEALLOC || !statement || statement->empty() || text != nullptr || textlen != QLT_UNUSED) {
      return locked.fail(Reason::bad_argument, "ct_dynamic: only deallocating a named statement is known");
    }
    return initiate(locked, "ct_dynamic", zdb::RequestKind::statement_drop, std::move(*statement));
  });
}

int32_t ct_send(QLT_COMMAND *command) {
  return operation("ct_send", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    if (locked->phase != Phase::initiated) {
      return locked.fail(Reason::nothing_to_send, "ct_send: no command has been initiated");
    }
    if (locked.connection().session == nullptr) {
      return locked.fail(Reason::not_open, "ct_send: the connection is not open");
    }
    return send_request(locked);
  });
}
