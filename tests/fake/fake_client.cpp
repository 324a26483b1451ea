// The scripted client library: replies and texts, the library's state, then the operations of context, connections,
// commands and results.
#include "fake_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "personality/xal_personality.h"

namespace fake {

Result status(int32_t value) {
  return {CS_SUCCEED, CS_STATUS_RESULT, {""}, {{value}}};
}
Reply st(int32_t value) {
  return {status(value)};
}
Result output(const std::string &name, const Value &value) {
  return {CS_SUCCEED, CS_PARAM_RESULT, {name}, {{value}}};
}
Result row(const Value &value) {
  return rows({value});
}
Result rows(const std::vector<Value> &values) {
  Result result{CS_SUCCEED, CS_ROW_RESULT, {"value"}, {}};
  for (const Value &value : values) {
    result.rows.push_back({value});
  }
  return result;
}
Result table(const std::vector<std::vector<Value>> &rows) {
  return {CS_SUCCEED, CS_ROW_RESULT, Lines(rows.at(0).size(), "column"), rows};
}
Result marker(int32_t type) {
  return {CS_SUCCEED, type, {}, {}};
}
Result broken(int32_t code) {
  return {code, 0, {}, {}};
}

std::string text(const char *format, ...) {
  char buffer[2048];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  return buffer;
}

Lines joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines &part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

namespace {

int32_t integer_at(const void *buffer) {
  int32_t value = 0;
  memcpy(&value, buffer, sizeof value);
  return value;
}

const char *action_name(int32_t action) {
  static const std::map<int32_t, const char *> names = {
      {CS_GET, "GET"}, {CS_SET, "SET"}, {CS_INIT, "INIT"}, {QLT_CLEAR, "CLEAR"}};
  return names.at(action);
}

template <typename Handle>
std::string name_of(const Handle *handle) {
  return handle != nullptr ? handle->name : "null";
}

// A text argument by its length: quoted, "none" when it is not used.
std::string quoted(const char *argument, int32_t length) {
  if (length == QLT_UNUSED) {
    return argument == nullptr ? "none" : "unused text";
  }
  if (length == QLT_WILDCARD) {
    return "any";
  }
  return "\"" + std::string(argument, length == QLT_NULLTERM ? strlen(argument) : static_cast<size_t>(length)) + "\"";
}

// The arguments of a property, option or context setting.
std::string setting(int32_t action, int32_t code, const void *buffer, int32_t length) {
  std::string line = text("%s, %d", action_name(action), code);
  if (action == CS_SET && length == QLT_NULLTERM) {
    line.append(text(", \"%s\", %d", static_cast<const char *>(buffer), length));
  } else if (action == CS_SET) {
    line.append(text(", %d, %d", integer_at(buffer), length));
  }
  return line;
}

}  // namespace

Library &library() {
  static Library instance;
  return instance;
}

Lines Library::take_calls(const Lines &prefixes) {
  Lines taken = take_calls();
  std::erase_if(taken, [&](const std::string &line) {
    return std::none_of(prefixes.begin(), prefixes.end(),
                        [&](const std::string &prefix) { return line.rfind(prefix, 0) == 0; });
  });
  return taken;
}

void Library::note(const std::string &line) {
  calls_.push_back(line + (serialised() ? "" : " [free]"));
}

std::optional<int32_t> Library::enter(const char *operation, Mutex mutex, const std::string &arguments) {
  note(std::string(operation).append("(").append(arguments).append(")"));
  if (mutex == Mutex::held && !serialised()) {
    ADD_FAILURE() << "without the serialisation mutex: " << calls_.back();
  }
  std::optional<int32_t> forced;
  for (Failure &failure : failures_) {
    if (failure.operation == operation && --failure.countdown == 0) {
      forced = failure.code;
    }
  }
  return forced;
}

namespace {

// "begin NAME mode 0x.. status .. flags 0x..", from the procedure's name and the parameters.
std::string request_line(const QLT_COMMAND &command) {
  std::string line = command.text;
  const size_t ending = line.find("TrvDtmXact");
  if (line[0] == '$' && ending != std::string::npos) {
    line = line.substr(1, ending - 1);
  }
  for (const auto &[name, value] : command.parameters) {
    const bool named = name == "@name" || name == "@query_type";
    line.append(named ? " " : " " + name.substr(1) + " ").append(value);
  }
  return line;
}

}  // namespace

void Library::send(QLT_COMMAND *command) {
  if (command->pending) {
    ADD_FAILURE() << command->name << " still has results of what it sent before";
  }
  const std::string line = request_line(*command);
  requests_.push_back(line);
  command->pending = true;
  command->reading = false;
  command->reply.clear();
  const Reply *answer = nullptr;
  for (const auto &[key, reply] : standing) {  // sorted: of two keys that fit, the longer one comes last and wins
    answer = line.rfind(key, 0) == 0 ? &reply : answer;
  }
  if (answer != nullptr) {
    command->reply.assign(answer->begin(), answer->end());
  } else if (!replies.empty()) {
    command->reply.assign(replies.front().begin(), replies.front().end());
    replies.pop_front();
  } else {
    ADD_FAILURE() << "no reply is scripted for " << line;
  }
}

QLT_CONNECTION *Library::new_connection() {
  ++live_connections_;
  return new QLT_CONNECTION{text("con%d", ++next_connection_)};
}

QLT_COMMAND *Library::new_command(QLT_CONNECTION *connection) {
  ++live_commands_;
  auto *command = new QLT_COMMAND;
  command->name = text("cmd%d", ++next_command_);
  command->connection = connection;
  return command;
}

void Library::drop(QLT_CONNECTION *connection) {
  live_connections_ -= connection != nullptr ? 1 : 0;
  delete connection;
}

void Library::drop(QLT_COMMAND *command) {
  live_commands_ -= command != nullptr ? 1 : 0;
  delete command;
}

int32_t Library::create_mutex() {
  mutexes_[++next_mutex_] = false;
  return next_mutex_;
}

int32_t Library::take_mutex(int32_t handle) {
  if (taken(handle)) {
    ADD_FAILURE() << "mutex " << handle << " taken twice";
  }
  mutexes_[handle] = true;
  return CS_SUCCEED;
}

int32_t Library::release_mutex(int32_t handle) {
  if (!taken(handle)) {
    ADD_FAILURE() << "mutex " << handle << " released without having been taken";
  }
  mutexes_[handle] = false;
  return CS_SUCCEED;
}

bool Library::serialised() const {
  return !threads || taken(_xa_txs_serialize.load());
}

bool Library::taken(int32_t handle) const {
  const auto found = mutexes_.find(handle);
  return found != mutexes_.end() && found->second;
}

void Library::reset() {
  Library clean;
  clean.mutexes_ = mutexes_;
  clean.next_mutex_ = next_mutex_;
  clean.live_connections_ = live_connections_;
  clean.live_commands_ = live_commands_;
  clean.standing = {{"select value", {row(1)}}, {"status ffffffff_00_00_", {status(-2)}}};
  *this = clean;
}

int32_t diagnostic_client_callback(CS_CONTEXT *, QLT_CONNECTION *, QLT_CLIENT_MESSAGE *) {
  return CS_SUCCEED;
}
int32_t application_client_callback(CS_CONTEXT *, QLT_CONNECTION *, QLT_CLIENT_MESSAGE *) {
  return CS_FAIL;
}

namespace {

std::string key_part(const char *part, int32_t length) {
  return length == QLT_NULLTERM ? std::string(part)
                                : std::string(part, static_cast<size_t>(std::max<int32_t>(length, 0)));
}

std::string thread_part(const QLT_OBJECT_NAME &name) {
  return name.thread == nullptr ? "" : key_part(static_cast<const char *>(name.thread), name.threadlen);
}

bool fits(const Object &object, const QLT_OBJECT_NAME &name) {
  return object.type == name.obj_type && object.last_name == key_part(name.last_name, name.lnlen) &&
         (name.fnlen == QLT_WILDCARD || object.first_name == key_part(name.first_name, name.fnlen)) &&
         object.thread == thread_part(name);
}

std::string object_line(int32_t action, const QLT_OBJECT_NAME &name, const QLT_OBJECT_DATA *data) {
  std::string thread = name.threadlen == QLT_UNUSED ? "none" : "";
  for (const char byte : thread_part(name)) {
    thread.append(text("%02x", static_cast<unsigned char>(byte)));
  }
  std::string line = text("%s, %d, %s, %s, thread %s, exists %d", action_name(action), name.obj_type,
                          quoted(name.last_name, name.lnlen).c_str(),
                          quoted(name.fnlen == QLT_UNUSED ? nullptr : name.first_name, name.fnlen).c_str(),
                          thread.c_str(), name.think_exists);
  const int32_t scope = name.obj_type == QLT_OBJ_CONNECTION ? QLT_UNUSED : QLT_WILDCARD;
  line.append(name.scopelen == scope ? "" : text(", scope %d", name.scopelen));
  if (action == CS_SET && data != nullptr) {
    line.append(text(", %s %s", name_of(data->connection).c_str(), name_of(data->command).c_str()));
  }
  return line;
}

// Records the call and does its work, unless the script forces a code on it.
template <typename Work = void (*)()>
int32_t perform(
    const char *operation, Library::Mutex mutex, const std::string &arguments, Work work = [] {}) {
  const auto forced = library().enter(operation, mutex, arguments);
  if (!forced) {
    work();
  }
  return forced.value_or(CS_SUCCEED);
}

int32_t create_handle(int32_t *handle) {
  return perform("create_mutex", Library::Mutex::any, "", [&] { *handle = library().create_mutex(); });
}
int32_t take_handle(int32_t handle) {
  return library().take_mutex(handle);
}
int32_t release_handle(int32_t handle) {
  return library().release_mutex(handle);
}
int32_t any_handle(int32_t handle) {
  return perform("handle", Library::Mutex::any, text("%d", handle));
}
int32_t wait_handle(int32_t handle, int32_t timeout) {
  return perform("waitfor_event", Library::Mutex::any, text("%d, %d", handle, timeout));
}
int32_t give_identity(void *buffer, int32_t size, int32_t *length) {
  const Library &lib = library();
  const auto real = static_cast<int32_t>(lib.identity.size());
  memcpy(buffer, lib.identity.data(), static_cast<size_t>(std::min(real, size)));
  *length = lib.identity_claim != 0 ? lib.identity_claim : real;
  return CS_SUCCEED;
}

}  // namespace

}  // namespace fake

