// SQLite's handles as owners, and its error codes as exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zdb {

class PageCapture;

class SqliteError : public std::runtime_error {
 public:
  SqliteError(int result, const std::string &text) : std::runtime_error(text), code(result) {}
  int code;  // an extended result code
};

// One database connection. Used by one thread at a time.
class Database {
 public:
  // Opens an existing file (or makes it), ready for many connections to one file. A capture, which outlives the
  // database, sees its transactions. Throws SqliteError.
  explicit Database(const std::string &file, PageCapture *capture = nullptr);

  sqlite3 *handle() const { return handle_.get(); }
  // Runs statements that return nothing of interest.
  void execute(const char *sql) const;
  bool in_transaction() const { return sqlite3_get_autocommit(handle()) == 0; }
  // Undoes the open transaction, if there is one. False when it is still open: the connection must be closed then.
  bool roll_back() const noexcept;
  // The error that the last call met.
  SqliteError error(int code) const;

 private:
  struct Close {
    void operator()(sqlite3 *handle) const { sqlite3_close_v2(handle); }
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

// One prepared statement; its database outlives it.
class Statement {
 public:
  // Prepares the first statement of the text; rest then begins behind it. Empty for white space and comments.
  Statement(const Database &database, std::string_view sql, std::string_view *rest = nullptr);

  explicit operator bool() const { return handle_ != nullptr; }
  sqlite3_stmt *handle() const { return handle_.get(); }
  Statement &bind(int place, int64_t value);
  Statement &bind(int place, const std::string &text);
  Statement &bind_blob(int place, const std::string &bytes);
  Statement &bind_null(int place);
  Statement &bind_value(int place, const sqlite3_value *value);
  // True when there is a row, false at the end; throws SqliteError.
  bool step();
  // Runs it to its end.
  void run();
  // Back to before the first step; the values stay bound.
  void reset() { sqlite3_reset(handle()); }
  int64_t integer(int column) const { return sqlite3_column_int64(handle(), column); }
  std::string text(int column) const;
  std::string blob(int column) const;
  bool is_null(int column) const { return sqlite3_column_type(handle(), column) == SQLITE_NULL; }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt *handle) const { sqlite3_finalize(handle); }
  };
  void check(int code) const;

  const Database *database_;
  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

}  // namespace zdb
