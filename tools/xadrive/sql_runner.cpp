// Runs SQL as application code does: looks the published connection up in the client library's object
// registry, sends the command on a command handle of its own and reads all results.
//
// Messages come through callbacks that every connection inherits from the context. They are called on the thread that
// makes the call they belong to, so each thread notes where its run wants them.
#include "sql_runner.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

// A column's buffer holds its longest value, within bounds: numbers become longer as texts, and no one reads more.
constexpr int32_t least_buffer = 64;
constexpr int32_t most_buffer = 1 << 20;

thread_local std::vector<std::string> *heard = nullptr;  // the lines of this thread's run; null between runs

struct BoundColumn {
  std::vector<char> buffer;
  int32_t length = 0;
  int32_t indicator = 0;
};

// A command handle of this run's own, and what it has read by now.
class SqlCommand {
 public:
  SqlCommand(const ClientCalls &client, QLT_CONNECTION *connection, SqlRun &run) : client_(client), run_(run) {
    if (client_.cmd_alloc(connection, &command_) != CS_SUCCEED) {
      command_ = nullptr;
    }
    heard = &run.lines;
  }
  SqlCommand(const SqlCommand &) = delete;
  SqlCommand &operator=(const SqlCommand &) = delete;
  ~SqlCommand() {
    if (command_ != nullptr) {
      client_.cmd_drop(command_);
    }
    heard = nullptr;
  }

  // Whether the server did all of it and all of its answer could be read.
  bool run(const std::string &sql);

 private:
  bool send(const std::string &sql);
  bool read_result(int32_t type);
  bool read_rows(int32_t type);
  bool bind(int32_t number, BoundColumn &column);
  void note_row(int32_t type, const std::string &text);
  void note_row_count();

  const ClientCalls &client_;
  SqlRun &run_;
  QLT_COMMAND *command_ = nullptr;
};

}  // namespace

extern "C" {

namespace {

int32_t hear_server(CS_CONTEXT *, QLT_CONNECTION *, QLT_SERVER_MESSAGE *message) {
  if (heard != nullptr) {
    heard->push_back("message " + std::to_string(message->msg_number) + ", severity " +
                     std::to_string(message->msg_severity) + ": " + message->msg_text);
  }
  return CS_SUCCEED;
}

int32_t hear_client(CS_CONTEXT *, QLT_CONNECTION *, QLT_CLIENT_MESSAGE *message) {
  if (heard != nullptr) {
    heard->push_back(std::string("client library: ") + message->msg_text);
  }
  return CS_SUCCEED;
}

}  // namespace

}  // extern "C"

namespace {

CS_CONTEXT *context_of(const ClientCalls &client) {
  CS_CONTEXT *context = nullptr;
  return client.ctx_global(QLT_VERSION, &context) == CS_SUCCEED ? context : nullptr;
}

}  // namespace

void listen_for_messages(const Libraries &libraries) {
  const ClientCalls &client = libraries.client;
  CS_CONTEXT *context = context_of(client);
  // Without callbacks only the messages are missing from the output.
  (void)client.callback(context, nullptr, CS_SET, QLT_SERVERMSG_CB, reinterpret_cast<void *>(hear_server));
  (void)client.callback(context, nullptr, CS_SET, QLT_CLIENTMSG_CB, reinterpret_cast<void *>(hear_client));
}

namespace {

// False when it is too long for a key.
bool set_key_part(char (&part)[QLT_MAX_NAME], int32_t &length, const std::string &text) {
  if (text.size() > sizeof part) {
    return false;
  }
  std::memcpy(part, text.data(), text.size());
  length = static_cast<int32_t>(text.size());
  return true;
}

// The connection that the library published for the LRM, null when there is none. Beside the LRM's name, MTS has the
// lookup key in the entry's key and TXS the thread.
QLT_CONNECTION *published_connection(const Libraries &libraries, CS_CONTEXT *context, const std::string &lrm,
                                     const std::string &lookup_key) {
  const ClientCalls &client = libraries.client;
  QLT_OBJECT_NAME name{};
  name.obj_type = QLT_OBJ_CONNECTION;
  name.fnlen = QLT_UNUSED;
  name.scopelen = QLT_UNUSED;
  name.threadlen = QLT_UNUSED;
  if (!set_key_part(name.last_name, name.lnlen, lrm) ||
      (libraries.flavour == "mts" && !set_key_part(name.first_name, name.fnlen, lookup_key))) {
    return nullptr;
  }
  std::array<char, 16> identity{};
  if (libraries.flavour == "txs") {
    QLT_THREAD_TABLE threads{};
    if (client.config(context, CS_GET, QLT_PROP_THREAD_TABLE, &threads, QLT_UNUSED, nullptr) != CS_SUCCEED ||
        threads.thread_identity == nullptr ||
        threads.thread_identity(identity.data(), identity.size(), &name.threadlen) != CS_SUCCEED) {
      return nullptr;
    }
    name.thread = identity.data();
  }
  QLT_OBJECT_DATA data{0, nullptr, nullptr, nullptr, QLT_UNUSED};
  const int32_t found = client.objects(context, CS_GET, &name, &data);
  return found == CS_SUCCEED && data.actuallyexists == 1 ? data.connection : nullptr;
}

}  // namespace

