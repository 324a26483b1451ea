// Connections are kept for the next user, since opening one reads the whole schema.
#include "disk/data_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "disk/storage_failure.h"
#include "steps/crash_points.h"

namespace zdb {
namespace {

constexpr std::size_t idle_max = 8;
constexpr const char *mark_schema =
    "CREATE TABLE zdb_mark (slot INTEGER PRIMARY KEY CHECK (slot = 1), journal_id INTEGER NOT NULL)";

std::string log_path(const std::string &file) {
  return file + "-wal";
}

bool log_is_empty(const std::string &file) {
  std::error_code failure;
  const auto size = std::filesystem::file_size(log_path(file), failure);
  return failure == std::errc::no_such_file_or_directory || (!failure && size == 0);
}

void sync_path(const std::string &path) {
  const int handle = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (handle < 0) {
    throw StoreError(message_storage, "The server cannot open " + path + " (" + std::strerror(errno) + ").");
  }
  crash_point();
  if (fsync(handle) != 0) {
    end_after_storage_failure("cannot sync " + path + ": " + std::strerror(errno));
  }
  crash_point();
  close(handle);
}

}  // namespace

void DataFile::create(const std::string &file) {
  const Database database(file);
  database.execute(mark_schema);
}

DataFile::DataFile(std::string file) : file_(std::move(file)) {
  idle_.reserve(idle_max);
}

// ---- Users of the file ----------------------------------------------------------------------------------------------

std::unique_ptr<SqlConnection> DataFile::connect() {
  try {
    return std::make_unique<SqlConnection>(file_);
  } catch (const SqliteError &error) {
    throw StoreError(message_storage, std::string("The server cannot open its data (") + error.what() + ").");
  }
}

SqlConnection &DataFile::use(DataSlot &slot) {
  Lock lock(mutex_);
  changed_.wait(lock, [this] { return !closed_; });
  slots_.insert(&slot);
  slot.in_use = true;
  if (slot.connection == nullptr && !idle_.empty()) {
    slot.connection = std::move(idle_.back());
    idle_.pop_back();
  }
  if (slot.connection != nullptr) {
    return *slot.connection;
  }
  lock.unlock();
  try {
    slot.connection = connect();
  } catch (...) {
    give_back(slot);
    throw;
  }
  return *slot.connection;
}

void DataFile::rest(DataSlot &slot) {
  const Lock lock(mutex_);
  slot.in_use = false;
  changed_.notify_all();
}

// A connection that does not get out of its transaction is closed: the next user must not find it open. This needs no
// memory: what has been committed by now must not look as if it had failed.
void DataFile::give_back(DataSlot &slot) {
  Lock lock(mutex_);
  slot.in_use = true;
  lock.unlock();
  if (slot.connection != nullptr && !slot.connection->database().roll_back()) {
    slot.connection.reset();
  }
  lock.lock();
  if (slot.connection != nullptr && !closed_ && idle_.size() < idle_max) {
    idle_.push_back(std::move(slot.connection));
  }
  slot.connection.reset();
  slot.in_use = false;
  slots_.erase(&slot);
  changed_.notify_all();
}

int64_t DataFile::mark() {
  DataTurn turn(*this);
  Statement statement(turn.database(), "SELECT journal_id FROM zdb_mark");
  return statement.step() ? statement.integer(0) : 0;
}

void DataFile::settle() {
  DataTurn turn(*this);
  turn.database().execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

// ---- Putting pages in -----------------------------------------------------------------------------------------------

bool DataFile::wait_until_nobody(Lock &lock, std::chrono::milliseconds limit) {
  return changed_.wait_for(lock, limit, [this] {
    return std::none_of(slots_.begin(), slots_.end(), [](const DataSlot *slot) { return slot->in_use; });
  });
}

// Closes all connections; the file must be closed_ to others.
void DataFile::clear_file(Lock &lock, std::chrono::milliseconds limit) {
  bool nobody = wait_until_nobody(lock, limit);
  if (!nobody) {
    must_stop_ = true;
    nobody = wait_until_nobody(lock, limit);
    must_stop_ = false;
  }
  if (!nobody) {
    throw StoreError(message_lock_timeout,
                     "Statements that do not end keep the server from committing the branch. Try again later.");
  }
  for (DataSlot *slot : slots_) {
    slot->taken_away = slot->connection != nullptr && slot->connection->database().in_transaction();
    slot->connection.reset();
  }
  idle_.clear();
}

// What the log holds must be in the file before pages are put in: it would win over them. SQLite syncs neither a log
// that it has emptied nor the folder that it has removed one from, since it could as well do its work once more; here a
// log that comes back after a cut of power would undo a commit.
void DataFile::empty_log() {
  try {
    const Database database(file_);
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    if (log_is_empty(file_)) {
      sync_path(log_path(file_));
      sync_path(std::filesystem::path(file_).parent_path());
    }
  } catch (const SqliteError &error) {
    throw StoreError(message_storage, std::string("The server cannot empty its log (") + error.what() + ").");
  }
  if (!log_is_empty(file_)) {
    throw StoreError(message_storage, "The server cannot empty its log " + log_path(file_) + ".");
  }
}

void DataFile::put_in(const PageImages &images, std::chrono::milliseconds limit, const std::function<void()> &first) {
  Lock lock(mutex_);
  closed_ = true;
  struct Open {
    DataFile &data;
    ~Open() {
      data.closed_ = false;
      data.changed_.notify_all();
    }
  } const open{*this};
  clear_file(lock, limit);
  empty_log();
  first();
  write_pages(file_, images);
}

void DataFile::put_in_again(const PageImages &images) {
  if (!log_is_empty(file_)) {
    throw std::runtime_error(
        log_path(file_) + " was not there when " + file_ +
        " was last written. Take both away from here, and put the files of a backup in their place");
  }
  write_pages(file_, images);
}

void set_mark(const Database &database, int64_t journal_id) {
  Statement(database,
            "INSERT INTO zdb_mark VALUES (1, ?) ON CONFLICT (slot) DO UPDATE SET journal_id = excluded.journal_id")
      .bind(1, journal_id)
      .run();
}

}  // namespace zdb