using fake::action_name;
using fake::library;
using fake::perform;
using fake::quoted;
using fake::setting;
using fake::text;
using Mutex = fake::Library::Mutex;

int32_t cs_ctx_global(int32_t version, CS_CONTEXT **context) {
  return perform("cs_ctx_global", Mutex::any, text("%d", version), [&] { *context = &library().context; });
}

int32_t cs_config(CS_CONTEXT *, int32_t action, int32_t property, void *buffer, int32_t length, int32_t *) {
  const std::string line = text("%s, %d, %d", action_name(action), property, length);
  return perform("cs_config", Mutex::any, line, [&] {
    QLT_THREAD_TABLE table{};
    if (library().threads) {
      using namespace fake;
      table = {create_handle, any_handle, take_handle, release_handle, create_handle,
               any_handle,    any_handle, any_handle,  wait_handle,    give_identity};
    }
    memcpy(buffer, &table, sizeof table);
  });
}

int32_t cs_diag(CS_CONTEXT *, int32_t operation, int32_t, int32_t, void *) {
  return perform("cs_diag", Mutex::held, action_name(operation));
}

int32_t cs_dt_info(CS_CONTEXT *, int32_t action, void *locale, int32_t code, int32_t item, void *buffer, int32_t length,
                   int32_t *) {
  const std::string line = text("%s, %d, %d, %d, %d%s", action_name(action), code, item, fake::integer_at(buffer),
                                length, locale == nullptr ? "" : ", locale");
  return perform("cs_dt_info", Mutex::held, line);
}

