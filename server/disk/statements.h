// Runs clients' SQL on a connection and lays its results out as a reply has them. What a client must not
// say (a statement about transactions, files or the server's own tables) is refused when it is prepared.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "disk/page_capture.h"
#include "disk/sqlite.h"
#include "store/store.h"

namespace zdb {

// Where SQL runs.
enum class Place : uint8_t { branch, alone, catalog };

// The server's own table among the data.
inline constexpr const char *mark_table = "zdb_mark";
// Each connection's own, among its temporary tables.
inline constexpr const char *count_table = "zdb_count";

// The operator's limit on the time that one statement runs.
class TimeLimit {
 public:
  // In milliseconds; 0: none.
  void begin(int64_t limit);
  void end() { end_.reset(); }
  // Null, or why the statement must not go on.
  const char *reason() const;

 private:
  std::optional<std::chrono::steady_clock::time_point> end_;
};

// A connection that clients' SQL runs on; it does not move, since SQLite keeps its address.
class SqlConnection {
 public:
  explicit SqlConnection(const std::string &file);
  SqlConnection(const SqlConnection &) = delete;
  SqlConnection &operator=(const SqlConnection &) = delete;

  Database &database() { return database_; }
  PageCapture &capture() { return capture_; }
  // For queries of the catalog, which are short: no value and no text of theirs is long.
  void limit_to_catalog();

  struct Around {
    // What is done around each statement. Both may throw StoreError or SqliteError, which ends the command.
    std::function<void(bool writes)> before;
    std::function<void()> after;
    // Asked now and then while a statement runs: null, or why it must not go on.
    std::function<const char *()> stop;
    // The session's, or null when nobody asks for them.
    SqlCounts *counts = nullptr;
  };
  SqlOutcome run(Place place, const std::string &sql, const Around &around);

 private:
  static int authorise(void *self, int action, const char *table, const char *part, const char *schema,
                       const char *trigger);
  static int look_for_stop(void *self);
  const char *refusal_of(int action, const char *table, const char *part, const char *schema) const;
  void require_room() const;
  void run_statements(std::string_view sql, const Around &around, SqlOutcome &outcome);
  void run_statement(Statement &statement, const Around &around, SqlOutcome &outcome);
  Result rows_of(Statement &statement);
  Result rows_or_nothing(Statement &statement);
  Result rows_in_savepoint(Statement &statement);
  void undo_alone(Statement &statement);
  void give_counts(const SqlCounts &counts);
  void give_changes(int64_t count);
  void take_counts(SqlCounts &counts, bool counted) const;
  static void total_changes(sqlite3_context *call, int, sqlite3_value **);
  Message message_of(const SqliteError &error) const;

  // Ends a client's turn, however its statement ends.
  struct TurnOver {
    SqlConnection &connection;
    ~TurnOver() { connection.clients_turn_ = connection.running_ = false; }
  };

  // The session's counts are the connection's while its statement runs.
  struct CountsTurn {
    CountsTurn(SqlConnection &connection, bool writes);
    ~CountsTurn();
    CountsTurn(const CountsTurn &) = delete;
    CountsTurn &operator=(const CountsTurn &) = delete;
    SqlConnection &connection;
    const bool writes;
  };

  PageCapture capture_;
  Database database_;
  Place place_ = Place::alone;
  const Around *around_ = nullptr;  // of the command that runs
  bool clients_turn_ = false;       // a client's statement is prepared or runs; our own are not looked at
  bool running_ = false;            // the client's statement runs
  bool changes_tables_ = false;     // the statement does
  bool asks_for_changes_ = false;   // it calls changes()
  int64_t total_before_ = 0;        // the session's total_changes(), less the connection's own
  std::size_t result_bytes_ = 0;    // of the command so far
  const char *refusal_ = nullptr;   // why the statement was refused or stopped
};

}  // namespace zdb
