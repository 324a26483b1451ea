// Commands, results and messages of the client library, reading every value as text.
//
// Messages come through callbacks that every connection inherits from the context; each thread keeps its last one.
#include "database.h"

#include <algorithm>
#include <cstring>

namespace {

thread_local std::string last_message;

}  // namespace

extern "C" {

namespace {

int32_t hear_server(CS_CONTEXT *, QLT_CONNECTION *, QLT_SERVER_MESSAGE *message) {
  last_message = message->msg_text;
  return CS_SUCCEED;
}

int32_t hear_client(CS_CONTEXT *, QLT_CONNECTION *, QLT_CLIENT_MESSAGE *message) {
  if (last_message.empty()) {
    last_message = message->msg_text;
  }
  return CS_SUCCEED;
}

}  // namespace

}  // extern "C"

namespace {

// The context, with our callbacks on it.
CS_CONTEXT *context() {
  static CS_CONTEXT *const made = [] {
    CS_CONTEXT *context = nullptr;
    if (cs_ctx_global(QLT_VERSION, &context) != CS_SUCCEED || ct_init(context, QLT_VERSION) != CS_SUCCEED) {
      throw SqlError("the client library cannot be used");
    }
    ct_callback(context, nullptr, CS_SET, QLT_SERVERMSG_CB, reinterpret_cast<void *>(hear_server));
    ct_callback(context, nullptr, CS_SET, QLT_CLIENTMSG_CB, reinterpret_cast<void *>(hear_client));
    return context;
  }();
  return made;
}

}  // namespace

[[noreturn]] static void fail(const char *what) {
  throw SqlError(last_message.empty() ? what : last_message);
}

namespace {

class Command {
 public:
  explicit Command(QLT_CONNECTION *connection) {
    if (ct_cmd_alloc(connection, &command_) != CS_SUCCEED) {
      fail("no command can be made on the connection");
    }
  }
  ~Command() { ct_cmd_drop(command_); }
  Command(const Command &) = delete;
  Command &operator=(const Command &) = delete;

  SqlAnswer run(const std::string &sql);

 private:
  void read_rows(SqlAnswer &answer);

  QLT_COMMAND *command_ = nullptr;
};

struct BoundColumn {
  std::vector<char> buffer;
  int32_t length = 0;
  int32_t indicator = 0;
};

}  // namespace

SqlAnswer Command::run(const std::string &sql) {
  if (ct_command(command_, QLT_LANG_COMMAND, sql.data(), static_cast<int32_t>(sql.size()), QLT_UNUSED) != CS_SUCCEED ||
      ct_send(command_) != CS_SUCCEED) {
    fail("the command cannot be sent");
  }
  SqlAnswer answer;
  bool failed = false;
  int32_t type = 0;
  int32_t code = CS_SUCCEED;
  while ((code = ct_results(command_, &type)) == CS_SUCCEED) {
    if (type == CS_ROW_RESULT) {
      read_rows(answer);
    } else if (type == CS_CMD_DONE) {
      ct_res_info(command_, QLT_ROW_COUNT, &answer.count, QLT_UNUSED, nullptr);
    } else if (type == CS_CMD_FAIL) {
      failed = true;
    }
  }
  if (failed || code != CS_END_RESULTS) {
    fail("the server did not do it");
  }
  return answer;
}

void Command::read_rows(SqlAnswer &answer) {
  constexpr int32_t least_buffer = 64;
  int32_t count = 0;
  ct_res_info(command_, QLT_NUM_COLUMNS, &count, QLT_UNUSED, nullptr);
  std::vector<BoundColumn> columns(static_cast<size_t>(count));
  int32_t number = 0;
  for (BoundColumn &column : columns) {
    QLT_FORMAT format{};
    ct_describe(command_, ++number, &format);
    format.fmt_datatype = QLT_CHAR_TYPE;
    format.fmt_maxlen = std::max(2 * format.fmt_maxlen, least_buffer);
    column.buffer.resize(static_cast<size_t>(format.fmt_maxlen));
    ct_bind(command_, number, &format, column.buffer.data(), &column.length, &column.indicator);
  }
  int32_t read = 0;
  while (ct_fetch(command_, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &read) == CS_SUCCEED) {
    std::vector<std::string> row;
    for (const BoundColumn &column : columns) {
      const bool is_null = column.indicator == QLT_IND_NULL;
      row.emplace_back(column.buffer.data(), is_null ? 0 : static_cast<size_t>(column.length));
    }
    answer.rows.push_back(std::move(row));
  }
}

void hear_messages() {
  context();
}

SqlAnswer run_sql(QLT_CONNECTION *connection, const std::string &sql) {
  last_message.clear();
  return Command(connection).run(sql);
}

QLT_CONNECTION *published_connection(const std::string &lrm) {
  QLT_OBJECT_NAME name{};
  name.obj_type = QLT_OBJ_CONNECTION;
  name.lnlen = static_cast<int32_t>(std::min(lrm.size(), sizeof name.last_name));
  std::memcpy(name.last_name, lrm.data(), static_cast<size_t>(name.lnlen));
  name.fnlen = QLT_UNUSED;
  name.scopelen = QLT_UNUSED;
  name.threadlen = QLT_UNUSED;
  QLT_OBJECT_DATA data{0, nullptr, nullptr, nullptr, QLT_UNUSED};
  return cs_objects(context(), CS_GET, &name, &data) == CS_SUCCEED && data.actuallyexists == 1 ? data.connection
                                                                                               : nullptr;
}

OwnConnection::OwnConnection(const std::string &server, const std::string &user, const std::string &password) {
  last_message.clear();
  if (ct_con_alloc(context(), &connection_) != CS_SUCCEED) {
    fail("no connection can be made");
  }
  const auto set = [&](int32_t property, const std::string &value) {
    std::string copy = value;
    ct_con_props(connection_, CS_SET, property, copy.data(), static_cast<int32_t>(copy.size()), nullptr);
  };
  set(QLT_PROP_USER, user);
  set(QLT_PROP_PASSWORD, password);
  if (ct_connect(connection_, server.data(), static_cast<int32_t>(server.size())) != CS_SUCCEED) {
    ct_con_drop(connection_);
    fail("cannot connect");
  }
}

OwnConnection::~OwnConnection() {
  ct_con_drop(connection_);
}
