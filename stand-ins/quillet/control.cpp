// What tests set and count on the library, and the announcing of cursors and statements as application
// code would do it. The hook and the failure counter are in operation.cpp, the views on mutexes in threads.cpp.
#include "arguments.h"
#include "handles.h"
#include "objects.h"
#include "operation.h"

namespace {

using quillet::ConnectionLock;

// Data of a cursor entry that belongs to a statement; the first bytes are the client library's own.
struct StatementLink {
  char reserved[16];
  char name[QLT_MAX_NAME];
  int32_t length;
};
static_assert(sizeof(StatementLink) == 152);

void copy_name(char (&target)[QLT_MAX_NAME], const std::string &name, int32_t &length) {
  std::memcpy(target, name.data(), name.size());
  length = static_cast<int32_t>(name.size());
}

QLT_OBJECT_NAME object_name(int32_t type, const std::string &last, const std::string &first, const void *thread,
                            int32_t threadlen) {
  QLT_OBJECT_NAME name{};
  name.obj_type = type;
  copy_name(name.last_name, last, name.lnlen);
  copy_name(name.first_name, first, name.fnlen);
  if (first.empty()) {
    name.fnlen = QLT_UNUSED;
  }
  name.scopelen = QLT_UNUSED;
  name.thread = const_cast<void *>(thread);
  name.threadlen = threadlen;
  return name;
}

// A command with the object on it, which the server has been told of; null when the server refused.
QLT_COMMAND *make_object(const ConnectionLock &locked, zdb::RequestKind kind, const std::string &name) {
  if (locked->session == nullptr || locked->session->execute({kind, name, {}}).broken_off) {
    return nullptr;
  }
  auto command = std::make_shared<qlt_command>();
  command->connection = locked.shared();
  if (kind == zdb::RequestKind::cursor_open) {
    command->cursor = name;
    command->cursor_status = QLT_CURSOR_OPEN;
  }
  return quillet::register_command(std::move(command));
}

struct Announcement {
  const ConnectionLock &connection;
  std::string lrm;
  const void *thread;
  int32_t threadlen;

  int32_t enter(int32_t type, const std::string &last, const std::string &first, QLT_COMMAND *command,
                StatementLink *link) const {
    const QLT_OBJECT_NAME name = object_name(type, last, first, thread, threadlen);
    const auto size = static_cast<int32_t>(sizeof *link);
    QLT_OBJECT_DATA data{1, connection.shared().get(), command, link, link == nullptr ? QLT_UNUSED : size};
    return quillet::access_objects(CS_SET, name, &data);
  }

  bool is_entered(int32_t type, const std::string &first) const {
    const QLT_OBJECT_NAME name = object_name(type, lrm, first, thread, threadlen);
    QLT_OBJECT_DATA data{0, nullptr, nullptr, nullptr, QLT_UNUSED};
    return quillet::access_objects(CS_GET, name, &data) == CS_SUCCEED && data.actuallyexists == 1;
  }

  int32_t announce_statement(const std::string &statement) const {
    if (is_entered(QLT_OBJ_STATEMENT, statement)) {
      return CS_SUCCEED;
    }
    QLT_COMMAND *command = make_object(connection, zdb::RequestKind::statement_prepare, statement);
    return command == nullptr ? CS_FAIL : enter(QLT_OBJ_STATEMENT, lrm, statement, command, nullptr);
  }

  int32_t announce_cursor(const std::string &cursor, const std::string &statement) const {
    if (is_entered(QLT_OBJ_CURSOR, cursor)) {
      return CS_FAIL;
    }
    QLT_COMMAND *command = make_object(connection, zdb::RequestKind::cursor_open, cursor);
    if (command == nullptr) {
      return CS_FAIL;
    }
    if (enter(QLT_OBJ_MAPPING, lrm, {}, nullptr, nullptr) != CS_SUCCEED) {
      return CS_FAIL;
    }
    if (statement.empty()) {
      return enter(QLT_OBJ_CURSOR, lrm, cursor, command, nullptr);
    }
    StatementLink link{};
    copy_name(link.name, statement, link.length);
    const int32_t mapped = enter(QLT_OBJ_MAPPING, statement, cursor, nullptr, nullptr);
    return mapped == CS_SUCCEED ? enter(QLT_OBJ_CURSOR, lrm, cursor, command, &link) : mapped;
  }
};

std::optional<std::string> name_argument(const char *name) {
  return quillet::text_argument(name, name == nullptr ? 0 : QLT_NULLTERM, QLT_MAX_NAME);
}

}  // namespace

void qlt_set_thread_support(int32_t on) {
  CS_CONTEXT &context = quillet::the_context();
  const std::lock_guard<std::mutex> lock(context.mutex);
  context.threads = on != 0;
}

int32_t qlt_live_connections(void) {
  return quillet::live_connections();
}

int32_t qlt_live_commands(void) {
  return quillet::live_commands();
}

int32_t qlt_live_objects(void) {
  return quillet::live_objects();
}

void qlt_set_context_callbacks(QLT_CLIENT_MESSAGE_CB client, QLT_SERVER_MESSAGE_CB server) {
  CS_CONTEXT &context = quillet::the_context();
  const std::lock_guard<std::mutex> lock(context.mutex);
  context.callbacks = {client, server};
}

void qlt_queue_client_message(const QLT_CLIENT_MESSAGE *message) {
  quillet::guarded([&] {
    CS_CONTEXT &context = quillet::the_context();
    const std::lock_guard<std::mutex> lock(context.mutex);
    context.queued.emplace_back(*message);
    return CS_SUCCEED;
  });
}

void qlt_queue_server_message(const QLT_SERVER_MESSAGE *message) {
  quillet::guarded([&] {
    CS_CONTEXT &context = quillet::the_context();
    const std::lock_guard<std::mutex> lock(context.mutex);
    context.queued.emplace_back(*message);
    return CS_SUCCEED;
  });
}

int32_t qlt_announce_cursor(QLT_CONNECTION *connection, const char *lrm, const char *cursor, const char *statement,
                            const void *thread, int32_t threadlen) {
  return quillet::guarded([&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    const auto lrm_name = name_argument(lrm);
    const auto cursor_name = name_argument(cursor);
    const auto statement_name = name_argument(statement);
    if (!locked || !lrm_name || !cursor_name || !statement_name || (cursor_name->empty() && statement_name->empty())) {
      return CS_FAIL;
    }
    const Announcement announcement{locked, *lrm_name, thread, threadlen};
    int32_t code = CS_SUCCEED;
    if (!statement_name->empty()) {
      code = announcement.announce_statement(*statement_name);
    }
    if (code == CS_SUCCEED && !cursor_name->empty()) {
      code = announcement.announce_cursor(*cursor_name, *statement_name);
    }
    return code;
  });
}
