// What a client sees of a database server: it opens a session by the server's name, sends requests and gets
// each one's whole reply back. The client library uses nothing else of a server, so a server of another kind (in its
// own process, with a store on disk) only has to offer this.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace zdb {

struct Binary {
  std::string bytes;
  bool operator==(const Binary &) const = default;
};

// A value of a parameter or column; monostate is null.
using Value = std::variant<std::monostate, int64_t, double, std::string, Binary>;

enum class RequestKind : uint8_t {
  language,           // text: SQL, one or more statements
  procedure,          // text: the procedure's name
  cursor_open,        // text: the cursor's name, as in the other cursor requests
  cursor_close,       // the cursor stays allocated
  cursor_drop,        // closes it if need be and deallocates it
  statement_prepare,  // text: the statement's name
  statement_drop,
  administer  // text: an operator's command; answered on operators' sessions only
};

struct Parameter {
  std::string name;
  Value value;
};

struct Request {
  RequestKind kind = RequestKind::language;
  std::string text;
  std::vector<Parameter> parameters;
};

enum class ColumnType : uint8_t {
  text,
  integer,  // within 32 bits
  bigint,
  real,
  binary
};

struct Column {
  std::string name;
  ColumnType type = ColumnType::integer;
  int32_t max_length = 4;  // bytes of the longest value
};

enum class ResultKind : uint8_t { rows, status, parameter, done, succeeded, failed };

// The first three kinds have columns and rows; a status and an output parameter are one row of one column.
struct Result {
  ResultKind kind = ResultKind::done;
  std::vector<Column> columns;
  std::vector<std::vector<Value>> rows;
  int64_t row_count = -1;  // of done: the rows that the command returned or changed, -1 when that means nothing
};

struct Message {
  int32_t number = 0;
  int32_t severity = 0;
  std::string text;
};

struct Reply {
  bool broken_off = false;  // the session ended before the reply came; the rest is empty
  std::vector<Message> messages;
  std::vector<Result> results;
  std::vector<int32_t> fetch_codes;  // what the client's first fetches on this reply are to answer, for tests
};

struct Login {
  std::string user;
  std::string password;
  std::string application;
  bool failover = false;
};

// A logged-in session; destroying it logs out.
class Session {
 public:
  Session() = default;
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;
  virtual ~Session() = default;
  virtual Reply execute(const Request &request) = 0;
  virtual bool alive() const = 0;
  // The client has gone: what execute() is at on another thread need not come to its end. Does not wait for it.
  virtual void abandon() noexcept {}
};

// The number and text of a server's message that there is no memory for a request, which has had no effect.
inline constexpr int32_t message_no_memory = 3113;
inline constexpr const char *no_memory =
    "The server has no memory left for this. Let it work on less at a time, or repeat it later.";

// Opens a session on a server of this process, or on one that the interfaces file names (empty: there is no such file).
// Null when the server cannot be reached or refuses the login; refusal then says what to do about it.
std::unique_ptr<Session> open_session(const std::string &server, const std::string &interfaces_file, const Login &login,
                                      Message &refusal);

}  // namespace zdb
