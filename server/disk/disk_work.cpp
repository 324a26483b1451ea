// What each step of a branch's life does to its transaction and to the journal; see the header.
#include "disk/disk_work.h"

#include "disk/sql_text.h"
#include "disk/storage_failure.h"
#include "dtm/dtm_protocol.h"

namespace zdb {
namespace {

constexpr const char *lost_by_failure = "The branch's work was lost by a failure of the server. Roll it back.";
constexpr const char *lost_with_statement =
    "What the branch had done was undone with the statement. Roll the branch back and repeat it.";
constexpr const char *lost_by_commit =
    "The data that the branch has read were changed by another one since. Roll the branch back and repeat it.";

StoreError storage_error(const std::string &what, const std::string &why) {
  return {message_storage, what + " (" + why + "). Look at the server's disk."};
}

StoreError unprepared(const SqliteError &error) {
  return {message_storage, std::string("The branch cannot be prepared (") + error.what() + "). Roll it back."};
}

int64_t schema_version(const Database &database) {
  Statement statement(database, "PRAGMA schema_version");
  return statement.step() ? statement.integer(0) : 0;
}

}  // namespace

DiskWork::DiskWork(DiskParts parts, std::string branch)
    : parts_(std::move(parts)), branch_(std::move(branch)), hold_(parts_.data.write_lock()) {}

// What is prepared stays in the journal for the next start.
DiskWork::~DiskWork() {
  end_transaction();
}

void DiskWork::take_up(int64_t id, bool has_pages) {
  journal_id_ = id;
  if (!has_pages) {
    return;
  }
  only_in_journal_ = true;
  if (hold_.take(std::chrono::milliseconds::zero(), stop_) != WriteLock::Answer::taken) {
    lost_ = "Another prepared branch has changes, too, which cannot be: branch '" + branch_ +
            "' can only be rolled back, by its manager or by zdbd --admin.";
  }
}

// ---- Running SQL ----------------------------------------------------------------------------------------------------

SqlOutcome DiskWork::run(const std::string &sql, SqlCounts &counts) {
  const CatalogText text = catalog_text(sql);
  return text.names_catalog ? parts_.query_catalog(text.sql) : run_in_transaction(text.sql, counts);
}

// Each takes descriptors, which nobody else has then: new clients need some, too.
void DiskWork::take_place() {
  constexpr int most = 400;
  if (has_place_) {
    return;
  }
  if (parts_.at_work.fetch_add(1) >= most) {
    --parts_.at_work;
    throw StoreError(message_over_limit,
                     "As many branches are at work as the server can keep open. Complete some, or try again later.");
  }
  has_place_ = true;
}

// A branch keeps its connection between two commands, unless it was taken away from it.
SqlOutcome DiskWork::run_in_transaction(const std::string &sql, SqlCounts &counts) {
  require_work();
  take_place();
  SqlConnection &connection = parts_.data.use(slot_);
  if (slot_.taken_away) {
    lost_ = lost_by_commit;
    end_transaction();
    return {{{message_data_changed, error_severity, lost_}}, {}, true, true};
  }
  time_.end();  // of a statement that failed
  SqlOutcome outcome = connection.run(Place::branch, sql, around(connection, counts));
  if (outcome.failed && lost_after_failure(connection.database())) {
    outcome.work_lost = true;
    outcome.messages.push_back({message_branch_lost, error_severity, lost_with_statement});
    end_transaction();
    return outcome;
  }
  parts_.data.rest(slot_);
  return outcome;
}

SqlConnection::Around DiskWork::around(SqlConnection &connection, SqlCounts &counts) {
  const auto after = [this] {
    time_.end();
    worked_ = true;
  };
  return {[this, &connection](bool writes) { before_statement(connection, writes); }, after,
          [this] { return stop_reason(); }, &counts};
}

const char *DiskWork::stop_reason() const {
  if (stop_) {
    return "The statement was interrupted, since its branch is being rolled back.";
  }
  return parts_.data.must_stop() ? "The statement was interrupted, since a commit waits for it." : time_.reason();
}

// A failed statement is undone by itself, but some failures, and the interruption of one that changes something, undo
// the whole transaction: true when work went with it.
// What was only read counts: the next statement would not see the same data.
bool DiskWork::lost_after_failure(const Database &database) {
  if (worked_ && !database.in_transaction()) {
    lost_ = lost_by_failure;
    return true;
  }
  if (sqlite3_txn_state(database.handle(), "main") != SQLITE_TXN_WRITE) {
    hold_.release();  // the statement did not get to change anything: do not keep the next one waiting
  }
  return false;
}

// Opens the transaction with the first statement, and takes the lock with the first that changes something.
void DiskWork::before_statement(SqlConnection &connection, bool writes) {
  if (writes) {
    take_lock();
  }
  if (const char *reason = stop_reason()) {
    throw StoreError(message_interrupted, reason);
  }
  time_.begin(parts_.catalog.setting(statement_timeout_setting).value_or(0));
  if (!connection.database().in_transaction()) {
    connection.capture().begin();
    connection.database().execute(writes ? "BEGIN IMMEDIATE" : "BEGIN");
  }
}

// Gives up, without the lock, when the branch is to be rolled back.
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

// ---- The steps of a branch ------------------------------------------------------------------------------------------

void DiskWork::require_work() {
  if (!lost_.empty()) {
    throw StoreError(message_storage, lost_);
  }
}

// Statements that change something may find nothing to change. A new view or trigger may change the schema's page only,
// which is written with the commit.
bool DiskWork::has_changes() {
  if (!hold_.held()) {
    return false;
  }
  SqlConnection &connection = parts_.data.use(slot_);
  try {
    DataTurn others(parts_.data);
    return connection.capture().has_written(connection.database()) ||
           schema_version(connection.database()) != schema_version(others.database());
  } catch (const SqliteError &error) {
    lost_ = lost_by_failure;  // pages that could not be flushed take the transaction along
    throw unprepared(error);
  }
}

void DiskWork::prepare() {
  require_work();
  const int64_t id = parts_.catalog.new_id();
  if (!has_changes()) {
    parts_.catalog.enter(id, branch_, {});
    journal_id_ = id;
    end_transaction();
    return;
  }
  enter_with_mark(id, pages_with_mark(id));
  journal_id_ = id;
  parts_.data.rest(slot_);
}

PageImages DiskWork::pages_with_mark(int64_t id) {
  const Database &database = slot_.connection->database();
  lost_ = lost_by_failure;
  try {
    PageImages images = slot_.connection->capture().pages_after(database, [&] {
      database.execute("SAVEPOINT vote");
      set_mark(database, id);
    });
    lost_.clear();
    return images;
  } catch (const SqliteError &error) {
    throw unprepared(error);
  }
}

// If that fails the transaction must not keep the mark: nothing is prepared by its id.
void DiskWork::enter_with_mark(int64_t id, const PageImages &pages) {
  try {
    parts_.catalog.enter(id, branch_, encoded(pages));
  } catch (const std::exception &) {  // of StoreError and std::bad_alloc
    sqlite3 *const handle = slot_.connection->database().handle();
    if (sqlite3_exec(handle, "ROLLBACK TO vote; RELEASE vote", nullptr, nullptr, nullptr) != SQLITE_OK) {
      lost_ = lost_by_failure;
    }
    throw;
  }
}

void DiskWork::commit() {
  require_work();
  if (!hold_.held()) {
    if (journal_id_ != 0) {
      parts_.catalog.remove(journal_id_);
    }
  } else if (only_in_journal_) {
    put_pages_in([this] { parts_.catalog.remove(journal_id_); });
  } else {
    commit_transaction();
    if (journal_id_ != 0) {
      parts_.catalog.remove_later(journal_id_);
    }
  }
  end_transaction();
}

// Prepared work whose commit failed is in the journal still; its lock was never given up.
void DiskWork::commit_transaction() {
  SqlConnection &connection = parts_.data.use(slot_);
  try {
    connection.database().execute("COMMIT");
  } catch (const SqliteError &error) {
    if (!connection.database().in_transaction()) {
      only_in_journal_ = journal_id_ != 0;
      lost_ = only_in_journal_ ? "" : lost_by_failure;
      parts_.data.give_back(slot_);
    } else {
      parts_.data.rest(slot_);
    }
    throw storage_error("The branch cannot be committed now", error.what());
  }
}

// Done takes the journal's word that the data may be half written back. Until it has, nobody else may change them.
void DiskWork::put_pages_in(const std::function<void()> &done) {
  PageImages images;
  try {
    images = decoded_images(parts_.catalog.pages_of(journal_id_));
  } catch (const std::exception &error) {
    throw storage_error(
        "The pages of prepared branch '" + branch_ + "' are damaged. It cannot be committed, only rolled back",
        error.what());
  }
  const std::chrono::milliseconds limit(parts_.catalog.setting(lock_timeout_setting).value_or(0));
  parts_.data.put_in(images, limit, [this] { parts_.catalog.begin_writing(journal_id_); });
  try {
    done();
  } catch (const StoreError &failure) {
    end_after_storage_failure(std::string("a commit could not be noted: ") + failure.what());
  }
}

void DiskWork::roll_back() {
  if (journal_id_ != 0) {
    parts_.catalog.remove(journal_id_);
  }
  end_transaction();
}

// The outcome goes into the journal first: after a crash it is carried out from there.
void DiskWork::settle(bool commit) {
  if (commit) {
    require_work();
  }
  parts_.catalog.set_state(journal_id_, commit ? DTM_STATE_HEUR_COMMITTED : DTM_STATE_HEUR_ROLLEDBACK);
  if (commit && hold_.held()) {
    carry_outcome_out();
  } else {
    parts_.catalog.clear_pages_later(journal_id_);
  }
  end_transaction();
}

void DiskWork::carry_outcome_out() {
  try {
    if (only_in_journal_) {
      put_pages_in([this] { parts_.catalog.clear_pages(journal_id_); });
      return;
    }
    commit_transaction();
    parts_.catalog.clear_pages_later(journal_id_);
  } catch (const StoreError &failure) {
    take_outcome_back(failure);
    throw;
  }
}

void DiskWork::take_outcome_back(const StoreError &failure) {
  try {
    parts_.catalog.set_state(journal_id_, DTM_STATE_PREPARED);
  } catch (const StoreError &) {
    end_after_storage_failure(std::string("an outcome could neither be carried out nor taken back: ") + failure.what());
  }
}

void DiskWork::forget() {
  parts_.catalog.remove(journal_id_);
}

void DiskWork::interrupt() {
  stop_ = true;
  parts_.data.write_lock().wake();
}

// Gives back what the branch has of the data; an open transaction is undone.
void DiskWork::end_transaction() {
  parts_.data.give_back(slot_);
  hold_.release();
  if (has_place_) {
    has_place_ = false;
    --parts_.at_work;
  }
}

}  // namespace zdb