int32_t cs_objects(CS_CONTEXT *, int32_t action, QLT_OBJECT_NAME *name, QLT_OBJECT_DATA *data) {
  if (const auto forced = library().enter("cs_objects", Mutex::held, fake::object_line(action, *name, data))) {
    return *forced;
  }
  std::vector<fake::Object> &objects = library().objects;
  if (action == CS_SET) {
    objects.push_back({name->obj_type, fake::key_part(name->last_name, name->lnlen),
                       fake::key_part(name->first_name, name->fnlen), fake::thread_part(*name), data->connection,
                       data->command, ""});
    return CS_SUCCEED;
  }
  const auto found = std::find_if(objects.begin(), objects.end(),
                                  [&](const fake::Object &object) { return fake::fits(object, *name); });
  if (action == QLT_CLEAR && found != objects.end()) {
    objects.erase(found);
  } else if (action == CS_GET && found != objects.end()) {
    data->actuallyexists = 1;
    data->connection = found->connection;
    data->command = found->command;
    if (data->buffer != nullptr) {
      memcpy(data->buffer, found->data.data(), std::min<size_t>(found->data.size(), static_cast<size_t>(data->buflen)));
      data->buflen = static_cast<int32_t>(found->data.size());
    }
  }
  return CS_SUCCEED;
}

