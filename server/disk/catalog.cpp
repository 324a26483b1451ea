// Every change is one transaction, synced to the disk before it returns.
#include "disk/catalog.h"

#include <algorithm>

#include "dtm/dtm_protocol.h"

namespace zdb {
namespace {

constexpr const char *schema = R"(
  CREATE TABLE sysconfigures (name TEXT NOT NULL PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
  INSERT INTO sysconfigures VALUES ('enable DTM', 1), ('lock timeout', 5000), ('orphan age', 600);
  CREATE TABLE syslogins (name TEXT NOT NULL PRIMARY KEY, hash TEXT NOT NULL, dtm_role INTEGER NOT NULL) WITHOUT ROWID;
  CREATE TABLE branch_journal (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    xactname TEXT NOT NULL UNIQUE,
    state INTEGER NOT NULL,
    since INTEGER NOT NULL,
    pages BLOB NOT NULL,
    writing INTEGER NOT NULL DEFAULT 0);
  PRAGMA user_version = 1;
)";

constexpr int64_t version = 1;

// More than there ever are between two writes: one that is noted after a commit must not fail for want of memory.
constexpr std::size_t leftovers_max = 16;

// The journal of the first version kept changes of rows.
constexpr const char *from_first_version = R"(
  ALTER TABLE branch_journal RENAME COLUMN changes TO pages;
  ALTER TABLE branch_journal ADD COLUMN writing INTEGER NOT NULL DEFAULT 0;
  UPDATE branch_journal SET pages = x'';
  PRAGMA user_version = 1;
)";

int64_t number(const Database &database, const char *query) {
  Statement statement(database, query);
  return statement.step() ? statement.integer(0) : 0;
}

int64_t now_in_seconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(Clock::now().time_since_epoch()).count();
}

}  // namespace

void Catalog::create(const std::string &file) {
  const Database database(file);
  database.execute(schema);
}

Catalog::Catalog(const std::string &file) : database_(file) {
  const int64_t found = number(database_, "PRAGMA user_version");
  if (found > version) {
    throw std::runtime_error(file + " was made by a newer zdbd. Start that one");
  }
  old_ = found < version;
  leftovers_.reserve(leftovers_max);
  last_id_ = number(database_, "SELECT seq FROM sqlite_sequence WHERE name = 'branch_journal'");
  Statement logins(database_, "SELECT name, hash, dtm_role FROM syslogins");
  while (logins.step()) {
    logins_[logins.text(0)] = {logins.text(1), logins.integer(2) != 0};
  }
  Statement settings(database_, "SELECT name, value FROM sysconfigures");
  while (settings.step()) {
    settings_[settings.text(0)] = settings.integer(1);
  }
}

// Runs the action as one transaction under the mutex, which takes the journal's leftovers along.
template <typename Action>
auto Catalog::write(Action action) {
  const std::lock_guard<std::mutex> lock(mutex_);
  try {
    database_.execute("BEGIN IMMEDIATE");
    struct Undo {
      Database &database;
      ~Undo() { database.roll_back(); }
    } const undo{database_};
    clear_leftovers();
    auto result = action();
    database_.execute("COMMIT");
    leftovers_.clear();
    return result;
  } catch (const SqliteError &error) {
    throw StoreError(message_storage,
                     std::string("The server cannot write its catalog (") + error.what() + "). Look at its disk.");
  }
}

void Catalog::set_login(const std::string &user, const Login &login) {
  write([&] {
    Statement(database_, "INSERT OR REPLACE INTO syslogins VALUES (?, ?, ?)")
        .bind(1, user)
        .bind(2, login.hash)
        .bind(3, login.dtm_role ? 1 : 0)
        .run();
    return true;
  });
  const std::lock_guard<std::mutex> lock(memory_mutex_);
  logins_[user] = login;
}

bool Catalog::drop_login(const std::string &user) {
  write([&] {
    Statement(database_, "DELETE FROM syslogins WHERE name = ?").bind(1, user).run();
    return true;
  });
  const std::lock_guard<std::mutex> lock(memory_mutex_);
  return logins_.erase(user) > 0;
}

