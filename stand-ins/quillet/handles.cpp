// The register of live handles and the locks on them.
//
// The register's mutex is a leaf: nothing else is locked under it. Register and context are never destroyed, because
// threads may still use them while the process exits.
#include "handles.h"

#include <unordered_map>

namespace quillet {
namespace {

struct HandleRegister {
  std::mutex mutex;
  std::unordered_map<const QLT_CONNECTION *, std::shared_ptr<qlt_connection>> connections;
  std::unordered_map<const QLT_COMMAND *, std::shared_ptr<qlt_command>> commands;
};

HandleRegister &handles() {
  static auto &instance = *new HandleRegister;
  return instance;
}

template <typename Map>
auto find_in(const Map &map, typename Map::key_type handle) -> typename Map::mapped_type {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  const auto found = map.find(handle);
  return found == map.end() ? nullptr : found->second;
}

// Calls the callback that fits the message; the connection must not be locked.
void deliver(CS_CONTEXT *context, QLT_CONNECTION *connection, const Callbacks &callbacks, AnyMessage &message) {
  if (auto *client = std::get_if<QLT_CLIENT_MESSAGE>(&message); client != nullptr && callbacks.client != nullptr) {
    callbacks.client(context, connection, client);
  }
  if (auto *server = std::get_if<QLT_SERVER_MESSAGE>(&message); server != nullptr && callbacks.server != nullptr) {
    callbacks.server(context, connection, server);
  }
}

}  // namespace

CS_CONTEXT &the_context() {
  static auto &instance = *new qlt_context;
  return instance;
}

bool is_context(const CS_CONTEXT *context) {
  return context == &the_context();
}

ConnectionLock::ConnectionLock(std::shared_ptr<qlt_connection> connection)
    : connection_(std::move(connection)),
      lock_(connection_ == nullptr ? std::unique_lock<std::mutex>() : std::unique_lock(connection_->mutex)) {}

ConnectionLock::~ConnectionLock() {
  if (!lock_.owns_lock()) {
    return;
  }
  std::vector<AnyMessage> messages;
  messages.swap(connection_->outbox);
  const Callbacks callbacks = connection_->callbacks;
  lock_.unlock();
  for (AnyMessage &message : messages) {
    deliver(connection_->context, connection_.get(), callbacks, message);
  }
}

int32_t ConnectionLock::fail(Reason reason, std::string_view text) const {
  connection_->outbox.emplace_back(client_message(reason, text));
  return CS_FAIL;
}

CommandLock::CommandLock(std::shared_ptr<qlt_command> command)
    : command_(std::move(command)), connection_(command_ == nullptr ? nullptr : command_->connection) {}

ConnectionLock lock_connection(QLT_CONNECTION *handle) {
  return ConnectionLock(find_in(handles().connections, handle));
}

CommandLock lock_command(QLT_COMMAND *handle) {
  return CommandLock(find_in(handles().commands, handle));
}

QLT_CONNECTION *register_connection(std::shared_ptr<qlt_connection> connection) {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  QLT_CONNECTION *handle = connection.get();
  handles().connections.emplace(handle, std::move(connection));
  return handle;
}

QLT_COMMAND *register_command(std::shared_ptr<qlt_command> command) {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  QLT_COMMAND *handle = command.get();
  handles().commands.emplace(handle, std::move(command));
  return handle;
}

bool forget_connection(QLT_CONNECTION *handle) {
  const auto commands = commands_of(handle);
  const std::lock_guard<std::mutex> lock(handles().mutex);
  for (const auto &command : commands) {
    handles().commands.erase(command.get());
  }
  return handles().connections.erase(handle) > 0;
}

bool forget_command(QLT_COMMAND *handle) {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  return handles().commands.erase(handle) > 0;
}

std::vector<std::shared_ptr<qlt_command>> commands_of(const qlt_connection *connection) {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  std::vector<std::shared_ptr<qlt_command>> found;
  for (const auto &[handle, command] : handles().commands) {
    if (command->connection.get() == connection) {
      found.push_back(command);
    }
  }
  return found;
}

int32_t live_connections() {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  return static_cast<int32_t>(handles().connections.size());
}

int32_t live_commands() {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  return static_cast<int32_t>(handles().commands.size());
}

void reset_command(qlt_command &command) {
  command.phase = Phase::idle;
  command.request = {};
  command.reply = {};
}

void pass_current_result(qlt_command &command) {
  PendingReply &reply = command.reply;
  if (!reply.current) {
    return;
  }
  reply.results.pop_front();
  reply.current = false;
  reply.next_row = 0;
  reply.bindings.clear();
}

}  // namespace quillet