int32_t ct_init(CS_CONTEXT *, int32_t version) {
  return perform("ct_init", Mutex::held, text("%d", version));
}

int32_t ct_config(CS_CONTEXT *, int32_t action, int32_t property, void *buffer, int32_t length, int32_t *outlen) {
  return perform("ct_config", Mutex::held, setting(action, property, buffer, length), [&] {
    if (action == CS_GET) {
      memcpy(buffer, "scripted 1.0", 12);  // not terminated
      *outlen = 12;
    }
  });
}

int32_t ct_con_alloc(CS_CONTEXT *, QLT_CONNECTION **connection) {
  return perform("ct_con_alloc", Mutex::held, "", [&] { *connection = library().new_connection(); });
}

int32_t ct_con_props(QLT_CONNECTION *connection, int32_t action, int32_t property, void *buffer, int32_t length,
                     int32_t *) {
  const std::string line = connection->name + ", " + setting(action, property, buffer, length);
  return perform("ct_con_props", action == CS_SET ? Mutex::held : Mutex::any, line, [&] {
    if (action == CS_GET) {
      const int32_t status = library().connection_status.value_or(QLT_CON_OPEN);
      memcpy(buffer, &status, sizeof status);
    }
  });
}

int32_t ct_options(QLT_CONNECTION *connection, int32_t action, int32_t option, void *value, int32_t length, int32_t *) {
  const std::string line = connection->name + ", " + setting(action, option, value, length);
  return perform("ct_options", Mutex::held, line);
}

int32_t ct_capability(QLT_CONNECTION *connection, int32_t action, int32_t type, int32_t capability, void *value) {
  const std::string line = text("%s, %s, type %d, %d, %d", connection->name.c_str(), action_name(action), type,
                                capability, fake::integer_at(value));
  return perform("ct_capability", Mutex::held, line);
}

int32_t ct_callback(CS_CONTEXT *, QLT_CONNECTION *connection, int32_t action, int32_t type, void *callback) {
  void *&slot = type == QLT_CLIENTMSG_CB ? connection->client_callback : connection->server_callback;
  std::string line = text("%s, %s, %d", connection->name.c_str(), action_name(action), type);
  const bool of_application = callback == reinterpret_cast<void *>(fake::application_client_callback);
  line.append(action != CS_SET ? "" : of_application ? ", application's" : ", other");
  return perform("ct_callback", Mutex::held, line, [&] {
    if (action == CS_SET) {
      slot = callback;
    } else {
      memcpy(callback, &slot, sizeof slot);
    }
  });
}

int32_t ct_diag(QLT_CONNECTION *connection, int32_t operation, int32_t type, int32_t, void *) {
  const std::string line = text("%s, %s, %d", connection->name.c_str(), action_name(operation), type);
  return perform("ct_diag", Mutex::held, line, [&] {
    if (operation == CS_INIT) {
      connection->client_callback = reinterpret_cast<void *>(fake::diagnostic_client_callback);
      connection->server_callback = connection->client_callback;
    }
  });
}

int32_t ct_connect(QLT_CONNECTION *connection, const char *server, int32_t length) {
  const std::string line = connection->name + ", " + quoted(server, length);
  return perform("ct_connect", Mutex::held, line);
}

int32_t ct_close(QLT_CONNECTION *connection, int32_t option) {
  const std::string line = connection->name + (option == QLT_UNUSED ? ", normal" : text(", %d", option));
  return perform("ct_close", Mutex::any, line);
}