std::optional<Catalog::Login> Catalog::login(const std::string &user) const {
  const std::lock_guard<std::mutex> lock(memory_mutex_);
  const auto found = logins_.find(user);
  return found == logins_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<User> Catalog::users() const {
  const std::lock_guard<std::mutex> lock(memory_mutex_);
  std::vector<User> all;
  for (const auto &[name, login] : logins_) {
    all.push_back({name, login.dtm_role});
  }
  return all;
}

std::optional<int64_t> Catalog::setting(const std::string &name) const {
  const std::lock_guard<std::mutex> lock(memory_mutex_);
  const auto found = settings_.find(name);
  return found == settings_.end() ? std::nullopt : std::optional(found->second);
}

void Catalog::set_setting(const std::string &name, std::optional<int64_t> value) {
  write([&] {
    if (value) {
      Statement(database_, "INSERT OR REPLACE INTO sysconfigures VALUES (?, ?)").bind(1, name).bind(2, *value).run();
    } else {
      Statement(database_, "DELETE FROM sysconfigures WHERE name = ?").bind(1, name).run();
    }
    return true;
  });
  const std::lock_guard<std::mutex> lock(memory_mutex_);
  if (value) {
    settings_[name] = *value;
  } else {
    settings_.erase(name);
  }
}

// ---- The journal ----------------------------------------------------------------------------------------------------

void Catalog::bring_up() {
  write([&] {
    database_.execute(from_first_version);
    return true;
  });
  old_ = false;
}

std::vector<JournalRow> Catalog::journal() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<JournalRow> rows;
  Statement statement(
      database_, old_ ? "SELECT id, xactname, state, since, changes <> x'', 0 FROM branch_journal ORDER BY id"
                      : "SELECT id, xactname, state, since, pages <> x'', writing FROM branch_journal ORDER BY id");
  while (statement.step()) {
    rows.push_back({statement.integer(0), statement.text(1), static_cast<int32_t>(statement.integer(2)),
                    Clock::time_point(std::chrono::seconds(statement.integer(3))), statement.integer(4) != 0,
                    statement.integer(5) != 0});
  }
  return rows;
}

std::string Catalog::pages_of(int64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Statement statement(database_, "SELECT pages FROM branch_journal WHERE id = ?");
  statement.bind(1, id);
  return statement.step() ? statement.blob(0) : std::string();
}

void Catalog::give_ids_above(int64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  last_id_ = std::max(last_id_, id);
}

int64_t Catalog::new_id() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return ++last_id_;
}

// Inside a transaction, under the mutex.
void Catalog::clear_leftovers() {
  for (const Leftover &leftover : leftovers_) {
    Statement(database_, leftover.row_goes ? "DELETE FROM branch_journal WHERE id = ?"
                                           : "UPDATE branch_journal SET pages = x'' WHERE id = ?")
        .bind(1, leftover.id)
        .run();
  }
}

void Catalog::enter(int64_t id, const std::string &branch, const std::string &pages) {
  write([&] {
    Statement(database_, "INSERT INTO branch_journal (id, xactname, state, since, pages) VALUES (?, ?, ?, ?, ?)")
        .bind(1, id)
        .bind(2, branch)
        .bind(3, DTM_STATE_PREPARED)
        .bind(4, now_in_seconds())
        .bind_blob(5, pages)
        .run();
    return true;
  });
}

void Catalog::begin_writing(int64_t id) {
  write([&] {
    Statement(database_, "UPDATE branch_journal SET writing = 1 WHERE id = ?").bind(1, id).run();
    return true;
  });
}

void Catalog::clear_pages(int64_t id) {
  write([&] {
    Statement(database_, "UPDATE branch_journal SET pages = x'', writing = 0 WHERE id = ?").bind(1, id).run();
    return true;
  });
}

void Catalog::set_state(int64_t id, int32_t state) {
  write([&] {
    Statement(database_, "UPDATE branch_journal SET state = ?, since = ? WHERE id = ?")
        .bind(1, state)
        .bind(2, now_in_seconds())
        .bind(3, id)
        .run();
    return true;
  });
}

void Catalog::remove(int64_t id) {
  write([&] {
    Statement(database_, "DELETE FROM branch_journal WHERE id = ?").bind(1, id).run();
    return true;
  });
}

void Catalog::remove_later(int64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  leftovers_.push_back({id, true});
}

void Catalog::clear_pages_later(int64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  leftovers_.push_back({id, false});
}

void Catalog::settle() {
  write([] { return true; });
  const std::lock_guard<std::mutex> lock(mutex_);
  database_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

}  // namespace zdb
