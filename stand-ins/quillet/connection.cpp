// Making, configuring, opening and closing connections.
#include <cstdlib>
#include <filesystem>

#include "arguments.h"
#include "handles.h"
#include "operation.h"

namespace {

using quillet::ConnectionLock;
using quillet::operation;
using quillet::Reason;
using quillet::releasing_operation;

constexpr int32_t server_name_max = 255;

// The connection status word: only what the client has noticed by now.
int32_t status_of(const qlt_connection &connection) {
  return (connection.session != nullptr ? QLT_CON_OPEN : 0) | (connection.broken ? QLT_CON_BROKEN : 0);
}

bool has_results_pending(const ConnectionLock &locked) {
  for (const auto &command : quillet::commands_of(locked.shared().get())) {
    if (command->phase == quillet::Phase::sent) {
      return true;
    }
  }
  return false;
}

// Ends the session, broken or not; its commands stay, with nothing on them.
void end_session(const ConnectionLock &locked) {
  for (const auto &command : quillet::commands_of(locked.shared().get())) {
    quillet::reset_command(*command);
  }
  locked->session.reset();
  locked->broken = false;
}

int32_t refuse_setting(const ConnectionLock &locked, const char *what, int32_t code) {
  return locked.fail(Reason::setting_refused,
                     std::string(what) + " " + std::to_string(code) + " or its value is not valid at this point");
}

void deliver_queued(const ConnectionLock &locked) {
  CS_CONTEXT &context = quillet::the_context();
  const std::lock_guard<std::mutex> lock(context.mutex);
  for (auto &message : context.queued) {
    locked->outbox.push_back(message);
  }
  context.queued.clear();
}

// The file that the context names by now, which may be later than the connection was made.
std::string file_of_context() {
  CS_CONTEXT &context = quillet::the_context();
  const std::lock_guard<std::mutex> lock(context.mutex);
  return context.settings.text(QLT_PROP_IFILE);
}

// The installation's own file; empty when it has none.
std::string file_of_installation() {
  const char *folder = std::getenv("TARVEX");
  if (folder == nullptr || *folder == '\0') {
    return {};
  }
  const std::filesystem::path file = std::filesystem::path(folder) / "interfaces";
  std::error_code ignored;  // a file that may not be looked at is there, and trying to read it will tell why not
  return std::filesystem::status(file, ignored).type() == std::filesystem::file_type::not_found ? "" : file.string();
}

// The first that is named: the connection's, the context's, the installation's; empty when there is none.
std::string interfaces_file(const ConnectionLock &locked) {
  std::string file = locked->settings.text(QLT_PROP_IFILE);
  if (file.empty()) {
    file = file_of_context();
  }
  return file.empty() ? file_of_installation() : file;
}

int32_t log_in(const ConnectionLock &locked, const std::string &server) {
  zdb::Login login;
  login.user = locked->settings.text(QLT_PROP_USER);
  login.password = locked->settings.text(QLT_PROP_PASSWORD);
  login.application = locked->settings.text(QLT_PROP_APPNAME);
  login.failover = locked->settings.integer(QLT_PROP_FAILOVER) == 1;
  zdb::Message refusal;
  auto session = zdb::open_session(server, interfaces_file(locked), login, refusal);
  if (session == nullptr) {
    locked->outbox.emplace_back(quillet::server_message(refusal, server));
    return locked.fail(Reason::login_failed, "ct_connect: cannot log in to server '" + server + "': " + refusal.text);
  }
  locked->session = std::move(session);
  locked->server = server;
  locked->broken = false;
  return CS_SUCCEED;
}

}  // namespace

int32_t ct_con_alloc(CS_CONTEXT *context, QLT_CONNECTION **connection) {
  return operation("ct_con_alloc", [&]() -> int32_t {
    if (connection == nullptr || !quillet::is_context(context)) {
      return CS_FAIL;
    }
    auto made = std::make_shared<qlt_connection>();
    const std::lock_guard<std::mutex> lock(context->mutex);
    if (!context->initialised) {
      return CS_FAIL;
    }
    made->context = context;
    made->settings.inherit(context->settings);
    made->callbacks = context->callbacks;
    *connection = quillet::register_connection(std::move(made));
    return CS_SUCCEED;
  });
}

