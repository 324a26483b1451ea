// The authoriser that says no, and the results of what it lets through.
#include "disk/statements.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

#include "disk/statement_memory.h"

namespace zdb {
namespace {

constexpr std::size_t result_bytes_max = 32 << 20;  // of a command's results
constexpr int value_bytes_max = 16 << 20;
constexpr int steps_between_looks = 10'000;
constexpr int32_t integer_size = 4;
constexpr int32_t wide_size = 8;

Value value_of(const Statement &statement, int column) {
  switch (sqlite3_column_type(statement.handle(), column)) {
    case SQLITE_INTEGER:
      return statement.integer(column);
    case SQLITE_FLOAT:
      return sqlite3_column_double(statement.handle(), column);
    case SQLITE_TEXT:
      return statement.text(column);
    case SQLITE_BLOB:
      return Binary{statement.blob(column)};
    default:
      return std::monostate();
  }
}

std::size_t size_of(const Value &value) {
  if (const auto *text = std::get_if<std::string>(&value)) {
    return text->size();
  }
  const auto *binary = std::get_if<Binary>(&value);
  return binary == nullptr ? static_cast<std::size_t>(wide_size) : binary->bytes.size();
}

ColumnType type_of(const Value &value) {
  if (const auto *number = std::get_if<int64_t>(&value)) {
    const bool narrow =
        *number >= std::numeric_limits<int32_t>::min() && *number <= std::numeric_limits<int32_t>::max();
    return narrow ? ColumnType::integer : ColumnType::bigint;
  }
  if (std::holds_alternative<double>(value)) {
    return ColumnType::real;
  }
  return std::holds_alternative<Binary>(value) ? ColumnType::binary : ColumnType::text;
}

bool is_number(ColumnType type) {
  return type == ColumnType::integer || type == ColumnType::bigint || type == ColumnType::real;
}

// The type that takes values of both: the wider one of numbers, else text.
ColumnType common_type(ColumnType left, ColumnType right) {
  if (left == right) {
    return left;
  }
  return is_number(left) && is_number(right) ? std::max(left, right) : ColumnType::text;
}

// A column is typed by its values, as the data are: each row of a table may have a type of its own.
void describe_column(Result &result, std::size_t column) {
  bool typed = false;
  ColumnType type = ColumnType::text;
  std::size_t longest = 1;
  for (const std::vector<Value> &row : result.rows) {
    const Value &value = row[column];
    if (std::holds_alternative<std::monostate>(value)) {
      continue;
    }
    type = typed ? common_type(type, type_of(value)) : type_of(value);
    typed = true;
    longest = std::max(longest, size_of(value));
  }
  Column &described = result.columns[column];
  described.type = type;
  if (type == ColumnType::integer) {
    described.max_length = integer_size;
  } else if (is_number(type)) {
    described.max_length = wide_size;
  } else {
    // A mixed column shows its numbers as text; none takes more than this.
    constexpr std::size_t number_as_text = 32;
    described.max_length = static_cast<int32_t>(type == ColumnType::text ? std::max(longest, number_as_text) : longest);
  }
}

// Names come as they were declared, or as the client wrote them.
bool same_name(const char *name, const char *other) {
  return name != nullptr && sqlite3_stricmp(name, other) == 0;
}

bool is_catalog_table(const char *name) {
  return same_name(name, "sysconfigures") || same_name(name, "systransactions");
}

bool is_own_table(const char *name) {
  return same_name(name, mark_table) || same_name(name, count_table);
}

// None that takes long, or makes a long value of short ones.
bool is_catalog_function(const char *name) {
  constexpr std::array allowed = {"abs", "avg",    "coalesce", "count",  "ifnull", "length", "like",   "lower", "max",
                                  "min", "nullif", "round",    "substr", "sum",    "total",  "typeof", "upper"};
  return std::any_of(allowed.begin(), allowed.end(), [&](const char *known) { return same_name(name, known); });
}

bool changes_tables(int action) {
  switch (action) {
    case SQLITE_CREATE_TABLE:
    case SQLITE_DROP_TABLE:
    case SQLITE_ALTER_TABLE:
    case SQLITE_CREATE_INDEX:
    case SQLITE_DROP_INDEX:
    case SQLITE_CREATE_VIEW:
    case SQLITE_DROP_VIEW:
    case SQLITE_CREATE_TRIGGER:
    case SQLITE_DROP_TRIGGER:
    case SQLITE_REINDEX:
    case SQLITE_ANALYZE:
      return true;
    default:
      return false;
  }
}

// For a statement's results, and those that end a reply. Before it runs, so that one that was carried out is not
// answered as failed for want of memory.
void make_room(std::vector<Result> &results) {
  constexpr std::size_t most = 3 + 2;
  if (results.capacity() < results.size() + most) {
    results.reserve(2 * results.size() + most);
  }
}

constexpr const char *unknown_kind = "This kind of statement is not allowed on this server.";
constexpr const char *read_only_catalog = "The catalog cannot be changed by SQL. Use zdbd --admin.";

}  // namespace

void TimeLimit::begin(int64_t limit) {
  end_.reset();
  if (limit > 0) {
    end_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit);
  }
}

