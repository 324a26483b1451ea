// The work of one branch on the data: a SQLite transaction of its own. Whoever changes something has the
// write lock until the end of the branch, so what the transaction will write is known at its prepare, page by page
// (page_capture.h), and the journal keeps it.
//
// A branch that is prepared keeps its transaction open, and commits by it; the transaction holds a mark, the journal's
// id. After a restart the mark tells whether it was committed. If not, there is no transaction any more: the branch is
// taken up with its lock, and committed by putting its pages into the file.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "disk/catalog.h"
#include "disk/data_file.h"
#include "store/store.h"

namespace zdb {

// What the works of one store share.
struct DiskParts {
  Catalog &catalog;
  DataFile &data;
  // The branches that have a connection with an open transaction.
  std::atomic<int> &at_work;
  // Runs a query on the catalog.
  std::function<SqlOutcome(const std::string &sql)> query_catalog;
};

class DiskWork final : public Work {
 public:
  DiskWork(DiskParts parts, std::string branch);
  ~DiskWork() override;

  // Takes a branch of the journal up at the start, with the lock if it has changes. When that cannot be done, the
  // branch can be rolled back only.
  void take_up(int64_t id, bool has_pages);

  SqlOutcome run(const std::string &sql, SqlCounts &counts) override;
  void prepare() override;
  void commit() override;
  void roll_back() override;
  void settle(bool commit) override;
  void forget() override;
  void interrupt() override;
  bool locks_data() const override { return hold_.held(); }

 private:
  SqlOutcome run_in_transaction(const std::string &sql, SqlCounts &counts);
  void take_place();
  void before_statement(SqlConnection &connection, bool writes);
  void take_lock();
  SqlConnection::Around around(SqlConnection &connection, SqlCounts &counts);
  const char *stop_reason() const;
  bool lost_after_failure(const Database &database);
  void require_work();
  bool has_changes();
  PageImages pages_with_mark(int64_t id);
  void enter_with_mark(int64_t id, const PageImages &pages);
  void commit_transaction();
  void put_pages_in(const std::function<void()> &done);
  void carry_outcome_out();
  void take_outcome_back(const StoreError &failure);
  void end_transaction();

  const DiskParts parts_;
  const std::string branch_;
  DataSlot slot_;
  WriteHold hold_;
  int64_t journal_id_ = 0;        // of a prepared branch
  bool worked_ = false;           // a statement has succeeded in the open transaction
  bool only_in_journal_ = false;  // the work is there, but there is no transaction to commit it by
  std::string lost_;              // why the work is lost, empty if it is not: the branch can be rolled back only
  bool has_place_ = false;        // among those at work
  TimeLimit time_;
  std::atomic<bool> stop_{false};  // set from another thread: no statement is to go on
};

}  // namespace zdb
