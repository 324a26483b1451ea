// Thin, but for the opening of a file: every connection writes ahead and may wait for no other one.
#include "disk/sqlite.h"

#include "disk/watched_files.h"

namespace zdb {

Database::Database(const std::string &file, PageCapture *capture) {
  const CaptureScope scope(capture);
  sqlite3 *handle = nullptr;
  constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  const int code = sqlite3_open_v2(file.c_str(), &handle, flags, watched_files());
  handle_.reset(handle);
  if (code != SQLITE_OK) {
    throw SqliteError(code, "cannot open " + file + ": " + sqlite3_errstr(code));
  }
  sqlite3_busy_timeout(handle, 1000);  // only a checkpoint may be in the way, for a moment
  // A checkpoint is rare, and large enough that its syncs do not count per transaction.
  execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 4000;");
  execute("SELECT count(*) FROM sqlite_schema");  // opens the log now, whatever the file was like
}

void Database::execute(const char *sql) const {
  const int code = sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) {
    throw error(code);
  }
}

bool Database::roll_back() const noexcept {
  if (in_transaction()) {
    sqlite3_exec(handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
  return !in_transaction();
}

SqliteError Database::error(int code) const {
  return {code, sqlite3_errmsg(handle())};
}

Statement::Statement(const Database &database, std::string_view sql, std::string_view *rest) : database_(&database) {
  sqlite3_stmt *handle = nullptr;
  const char *tail = nullptr;
  check(sqlite3_prepare_v2(database.handle(), sql.data(), static_cast<int>(sql.size()), &handle, &tail));
  handle_.reset(handle);
  if (rest != nullptr) {
    *rest = sql.substr(static_cast<std::size_t>(tail - sql.data()));
  }
}

void Statement::check(int code) const {
  if (code != SQLITE_OK) {
    throw database_->error(code);
  }
}

Statement &Statement::bind(int place, int64_t value) {
  check(sqlite3_bind_int64(handle(), place, value));
  return *this;
}

Statement &Statement::bind(int place, const std::string &text) {
  check(sqlite3_bind_text64(handle(), place, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
  return *this;
}

Statement &Statement::bind_blob(int place, const std::string &bytes) {
  check(sqlite3_bind_blob64(handle(), place, bytes.data(), bytes.size(), SQLITE_TRANSIENT));
  return *this;
}

Statement &Statement::bind_null(int place) {
  check(sqlite3_bind_null(handle(), place));
  return *this;
}

Statement &Statement::bind_value(int place, const sqlite3_value *value) {
  check(sqlite3_bind_value(handle(), place, value));
  return *this;
}

bool Statement::step() {
  const int code = sqlite3_step(handle());
  if (code == SQLITE_ROW) {
    return true;
  }
  if (code != SQLITE_DONE) {
    throw database_->error(code);
  }
  return false;
}

void Statement::run() {
  while (step()) {
  }
}

std::string Statement::text(int column) const {
  const auto *bytes = reinterpret_cast<const char *>(sqlite3_column_text(handle(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle(), column));
  return bytes == nullptr ? std::string() : std::string(bytes, size);
}

std::string Statement::blob(int column) const {
  const auto *bytes = static_cast<const char *>(sqlite3_column_blob(handle(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(handle(), column));
  return bytes == nullptr ? std::string() : std::string(bytes, size);
}

}  // namespace zdb
