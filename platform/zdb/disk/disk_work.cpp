/* disk_work.cpp - what each step of a branch's life does to its transaction and to the journal; see the header. */
#include "disk_work.h"

#include "changes.h"
#include "sql_text.h"
#include "zdb_control.h"

namespace zdb {
namespace {

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
    use_connection();
    take_lock();
    open_transaction(true);
    make_changes_again(connection_->database(), row.changes);
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
  SqlOutcome outcome = connection_->run(Place::branch, text.sql, around());
  if (outcome.failed) {
    outcome.work_lost = lost_after_failure();
  }
  return outcome;
}

SqlConnection::Around DiskWork::around() {
  return {[this](bool writes) { before_statement(writes); }, [this](bool) { worked_ = true; },
          [this] { return stop_reason(); }};
}

const char *DiskWork::stop_reason() const {
  return stop_ ? "The statement was interrupted, since its branch is being rolled back." : nullptr;
}

/*
 * A failed statement is undone by itself, but some failures undo the whole transaction: true when work went with it.
 * What was only read counts: the next statement would not see the same data.
 */
bool DiskWork::lost_after_failure() {
  const Database &database = connection_->database();
  if (worked_ && !database.in_transaction()) {
    lost_ = true;
    end_transaction();
    return true;
  }
  if (sqlite3_txn_state(database.handle(), "main") != SQLITE_TXN_WRITE) {
    // The statement did not get to change anything: do not keep the next one waiting.
    recorder_.reset();
    hold_.release();
  }
  return false;
}

/* Opens the transaction with the first statement, and takes the lock with the first that changes something. */
void DiskWork::before_statement(bool writes) {
  use_connection();
  if (writes) {
    take_lock();
  }
  if (const char *reason = stop_reason()) {
    throw StoreError(message_interrupted, reason);
  }
  open_transaction(writes);
}

/* Gives up, without the lock, when the branch is to be rolled back. */
void DiskWork::take_lock() {
  if (hold_.held()) {
    return;
  }
  const std::chrono::milliseconds limit(parts_.catalog.setting(lock_timeout_setting).value_or(0));
  if (hold_.take(limit, stop_) == WriteLock::Answer::timed_out) {
    throw StoreError(
        message_lock_timeout,
        "Another transaction holds the server's data for too long. Roll the branch back and repeat it later.");
  }
}

void DiskWork::open_transaction(bool writes) {
  Database &database = connection_->database();
  if (!database.in_transaction()) {
    database.execute(writes ? "BEGIN IMMEDIATE" : "BEGIN");
  }
  if (writes && recorder_ == nullptr) {
    record_changes();
  }
}

void DiskWork::use_connection() {
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

/* Prepared work that a failed commit undid is made again; its lock was never given up. */
void DiskWork::require_work() {
  if (!lost_) {
    return;
  }
  if (journal_id_ == 0) {
    throw StoreError(message_storage, "The branch's work was lost by a failure of the server. Roll it back.");
  }
  connection_->database().roll_back();
  take_up({journal_id_, branch_, ZDB_PREPARED, {}, parts_.catalog.changes_of(journal_id_)});
  lost_ = false;
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
    // A transaction that is still open can be committed later, and so can one that is gone if the journal has it.
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
    try {
      commit_transaction();
    } catch (const StoreError &) {
      parts_.catalog.set_state(journal_id_, ZDB_PREPARED);
      throw;
    }
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
}

/* Gives back what the branch has of the data; an open transaction is undone. */
void DiskWork::end_transaction() {
  recorder_.reset();
  if (connection_ != nullptr) {
    parts_.data.give_back(std::move(connection_));
  }
  hold_.release();
}

}  // namespace zdb