const char *TimeLimit::reason() const {
  return end_ && std::chrono::steady_clock::now() > *end_
             ? "The statement takes longer than the server's statement time-out. Let it do less, or raise the time-out."
             : nullptr;
}

SqlConnection::SqlConnection(const std::string &file) : database_(file, &capture_) {
  sqlite3_set_authorizer(database_.handle(), authorise, this);
  sqlite3_db_config(database_.handle(), SQLITE_DBCONFIG_DQS_DML, 1, nullptr);  // "text" is a text, as clients write it
  sqlite3_db_config(database_.handle(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_limit(database_.handle(), SQLITE_LIMIT_LENGTH, value_bytes_max);
  constexpr int flags = SQLITE_UTF8 | SQLITE_INNOCUOUS;  // as the one that it stands for
  sqlite3_create_function(database_.handle(), "total_changes", 0, flags, this, total_changes, nullptr, nullptr);
  sqlite3_progress_handler(database_.handle(), steps_between_looks, look_for_stop, this);
}

// Between two looks no more than this many steps pass over values of this size.
void SqlConnection::limit_to_catalog() {
  constexpr int text_max = 1 << 16;
  constexpr int steps = 100;
  sqlite3 *handle = database_.handle();
  sqlite3_limit(handle, SQLITE_LIMIT_LENGTH, text_max);
  sqlite3_limit(handle, SQLITE_LIMIT_SQL_LENGTH, text_max);
  sqlite3_limit(handle, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 255);
  sqlite3_limit(handle, SQLITE_LIMIT_COLUMN, 100);
  sqlite3_progress_handler(handle, steps, look_for_stop, this);
}

// Our own statements always come to their end: a commit must not be torn apart.
int SqlConnection::look_for_stop(void *self) {
  auto &connection = *static_cast<SqlConnection *>(self);
  const char *reason = connection.running_ ? connection.around_->stop() : nullptr;
  if (reason == nullptr) {
    return 0;
  }
  connection.refusal_ = reason;
  return 1;
}

int SqlConnection::authorise(void *self, int action, const char *table, const char *part, const char *schema,
                             const char *) {
  auto &connection = *static_cast<SqlConnection *>(self);
  if (!connection.clients_turn_) {
    return SQLITE_OK;
  }
  if (action == SQLITE_ANALYZE && same_name(table, mark_table)) {
    return SQLITE_IGNORE;  // when all tables are analysed, it is left out
  }
  const char *refusal = connection.refusal_of(action, table, part, schema);
  connection.asks_for_changes_ =
      connection.asks_for_changes_ || (action == SQLITE_FUNCTION && same_name(part, "changes"));
  if (refusal == nullptr) {
    connection.changes_tables_ = connection.changes_tables_ || changes_tables(action);
    return SQLITE_OK;
  }
  connection.refusal_ = refusal;
  return SQLITE_DENY;
}

// Null for what may be said. Some actions name the table in the second place.
const char *SqlConnection::refusal_of(int action, const char *table, const char *part, const char *schema) const {
  const char *own = is_own_table(table) || is_own_table(part) ? "This table is the server's own." : nullptr;
  if (changes_tables(action)) {
    if (same_name(schema, "temp")) {
      return unknown_kind;  // the connection is somebody else's afterwards
    }
    return place_ == Place::catalog ? read_only_catalog : own;
  }
  switch (action) {
    case SQLITE_SELECT:
    case SQLITE_RECURSIVE:
      return nullptr;
    case SQLITE_FUNCTION:
      return place_ != Place::catalog || is_catalog_function(part)
                 ? nullptr
                 : "This function cannot be used in a query of the catalog.";
    case SQLITE_READ:
      if (place_ == Place::catalog) {
        return is_catalog_table(table) ? nullptr : "Of the catalog only sysconfigures and systransactions can be read.";
      }
      return own;
    case SQLITE_INSERT:
    case SQLITE_UPDATE:
    case SQLITE_DELETE:
      return place_ == Place::catalog ? read_only_catalog : own;
    case SQLITE_TRANSACTION:
    case SQLITE_SAVEPOINT:
      return "Transactions are begun and ended by the transaction manager, not by SQL.";
    default:
      return unknown_kind;
  }
}

SqlOutcome SqlConnection::run(Place place, const std::string &sql, const Around &around) {
  if (sql.find('\0') != std::string::npos) {
    return sql_failure(message_bad_query, "There is a zero byte in the command.");
  }
  place_ = place;
  around_ = &around;
  result_bytes_ = 0;
  SqlOutcome outcome;
  const StatementMemory bounded;
  try {
    // With the zero at its end, or each statement would be copied with all that follow it.
    run_statements({sql.c_str(), sql.size() + 1}, around, outcome);
  } catch (const SqliteError &error) {
    outcome.messages.push_back(message_of(error));
    outcome.failed = true;
  } catch (const StoreError &error) {
    outcome.messages.push_back({error.number, error_severity, error.what()});
    outcome.failed = true;
  } catch (const std::bad_alloc &) {
    outcome.messages.push_back({message_no_memory, error_severity, no_memory});
    outcome.failed = true;
  }
  return outcome;
}

void SqlConnection::run_statements(std::string_view sql, const Around &around, SqlOutcome &outcome) {
  while (sql.size() > 1) {
    if (const char *reason = around.stop()) {
      throw StoreError(message_interrupted, reason);
    }
    refusal_ = nullptr;
    changes_tables_ = asks_for_changes_ = false;
    clients_turn_ = true;
    const TurnOver turn_over{*this};
    Statement statement(database_, sql, &sql);
    if (statement) {
      run_statement(statement, around, outcome);
    }
  }
}

void SqlConnection::run_statement(Statement &statement, const Around &around, SqlOutcome &outcome) {
  const bool writes = sqlite3_stmt_readonly(statement.handle()) == 0 && sqlite3_stmt_isexplain(statement.handle()) == 0;
  result_bytes_ += 3 * sizeof(Result);  // in the reply, even when it has no rows
  require_room();
  clients_turn_ = false;
  make_room(outcome.results);
  around.before(writes);
  const CountsTurn counts(*this, writes);
  const int64_t changes_before = sqlite3_total_changes64(database_.handle());
  const bool returns = writes && sqlite3_column_count(statement.handle()) > 0;
  Result result = returns ? rows_or_nothing(statement) : rows_of(statement);
  const int64_t changes = sqlite3_total_changes64(database_.handle()) - changes_before;
  const int64_t changed = changes_tables_ ? -1 : changes;
  const int64_t count = result.columns.empty() ? changed : static_cast<int64_t>(result.rows.size());
  around.after();
  if (!result.columns.empty()) {
    for (std::size_t column = 0; column < result.columns.size(); ++column) {
      describe_column(result, column);
    }
    outcome.results.push_back(std::move(result));
  }
  outcome.results.push_back({ResultKind::succeeded, {}, {}});
  outcome.results.push_back({ResultKind::done, {}, {}, count});
}

// A change that returns more than a reply takes must not stay: its rows are there before the first is returned.
Result SqlConnection::rows_or_nothing(Statement &statement) {
  if (place_ == Place::branch) {
    return rows_in_savepoint(statement);
  }
  try {
    return rows_of(statement);
  } catch (const SqliteError &) {
    throw;
  } catch (...) {
    undo_alone(statement);
    throw;
  }
}

// A statement that commits by itself and is interrupted is undone as a whole. The step would begin one that has not.
void SqlConnection::undo_alone(Statement &statement) {
  if (sqlite3_stmt_busy(statement.handle()) == 0) {
    return;
  }
  sqlite3_interrupt(database_.handle());
  try {
    statement.step();
  } catch (const SqliteError &) {
    return;
  }
}

Result SqlConnection::rows_in_savepoint(Statement &statement) {
  database_.execute("SAVEPOINT zdb_rows");
  try {
    Result result = rows_of(statement);
    database_.execute("RELEASE zdb_rows");
    return result;
  } catch (const std::exception &error) {
    clients_turn_ = running_ = false;
    statement.reset();
    if (database_.in_transaction()) {
      const bool failed = dynamic_cast<const SqliteError *>(&error) != nullptr;  // it has undone what it must by itself
      database_.execute(failed ? "RELEASE zdb_rows" : "ROLLBACK TO zdb_rows; RELEASE zdb_rows");
    }
    throw;
  }
}

void SqlConnection::require_room() const {
  if (result_bytes_ > result_bytes_max) {
    throw StoreError(message_result_too_large, "The result is too large. Ask for fewer rows at a time.");
  }
}

// Runs the statement to its end.
Result SqlConnection::rows_of(Statement &statement) {
  // The statement may have to be prepared again, which asks the authoriser.
  clients_turn_ = running_ = true;
  Result result{ResultKind::rows, {}, {}};
  const int columns = sqlite3_column_count(statement.handle());
  for (int column = 0; column < columns; ++column) {
    const char *name = sqlite3_column_name(statement.handle(), column);
    result.columns.push_back({name == nullptr ? "" : name, ColumnType::text, 1});
  }
  while (statement.step()) {
    std::vector<Value> row;
    row.reserve(result.columns.size());
    for (int column = 0; column < columns; ++column) {
      row.push_back(value_of(statement, column));
      result_bytes_ += sizeof(Value) + size_of(row.back());
    }
    require_room();
    result.rows.push_back(std::move(row));
  }
  clients_turn_ = running_ = false;
  return result;
}

// ---- Counts ---------------------------------------------------------------------------------------------------------

SqlConnection::CountsTurn::CountsTurn(SqlConnection &its_connection, bool it_writes)
    : connection(its_connection), writes(it_writes) {
  if (connection.around_->counts != nullptr) {
    connection.give_counts(*connection.around_->counts);
  }
}

SqlConnection::CountsTurn::~CountsTurn() {
  if (connection.around_->counts != nullptr) {
    connection.take_counts(*connection.around_->counts, writes && !connection.changes_tables_);
  }
}

void SqlConnection::give_counts(const SqlCounts &counts) {
  sqlite3 *const handle = database_.handle();
  if (asks_for_changes_ && sqlite3_changes64(handle) != counts.changes) {
    give_changes(counts.changes);
  }
  sqlite3_set_last_insert_rowid(handle, counts.last_rowid);
  total_before_ = counts.total_changes - sqlite3_total_changes64(handle);
}

// SQLite takes no number for changes(), it only counts. A function of our own would not know whether a trigger calls
// it, where the trigger's changes count. Takes time for a large number, so it can be stopped as the statement itself.
void SqlConnection::give_changes(int64_t count) {
  running_ = true;
  database_.execute("CREATE TEMP TABLE IF NOT EXISTS zdb_count (row)");
  if (count > 0) {
    Statement(database_,
              "WITH RECURSIVE up (row) AS (SELECT 1 UNION ALL SELECT row + 1 FROM up LIMIT ?) "
              "INSERT INTO temp.zdb_count SELECT row FROM up")
        .bind(1, count)
        .run();
  }
  database_.execute("DELETE FROM temp.zdb_count");
}

// Counted: the statement has set changes().
void SqlConnection::take_counts(SqlCounts &counts, bool counted) const {
  sqlite3 *const handle = database_.handle();
  counts.last_rowid = sqlite3_last_insert_rowid(handle);
  counts.total_changes = total_before_ + sqlite3_total_changes64(handle);
  if (counted) {
    counts.changes = sqlite3_changes64(handle);
  }
}

void SqlConnection::total_changes(sqlite3_context *call, int, sqlite3_value **) {
  const auto &connection = *static_cast<const SqlConnection *>(sqlite3_user_data(call));
  sqlite3_result_int64(call, connection.total_before_ + sqlite3_total_changes64(connection.database_.handle()));
}

Message SqlConnection::message_of(const SqliteError &error) const {
  switch (error.code & 0xFF) {
    case SQLITE_ERROR:  // a function that is refused is no more than a bad name to SQLite
      return {refusal_ == nullptr ? message_bad_query : message_not_allowed, error_severity,
              refusal_ == nullptr ? error.what() : refusal_};
    case SQLITE_AUTH:
      return {message_not_allowed, error_severity, refusal_ == nullptr ? error.what() : refusal_};
    case SQLITE_INTERRUPT:
      return {message_interrupted, error_severity, refusal_ == nullptr ? error.what() : refusal_};
    case SQLITE_BUSY:
      return {
          message_data_changed, error_severity,
          "The data that the branch has read were changed by another one since. Roll the branch back and repeat it."};
    case SQLITE_NOMEM:
      return {message_no_memory, error_severity, no_memory};
    case SQLITE_FULL:
    case SQLITE_IOERR:
    case SQLITE_CORRUPT:
    case SQLITE_READONLY:
      return {message_storage, error_severity,
              std::string("The server cannot store or read its data (") + error.what() + "). Look at its disk."};
    default:
      return {message_bad_query, error_severity, error.what()};
  }
}

}  // namespace zdb
