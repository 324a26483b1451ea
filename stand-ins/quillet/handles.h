// The records behind the handles and the locked access to them.
//
// A connection's mutex guards the connection and its commands. An operation works under a ConnectionLock or a
// CommandLock, which is empty when the handle is not alive; messages that come up go into the connection's outbox and
// are delivered when the lock has been given up, so that callbacks may call back in. Records are shared: one that is
// dropped while another thread is still in an operation on it lives to the end of that operation.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "exports.h"
#include "interface/session.h"
#include "messages.h"
#include "settings.h"

// The one context. Its mutex guards its fields; it may be taken while a connection is locked, not the other way.
struct qlt_context {
  std::mutex mutex;
  bool initialised = false;
  bool diagnosed = false;  // messages are stored for cs_diag
  bool threads = true;
  quillet::SettingValues settings{quillet::context_settings};
  quillet::SettingValues dates{quillet::date_settings};
  quillet::Callbacks callbacks;
  quillet::StoredMessages stored;
  std::vector<quillet::AnyMessage> queued;  // for the next ct_connect
};

struct qlt_connection {
  std::mutex mutex;
  CS_CONTEXT *context = nullptr;
  quillet::SettingValues settings{quillet::connection_settings};
  quillet::SettingValues options{quillet::option_settings};
  quillet::SettingValues capabilities{quillet::capability_settings};
  quillet::Callbacks callbacks;
  quillet::StoredMessages stored;
  std::vector<quillet::AnyMessage> outbox;
  std::unique_ptr<zdb::Session> session;  // null: not open
  std::string server;
  bool broken = false;  // the session is known to have broken off
};

namespace quillet {

enum class Phase : uint8_t {
  idle,       // nothing initiated, no results
  initiated,  // a request is being built, not sent
  sent        // results are pending
};

struct Binding {
  QLT_FORMAT format;
  char *buffer;
  int32_t *lengths;
  int32_t *indicators;
};

// What is left of a reply; the front result is current once ct_results has reported it.
struct PendingReply {
  std::deque<zdb::Result> results;
  std::vector<zdb::Message> messages;  // delivered with the first ct_results
  std::deque<int32_t> fetch_codes;
  bool cut_off = false;  // the session broke off before the reply came
  bool current = false;
  std::size_t next_row = 0;
  std::vector<std::optional<Binding>> bindings;  // one a column of the current result
};

}  // namespace quillet

struct qlt_command {
  std::shared_ptr<qlt_connection> connection;
  quillet::Phase phase = quillet::Phase::idle;
  zdb::Request request;
  quillet::PendingReply reply;
  std::string cursor;  // its name; empty: no cursor on this command
  int32_t cursor_status = 0;
  int32_t cursor_status_then = 0;  // once the initiated cursor request has succeeded
};

namespace quillet {

CS_CONTEXT &the_context();
// Null, or any other pointer than the one context's, is refused.
bool is_context(const CS_CONTEXT *context);

class ConnectionLock {
 public:
  ConnectionLock() = default;
  explicit ConnectionLock(std::shared_ptr<qlt_connection> connection);
  ConnectionLock(ConnectionLock &&) = default;
  ConnectionLock &operator=(ConnectionLock &&) = delete;
  ~ConnectionLock();

  explicit operator bool() const { return connection_ != nullptr; }
  qlt_connection *operator->() const { return connection_.get(); }
  const std::shared_ptr<qlt_connection> &shared() const { return connection_; }
  // Puts a client message into the outbox and returns CS_FAIL, for failure returns.
  int32_t fail(Reason reason, std::string_view text) const;

 private:
  std::shared_ptr<qlt_connection> connection_;
  std::unique_lock<std::mutex> lock_;
};

class CommandLock {
 public:
  explicit CommandLock(std::shared_ptr<qlt_command> command);

  explicit operator bool() const { return command_ != nullptr; }
  qlt_command *operator->() const { return command_.get(); }
  qlt_command &operator*() const { return *command_; }
  qlt_connection &connection() const { return *command_->connection; }
  int32_t fail(Reason reason, std::string_view text) const { return connection_.fail(reason, text); }

 private:
  std::shared_ptr<qlt_command> command_;
  ConnectionLock connection_;
};

// Empty when the handle is not alive.
ConnectionLock lock_connection(QLT_CONNECTION *handle);
CommandLock lock_command(QLT_COMMAND *handle);

QLT_CONNECTION *register_connection(std::shared_ptr<qlt_connection> connection);
QLT_COMMAND *register_command(std::shared_ptr<qlt_command> command);
// True when the handle was alive. A connection takes its commands with it.
bool forget_connection(QLT_CONNECTION *handle);
bool forget_command(QLT_COMMAND *handle);
// The live commands of a connection; the caller may hold its lock.
std::vector<std::shared_ptr<qlt_command>> commands_of(const qlt_connection *connection);
int32_t live_connections();
int32_t live_commands();

// Throws away what is pending or initiated on a command; its connection is locked.
void reset_command(qlt_command &command);
// Drops the current result with whatever is unread of it; its connection is locked.
void pass_current_result(qlt_command &command);
// Removes the object registry's entries that point to a connection.
void forget_objects_of(const QLT_CONNECTION *connection);

}  // namespace quillet