int32_t ct_con_drop(QLT_CONNECTION *connection) {
  const auto forced = library().enter("ct_con_drop", Mutex::any, connection->name);
  library().drop(connection);  // whatever the code says, the caller does not use the handle again
  return forced.value_or(CS_SUCCEED);
}

int32_t ct_cmd_alloc(QLT_CONNECTION *connection, QLT_COMMAND **command) {
  return perform("ct_cmd_alloc", Mutex::held, connection->name, [&] { *command = library().new_command(connection); });
}

int32_t ct_cmd_drop(QLT_COMMAND *command) {
  const auto forced = library().enter("ct_cmd_drop", Mutex::any, command->name);
  library().drop(command);
  return forced.value_or(CS_SUCCEED);
}

int32_t ct_cmd_props(QLT_COMMAND *command, int32_t action, int32_t property, void *buffer, int32_t length,
                     int32_t *outlen) {
  const std::string line = text("%s, %s, %d", command->name.c_str(), action_name(action), property);
  return perform("ct_cmd_props", Mutex::held, line, [&] {
    if (property == CS_CUR_STATUS) {
      memcpy(buffer, &command->cursor_status, sizeof command->cursor_status);
    } else {
      const std::string &name = command->cursor_name;
      memcpy(buffer, name.data(), std::min<size_t>(name.size(), static_cast<size_t>(length)));
      *outlen = static_cast<int32_t>(name.size());
    }
  });
}

int32_t ct_command(QLT_COMMAND *command, int32_t type, const char *words, int32_t length, int32_t option) {
  const std::string line = text("%s, %d, %s, %d", command->name.c_str(), type, quoted(words, length).c_str(), option);
  return perform("ct_command", Mutex::held, line, [&] {
    command->text = words;
    command->parameters.clear();
  });
}

int32_t ct_param(QLT_COMMAND *command, const QLT_FORMAT *format, const void *data, int32_t length, int32_t indicator) {
  std::string value;
  std::string shown;
  if (format->fmt_datatype == QLT_CHAR_TYPE) {
    value.assign(static_cast<const char *>(data), static_cast<size_t>(length));
    shown = "\"" + value + "\"";
  } else {
    const int32_t number = fake::integer_at(data);
    value = text(strcmp(format->fmt_name, "@status") == 0 ? "%d" : "0x%x", static_cast<uint32_t>(number));
    shown = text("%d", number);
  }
  std::string line =
      text("%s, \"%s\"=%s len %d type %d max %d status 0x%x", command->name.c_str(), format->fmt_name, shown.c_str(),
           length, format->fmt_datatype, format->fmt_maxlen, static_cast<uint32_t>(format->fmt_status));
  if (format->fmt_namelen != QLT_NULLTERM || format->fmt_locale != nullptr || indicator != QLT_UNUSED) {
    line.append(text(" namelen %d indicator %d", format->fmt_namelen, indicator));
  }
  return perform("ct_param", Mutex::held, line, [&] { command->parameters.push_back({format->fmt_name, value}); });
}

int32_t ct_cursor(QLT_COMMAND *command, int32_t type, const char *name, int32_t namelen, const char *words,
                  int32_t textlen, int32_t option) {
  const std::string line = text("%s, %d, %s, %s, %d", command->name.c_str(), type, quoted(name, namelen).c_str(),
                                quoted(words, textlen).c_str(), option);
  command->text = "cursor";
  return perform("ct_cursor", Mutex::held, line);
}

int32_t ct_dynamic(QLT_COMMAND *command, int32_t type, const char *name, int32_t namelen, const char *words,
                   int32_t textlen) {
  const std::string line = text("%s, %d, %s, %s", command->name.c_str(), type, quoted(name, namelen).c_str(),
                                quoted(words, textlen).c_str());
  command->text = "dynamic";
  return perform("ct_dynamic", Mutex::held, line);
}

int32_t ct_send(QLT_COMMAND *command) {
  return perform("ct_send", Mutex::held, command->name, [&] { library().send(command); });
}

int32_t ct_results(QLT_COMMAND *command, int32_t *type) {
  const auto forced = library().enter("ct_results", Mutex::any, command->name);
  if (library().threads && library().serialised() != command->of_application) {
    ADD_FAILURE() << "ct_results(" << command->name << ") waits with the serialisation mutex in the wrong state";
  }
  if (forced) {
    command->pending = false;
    return *forced;
  }
  if (command->reading) {
    command->reply.pop_front();
  }
  command->bound.clear();
  command->reading = !command->reply.empty();
  if (!command->reading) {
    command->pending = false;
    return CS_END_RESULTS;
  }
  *type = command->reply.front().type;
  command->pending = command->reply.front().code == CS_SUCCEED;
  return command->reply.front().code;
}