int32_t ct_con_props(QLT_CONNECTION *connection, int32_t action, int32_t property, void *buffer, int32_t length,
                     int32_t *outlen) {
  return operation("ct_con_props", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked) {
      return CS_FAIL;
    }
    if (property == QLT_PROP_CON_STATUS && action == CS_GET) {
      return quillet::copy_integer(status_of(*locked.shared()), buffer, length, outlen);
    }
    const bool open = locked->session != nullptr;
    const int32_t code = locked->settings.access(action, property, buffer, length, outlen, open);
    return code == CS_SUCCEED ? code : refuse_setting(locked, "ct_con_props: property", property);
  });
}

int32_t ct_options(QLT_CONNECTION *connection, int32_t action, int32_t option, void *value, int32_t length,
                   int32_t *outlen) {
  return operation("ct_options", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked) {
      return CS_FAIL;
    }
    if (locked->session == nullptr || locked->broken) {
      return locked.fail(Reason::not_open, "ct_options: the server's options need an open connection");
    }
    const int32_t code = locked->options.access(action, option, value, length, outlen, true);
    return code == CS_SUCCEED ? code : refuse_setting(locked, "ct_options: option", option);
  });
}

int32_t ct_capability(QLT_CONNECTION *connection, int32_t action, int32_t type, int32_t capability, void *value) {
  return operation("ct_capability", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked) {
      return CS_FAIL;
    }
    const bool open = locked->session != nullptr;
    if (type != QLT_CAPABILITY_RESPONSE ||
        locked->capabilities.access(action, capability, value, QLT_UNUSED, nullptr, open) != CS_SUCCEED) {
      return refuse_setting(locked, "ct_capability: capability", capability);
    }
    return CS_SUCCEED;
  });
}

int32_t ct_connect(QLT_CONNECTION *connection, const char *server, int32_t length) {
  return operation("ct_connect", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked) {
      return CS_FAIL;
    }
    deliver_queued(locked);
    if (locked->session != nullptr) {
      return locked.fail(Reason::already_open, "ct_connect: the connection is open already; close it first");
    }
    const auto name = quillet::text_argument(server, length, server_name_max);
    if (!name) {
      return locked.fail(Reason::bad_argument, "ct_connect: no valid server name");
    }
    return log_in(locked, *name);
  });
}

int32_t ct_close(QLT_CONNECTION *connection, int32_t option) {
  return releasing_operation("ct_close", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked || (option != QLT_UNUSED && option != QLT_CLOSE_FORCED)) {
      return CS_FAIL;
    }
    if (option == QLT_UNUSED) {
      if (locked->session == nullptr) {
        return locked.fail(Reason::not_open, "ct_close: the connection is not open");
      }
      if (locked->broken || !locked->session->alive()) {
        locked->broken = true;
        return locked.fail(Reason::connection_dead, "ct_close: the session has broken off; close forced");
      }
      if (has_results_pending(locked)) {
        return locked.fail(Reason::results_pending, "ct_close: results are pending; cancel them first");
      }
    }
    end_session(locked);
    return CS_SUCCEED;
  });
}

// An open connection is broken off: a handle must not outlive its owner's wish to be rid of it.
int32_t ct_con_drop(QLT_CONNECTION *connection) {
  return releasing_operation("ct_con_drop", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked) {
      return CS_FAIL;
    }
    end_session(locked);
    quillet::forget_objects_of(connection);
    quillet::forget_connection(connection);
    return CS_SUCCEED;
  });
}

int32_t ct_cancel(QLT_CONNECTION *connection, QLT_COMMAND *command, int32_t type) {
  return operation("ct_cancel", [&]() -> int32_t {
    if ((connection == nullptr) == (command == nullptr) || (type != CS_CANCEL_ALL && type != QLT_CANCEL_CURRENT) ||
        (type == QLT_CANCEL_CURRENT && command == nullptr)) {
      return CS_FAIL;
    }
    if (command != nullptr) {
      const auto locked = quillet::lock_command(command);
      if (!locked) {
        return CS_FAIL;
      }
      if (type == CS_CANCEL_ALL) {
        quillet::reset_command(*locked);
      } else {
        quillet::pass_current_result(*locked);
      }
      return locked.connection().broken ? CS_FAIL : CS_SUCCEED;
    }
    const auto locked = quillet::lock_connection(connection);
    if (!locked) {
      return CS_FAIL;
    }
    for (const auto &each : quillet::commands_of(connection)) {
      quillet::reset_command(*each);
    }
    return locked->broken ? CS_FAIL : CS_SUCCEED;
  });
}
