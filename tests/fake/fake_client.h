// A scripted stand-in for the client library: it implements every operation that libxadtm calls, records each call as
// one readable line, plays the replies that a test has queued, and fails the calls that a test has named.
//
// A line ends in " [free]" when the serialisation mutex was not held during the call, so that a list of calls checks
// the mutex as well. Operations that must always run with the mutex held say so in the source and fail the test at
// once. For one thread at a time; handles that a test leaves behind are counted.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "quillet.h"

namespace fake {

using Lines = std::vector<std::string>;
using Value = std::variant<int32_t, std::string>;

// One result of a reply, or the code with which the results break off.
struct Result {
  int32_t code;
  int32_t type;
  std::vector<std::string> names;
  std::vector<std::vector<Value>> rows;
};
using Reply = std::vector<Result>;

Result status(int32_t value);
Reply st(int32_t value);  // a whole reply: the status alone
Result output(const std::string &name, const Value &value);
Result row(const Value &value);
Result rows(const std::vector<Value> &values);
Result table(const std::vector<std::vector<Value>> &rows);
Result marker(int32_t type);
Result broken(int32_t code);

std::string text(const char *format, ...) __attribute__((format(printf, 1, 2)));
Lines joined(std::initializer_list<Lines> parts);

// An entry of the object registry.
struct Object {
  int32_t type;
  std::string last_name;
  std::string first_name;
  std::string thread;
  QLT_CONNECTION *connection;
  QLT_COMMAND *command;
  std::string data;
};

}  // namespace fake

struct qlt_context {};

struct qlt_connection {
  std::string name;
  void *client_callback = nullptr;
  void *server_callback = nullptr;
};

struct qlt_command {
  std::string name;
  QLT_CONNECTION *connection = nullptr;
  bool of_application = false;  // a cursor's or statement's command: its results are read with the mutex held
  std::string cursor_name;
  int32_t cursor_status = 0;

  std::string text;
  std::vector<std::pair<std::string, std::string>> parameters;  // name, value
  std::deque<fake::Result> reply;                               // the first one is current once reading has begun
  bool reading = false;
  bool pending = false;  // sent, and not read to the end
  struct Bound {
    QLT_FORMAT format;
    void *buffer;
    int32_t *lengths;
  };
  std::map<int32_t, Bound> bound;
};

namespace fake {

class Library {
 public:
  std::deque<Reply> replies;              // one per ct_send, unless a standing answer fits
  std::map<std::string, Reply> standing;  // by how the line of take_requests begins; the longest fit wins
  std::optional<int32_t> connection_status;
  bool threads = true;         // false: an empty thread table
  std::string identity;        // what the thread-identity primitive gives
  int32_t identity_claim = 0;  // a length to report instead of the real one
  std::vector<Object> objects;
  qlt_context context;

  // Makes the nth call (from now, counting from 1) of the operation return the code without doing its work.
  void fail(const std::string &operation, int32_t nth = 1, int32_t code = CS_FAIL) {
    failures_.push_back({operation, nth, code});
  }
  Lines take_calls() { return std::exchange(calls_, {}); }
  // Only the calls whose line begins with one of the prefixes.
  Lines take_calls(const Lines &prefixes);
  // What was sent since the last time: "begin 1234_0g83_10k_:L1 mode 0x30000 status 1 flags 0x10", or the query.
  Lines take_requests() { return std::exchange(requests_, {}); }
  void note(const std::string &line);

  QLT_CONNECTION *new_connection();
  QLT_COMMAND *new_command(QLT_CONNECTION *connection);
  void drop(QLT_CONNECTION *connection);
  void drop(QLT_COMMAND *command);
  int32_t live_connections() const { return live_connections_; }
  int32_t live_commands() const { return live_commands_; }
  int32_t create_mutex();
  int32_t take_mutex(int32_t handle);
  int32_t release_mutex(int32_t handle);
  bool serialised() const;  // the serialisation mutex is held (without thread support there is none)
  bool taken(int32_t handle) const;
  int32_t mutexes_created() const { return next_mutex_; }

  // Forgets script and record and numbers handles from 1 again; mutexes stay.
  void reset();

  // For the operations: records the call; the code that the script forces on it, if any.
  enum class Mutex { held, any };
  std::optional<int32_t> enter(const char *operation, Mutex mutex, const std::string &arguments);
  void send(QLT_COMMAND *command);

 private:
  struct Failure {
    std::string operation;
    int32_t countdown;
    int32_t code;
  };
  std::vector<Failure> failures_;
  Lines calls_;
  Lines requests_;
  int32_t next_connection_ = 0;
  int32_t next_command_ = 0;
  int32_t live_connections_ = 0;
  int32_t live_commands_ = 0;
  int32_t next_mutex_ = 0;
  std::map<int32_t, bool> mutexes_;
};

Library &library();

// The callback that ct_diag installs, and one of an application.
int32_t diagnostic_client_callback(CS_CONTEXT *, QLT_CONNECTION *, QLT_CLIENT_MESSAGE *);
int32_t application_client_callback(CS_CONTEXT *, QLT_CONNECTION *, QLT_CLIENT_MESSAGE *);

}  // namespace fake