int32_t ct_cancel(QLT_CONNECTION *connection, QLT_COMMAND *command, int32_t type) {
  const auto forced =
      library().enter("ct_cancel", Mutex::any,
                      text("%s, %s, %d", fake::name_of(connection).c_str(), fake::name_of(command).c_str(), type));
  if (forced) {
    return *forced;
  }
  if (command != nullptr && type == CS_CANCEL_ALL) {
    command->reply.clear();
    command->reading = false;
    command->pending = false;
  } else if (command != nullptr && command->reading) {
    command->reply.front().rows.clear();
  }
  return CS_SUCCEED;
}

int32_t ct_res_info(QLT_COMMAND *command, int32_t type, void *buffer, int32_t, int32_t *) {
  return perform("ct_res_info", Mutex::held, text("%s, %d", command->name.c_str(), type), [&] {
    const auto columns = static_cast<int32_t>(command->reading ? command->reply.front().names.size() : 0);
    memcpy(buffer, &columns, sizeof columns);
  });
}

int32_t ct_describe(QLT_COMMAND *command, int32_t column, QLT_FORMAT *format) {
  return perform("ct_describe", Mutex::held, text("%s, %d", command->name.c_str(), column), [&] {
    const fake::Result &result = command->reply.front();
    const auto index = static_cast<size_t>(column - 1);
    const bool words = !result.rows.empty() && std::holds_alternative<std::string>(result.rows.front().at(index));
    *format = QLT_FORMAT{};
    snprintf(format->fmt_name, sizeof format->fmt_name, "%s", result.names.at(index).c_str());
    format->fmt_datatype = words ? QLT_CHAR_TYPE : QLT_INT_TYPE;
    format->fmt_maxlen = words ? 64 : 4;
  });
}

int32_t ct_bind(QLT_COMMAND *command, int32_t column, const QLT_FORMAT *format, void *buffer, int32_t *lengths,
                int32_t *) {
  const std::string line = text("%s, %d, type %d format %d max %d count %d", command->name.c_str(), column,
                                format->fmt_datatype, format->fmt_format, format->fmt_maxlen, format->fmt_count);
  return perform("ct_bind", Mutex::held, line, [&] { command->bound[column] = {*format, buffer, lengths}; });
}

namespace {

// Writes one value of a row where its column is bound.
void deliver(const fake::Value &value, const qlt_command::Bound &bound, int32_t row) {
  const auto size = static_cast<size_t>(bound.format.fmt_maxlen);
  char *out = static_cast<char *>(bound.buffer) + size * static_cast<size_t>(row);
  size_t length = sizeof(int32_t);
  if (const auto *number = std::get_if<int32_t>(&value)) {
    memcpy(out, number, std::min(size, length));
  } else {
    const std::string &words = std::get<std::string>(value);
    length = std::min(words.size(), size);
    memcpy(out, words.data(), length);
    if (bound.format.fmt_format == QLT_FMT_NULLTERM) {
      out[std::min(length, size - 1)] = '\0';
    }
  }
  if (bound.lengths != nullptr) {
    bound.lengths[row] = static_cast<int32_t>(length);
  }
}

}  // namespace

int32_t ct_fetch(QLT_COMMAND *command, int32_t, int32_t, int32_t, int32_t *rows) {
  if (const auto forced = library().enter("ct_fetch", Mutex::held, command->name)) {
    return *forced;
  }
  auto &left = command->reply.front().rows;
  *rows = 0;
  int32_t wanted = command->bound.empty() ? 1 : command->bound.begin()->second.format.fmt_count;
  for (; wanted > 0 && !left.empty(); --wanted, ++*rows) {
    for (const auto &[column, bound] : command->bound) {
      deliver(left.front().at(static_cast<size_t>(column - 1)), bound, *rows);
    }
    left.erase(left.begin());
  }
  return *rows > 0 ? CS_SUCCEED : CS_END_DATA;
}
