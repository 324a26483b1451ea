/* disk_work.cpp - what each step of a branch's life does to its transaction and to the journal; see the header. */
#include "disk_work.h"

#include "sql_text.h"
#include "zdb_control.h"

namespace zdb {
namespace {

int refuse_conflict(void *, int, sqlite3_changeset_iter *) {
  return SQLITE_CHANGESET_ABORT;
}

StoreError storage_error(const std::string &what, const std::string &why) {
  return {message_storage, what + " (" + why + "). Look at the server's disk."};
}

}  // namespace

DiskWork::DiskWork(DiskParts parts, std::string branch)
    : parts_(std::move(parts)), branch_(std::move(branch)), hold_(parts_.data.write_lock()) {}

/* What is prepared stays in the journal for the next start. */
DiskWork::~DiskWork() {
  end_transaction();
}

void DiskWork::take_up(const JournalRow &row) {
  journal_id_ = row.id;
  if (row.changes.empty()) {
    return;
  }
  try {
    before_statement(true);
    std::string changes = row.changes;
    const int code = sqlite3changeset_apply(connection_->database().handle(), static_cast<int>(changes.size()),
                                            changes.data(), nullptr, refuse_conflict, nullptr);
    if (code != SQLITE_OK) {
      throw SqliteError(code, sqlite3_errstr(code));
    }
  } catch (const SqliteError &error) {
    throw storage_error("The changes of prepared branch '" + branch_ + "' cannot be made again", error.what());
  }
}

// ---- Running SQL ----------------------------------------------------------------------------------------------------

SqlOutcome DiskWork::run(const std::string &sql) {
  const CatalogText text = catalog_text(sql);
  if (text.names_catalog) {
    return parts_.query_catalog(text.sql);
  }
  require_work();
  use_connection();
  SqlOutcome outcome = connection_->run(
      Place::branch, text.sql,
      {[this](bool writes) { before_statement(writes); }, [this](bool) { changed_ = changed_ || hold_.held(); }});
  if (outcome.failed) {
    outcome.work_lost = lost_after_failure();
  }
  return outcome;
}

/* A failed statement is undone by itself, but some failures undo the whole transaction: true when work went with it. */
bool DiskWork::lost_after_failure() {
  sqlite3 *handle = connection_->database().handle();
  const int state = sqlite3_txn_state(handle, "main");
  if (changed_ && state == SQLITE_TXN_NONE) {
    lost_ = true;
    end_transaction();
    return true;
  }
  if (state != SQLITE_TXN_WRITE) {
    // The statement did not get to change anything: do not keep the next one waiting.
    recorder_.reset();
    hold_.release();
  }
  return false;
}

/* Opens the transaction with the first statement, and takes the lock with the first that changes something. */
void DiskWork::before_statement(bool writes) {
  if (stop_) {
    throw StoreError(message_interrupted, "The branch is being rolled back.");
  }
  use_connection();
  if (writes && !hold_.held()) {
    const std::chrono::milliseconds limit(parts_.catalog.setting(lock_timeout_setting).value_or(0));
    switch (hold_.take(limit, stop_)) {
      case WriteLock::Answer::taken:
        break;
      case WriteLock::Answer::timed_out:
        throw StoreError(message_lock_timeout,
                         "Another transaction holds the server's data for too long. Roll the branch back and repeat it "
                         "later.");
      case WriteLock::Answer::given_up:
        throw StoreError(message_interrupted, "The branch is being rolled back.");
    }
  }
  Database &database = connection_->database();
  if (!database.in_transaction()) {
    database.execute(writes ? "BEGIN IMMEDIATE" : "BEGIN");
  }
  if (writes && recorder_ == nullptr) {
    record_changes();
  }
}

void DiskWork::use_connection() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (connection_ == nullptr) {
    connection_ = parts_.data.take();
  }
}

void DiskWork::record_changes() {
  sqlite3_session *recorder = nullptr;
  int code = sqlite3session_create(connection_->database().handle(), "main", &recorder);
  recorder_.reset(recorder);
  if (code == SQLITE_OK) {
    code = sqlite3session_attach(recorder, nullptr);
  }
  if (code != SQLITE_OK) {
    recorder_.reset();
    throw storage_error("The branch's changes cannot be recorded", sqlite3_errstr(code));
  }
}

std::string DiskWork::recorded_changes() const {
  if (recorder_ == nullptr) {
    return {};
  }
  int size = 0;
  void *bytes = nullptr;
  const int code = sqlite3session_changeset(recorder_.get(), &size, &bytes);
  if (code != SQLITE_OK) {
    throw storage_error("The branch's changes cannot be collected", sqlite3_errstr(code));
  }
  const std::unique_ptr<void, void (*)(void *)> owner(bytes, sqlite3_free);
  return {static_cast<const char *>(bytes), static_cast<std::size_t>(size)};
}

// ---- The steps of a branch ------------------------------------------------------------------------------------------

void DiskWork::require_work() const {
  if (lost_) {
    throw StoreError(message_storage, journal_id_ == 0
                                          ? "The branch's work was lost by a failure of the server. Roll it back."
                                          : "The prepared branch could not be committed. Restart the server, which "
                                            "takes the branch up again, and repeat the commit.");
  }
}

void DiskWork::prepare() {
  require_work();
  const std::string changes = recorded_changes();
  journal_id_ = parts_.catalog.enter(branch_, changes);
  if (changes.empty()) {
    end_transaction();
  }
}

void DiskWork::commit() {
  require_work();
  if (!hold_.held()) {
    if (journal_id_ != 0) {
      parts_.catalog.remove(journal_id_);
    }
    end_transaction();
    return;
  }
  commit_transaction();
  if (journal_id_ != 0) {
    parts_.catalog.remove_later(journal_id_);
  }
  end_transaction();
}

/* Commits the changes, with the mark of a prepared branch. */
void DiskWork::commit_transaction() {
  Database &database = connection_->database();
  try {
    if (journal_id_ != 0) {
      set_mark(database, journal_id_);
    }
    database.execute("COMMIT");
  } catch (const SqliteError &error) {
    // A transaction that is still open can be committed later. One that is gone is in the journal, if it was prepared:
    // it is taken up again when the server starts.
    lost_ = !database.in_transaction();
    throw storage_error("The branch cannot be committed now", error.what());
  }
}

void DiskWork::roll_back() {
  if (journal_id_ != 0) {
    parts_.catalog.remove(journal_id_);
  }
  end_transaction();
}

/* The outcome goes into the journal first: after a crash it is carried out from there. */
void DiskWork::settle(bool commit) {
  require_work();
  parts_.catalog.set_state(journal_id_, commit ? ZDB_HEUR_COMMITTED : ZDB_HEUR_ROLLED_BACK);
  if (commit && hold_.held()) {
    commit_transaction();
  }
  end_transaction();
  parts_.catalog.clear_changes_later(journal_id_);
}

void DiskWork::forget() {
  parts_.catalog.remove(journal_id_);
}

void DiskWork::interrupt() {
  stop_ = true;
  parts_.data.write_lock().wake();
  const std::lock_guard<std::mutex> lock(mutex_);
  if (connection_ != nullptr) {
    connection_->database().interrupt();
  }
}

/* Gives back what the branch has of the data; an open transaction is undone. */
void DiskWork::end_transaction() {
  recorder_.reset();
  std::unique_ptr<SqlConnection> connection;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    connection = std::move(connection_);
  }
  if (connection != nullptr) {
    connection->database().roll_back();
    parts_.data.give_back(std::move(connection));
  }
  hold_.release();
}

}  // namespace zdb
