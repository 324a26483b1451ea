/*
 * data_file.h - the database with the users' tables: its connections, the lock of whoever changes it, and the mark of
 * the prepared branch that was committed last.
 */
#ifndef ZDB_DISK_DATA_FILE_H
#define ZDB_DISK_DATA_FILE_H

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "statements.h"
#include "write_lock.h"

namespace zdb {

class DataFile {
 public:
  static void create(const std::string &file);
  explicit DataFile(std::string file);

  /* A connection without an open transaction (throws StoreError), and its return; one with an open transaction is
   * rolled back. */
  std::unique_ptr<SqlConnection> take();
  void give_back(std::unique_ptr<SqlConnection> connection);

  WriteLock &write_lock() { return write_lock_; }
  /* The journal's id of the prepared branch that was committed last; 0 for none. */
  int64_t mark();
  /* Makes the file whole; nobody uses it. */
  void settle();

 private:
  const std::string file_;
  WriteLock write_lock_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<SqlConnection>> idle_;
};

/* Part of the open transaction of the branch with the journal's id: when it commits, so does the mark. */
void set_mark(const Database &database, int64_t journal_id);

/*
 * Throws StoreError when a table's changes could not be recorded, and so not be made again after a crash: its rows must
 * be told apart by the bytes of a primary key, and have no columns that are computed.
 */
void require_recordable_tables(const Database &database);

}  // namespace zdb

#endif /* ZDB_DISK_DATA_FILE_H */
