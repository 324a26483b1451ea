/*
 * disk_work.h - the work of one branch on the data: a SQLite transaction of its own, whose changes are recorded so that
 * they can be written to the journal when the branch is prepared.
 *
 * While it is prepared the transaction stays open, and with it the lock; its commit puts a mark into the data, in the
 * same transaction. After a crash the journal's changes are made again, unless the mark shows that they were committed.
 */
#ifndef ZDB_DISK_DISK_WORK_H
#define ZDB_DISK_DISK_WORK_H

#include <atomic>
#include <memory>
#include <string>

#include "catalog.h"
#include "data_file.h"
#include "store.h"

namespace zdb {

/* What the works of one store share. */
struct DiskParts {
  Catalog &catalog;
  DataFile &data;
  /* Runs a query on the catalog. */
  std::function<SqlOutcome(const std::string &sql)> query_catalog;
};

class DiskWork final : public Work {
 public:
  DiskWork(DiskParts parts, std::string branch);
  ~DiskWork() override;

  /* Takes a branch of the journal up again, at the start: its changes and its lock. Throws StoreError. */
  void take_up(const JournalRow &row);

  SqlOutcome run(const std::string &sql) override;
  void prepare() override;
  void commit() override;
  void roll_back() override;
  void settle(bool commit) override;
  void forget() override;
  void interrupt() override;

 private:
  struct DeleteSession {
    void operator()(sqlite3_session *session) const { sqlite3session_delete(session); }
  };

  void use_connection();
  void before_statement(bool writes);
  void take_lock();
  void open_transaction(bool writes);
  SqlConnection::Around around();
  const char *stop_reason() const;
  bool lost_after_failure();
  void record_changes();
  std::string recorded_changes() const;
  void require_work();
  void commit_transaction();
  void end_transaction();

  const DiskParts parts_;
  const std::string branch_;
  std::unique_ptr<SqlConnection> connection_; /* null before the first SQL and after the end */
  std::unique_ptr<sqlite3_session, DeleteSession> recorder_;
  WriteHold hold_;
  int64_t journal_id_ = 0; /* of a prepared branch */
  bool worked_ = false;    /* a statement has succeeded in the open transaction */
  bool lost_ = false;      /* a failure undid the work: what is prepared can be made again, else only rolled back */
  std::atomic<bool> stop_{false}; /* set from another thread: no statement is to go on */
};

}  // namespace zdb

#endif /* ZDB_DISK_DISK_WORK_H */