bool SqlCommand::send(const std::string &sql) {
  const auto length = static_cast<int32_t>(sql.size());
  return command_ != nullptr &&
         client_.command(command_, QLT_LANG_COMMAND, sql.data(), length, QLT_UNUSED) == CS_SUCCEED &&
         client_.send(command_) == CS_SUCCEED;
}

bool SqlCommand::run(const std::string &sql) {
  if (!send(sql)) {
    return false;
  }
  bool done = true;
  int32_t type = 0;
  int32_t code = 0;
  while ((code = client_.results(command_, &type)) == CS_SUCCEED) {
    done = read_result(type) && done;
  }
  return done && code == CS_END_RESULTS;
}

bool SqlCommand::read_result(int32_t type) {
  switch (type) {
    case CS_CMD_FAIL:
      return false;
    case CS_CMD_SUCCEED:
      return true;
    case CS_CMD_DONE:
      note_row_count();
      return true;
    default:
      return read_rows(type);
  }
}

void SqlCommand::note_row_count() {
  int32_t count = -1;
  if (client_.res_info(command_, QLT_ROW_COUNT, &count, QLT_UNUSED, nullptr) == CS_SUCCEED && count >= 0) {
    run_.lines.push_back(count == 1 ? "1 row" : std::to_string(count) + " rows");
  }
}

// Everything is read as text: the client library's own conversion is the plainest there is.
bool SqlCommand::bind(int32_t number, BoundColumn &column) {
  QLT_FORMAT format{};
  if (client_.describe(command_, number, &format) != CS_SUCCEED) {
    return false;
  }
  const int32_t digits = format.fmt_datatype == QLT_BINARY_TYPE ? 2 : 1;
  const int32_t size = digits * std::clamp(format.fmt_maxlen, least_buffer, most_buffer);
  column.buffer.resize(static_cast<size_t>(size));
  format.fmt_datatype = QLT_CHAR_TYPE;
  format.fmt_format = QLT_FMT_NONE;
  format.fmt_maxlen = size;
  return client_.bind(command_, number, &format, column.buffer.data(), &column.length, &column.indicator) == CS_SUCCEED;
}

namespace {

std::string row_text(const std::vector<BoundColumn> &columns) {
  std::string text;
  for (const BoundColumn &column : columns) {
    text += &column == columns.data() ? "" : " | ";
    if (column.indicator == QLT_IND_NULL) {
      text += "null";
    } else {
      text.append(column.buffer.data(), static_cast<size_t>(column.length));
    }
  }
  return text;
}

}  // namespace

// A procedure's status and output parameters are shown, but are no rows.
void SqlCommand::note_row(int32_t type, const std::string &text) {
  if (type == CS_STATUS_RESULT) {
    run_.lines.push_back("status " + text);
    return;
  }
  if (type == CS_PARAM_RESULT) {
    run_.lines.push_back("output " + text);
    return;
  }
  run_.rows.push_back(text);
  run_.lines.push_back(text);
}

bool SqlCommand::read_rows(int32_t type) {
  int32_t count = 0;
  if (client_.res_info(command_, QLT_NUM_COLUMNS, &count, QLT_UNUSED, nullptr) != CS_SUCCEED || count < 1) {
    return false;
  }
  std::vector<BoundColumn> columns(static_cast<size_t>(count));
  int32_t number = 0;
  for (BoundColumn &column : columns) {
    if (!bind(++number, column)) {
      return false;
    }
  }
  int32_t read = 0;
  int32_t code = 0;
  while ((code = client_.fetch(command_, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &read)) == CS_SUCCEED) {
    note_row(type, row_text(columns));
  }
  if (code != CS_END_DATA) {
    run_.lines.emplace_back("the next row could not be read");
  }
  return code == CS_END_DATA;
}

SqlRun run_sql(const Libraries &libraries, const std::string &lrm, const std::string &lookup_key,
               const std::string &sql) {
  SqlRun run;
  CS_CONTEXT *context = context_of(libraries.client);
  QLT_CONNECTION *connection = published_connection(libraries, context, lrm, lookup_key);
  if (connection != nullptr) {
    run.result = SqlCommand(libraries.client, connection, run).run(sql) ? sql_ok : sql_failed;
  }
  return run;
}
