// The database with the users' tables: its connections, the lock of whoever changes it, the mark of the
// prepared branch that was committed last, and the putting in of pages by which a branch is committed that was prepared
// before the server's last start.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "disk/page_images.h"
#include "disk/statements.h"
#include "disk/write_lock.h"

namespace zdb {

// What a user of the data has of them. Its fields belong to the file; a user's thread looks at them between use and
// rest only.
struct DataSlot {
  std::unique_ptr<SqlConnection> connection;
  bool in_use = false;
  bool taken_away = false;  // its open transaction, which had changed nothing, was ended for a putting in of pages
};

// All functions may be called from any thread.
class DataFile {
 public:
  static void create(const std::string &file);
  explicit DataFile(std::string file);

  // The slot's connection, made if there is none; waits while pages are put in. Throws StoreError.
  SqlConnection &use(DataSlot &slot);
  // The connection stays in the slot, with its transaction, but may be taken away.
  void rest(DataSlot &slot);
  // The connection goes; a transaction that is open is undone.
  void give_back(DataSlot &slot);
  // Statements on the data are to stop, since pages wait to be put in.
  bool must_stop() const { return must_stop_; }

  WriteLock &write_lock() { return write_lock_; }
  // The journal's id of the prepared branch that was committed last; 0 for none.
  int64_t mark();

  // Puts pages into the file, with nobody in it; the caller holds the write lock. Statements under way are waited for,
  // up to the limit, then stopped; open transactions, which have only read, end. First is called when nothing is in the
  // way any more, and must put it on record that the file may be half written from now on. Throws StoreError when
  // statements go on for another limit, or the log cannot be emptied; nothing was written then.
  void put_in(const PageImages &images, std::chrono::milliseconds limit, const std::function<void()> &first);
  // The same at the start, when first was done before the server went away. Throws std::runtime_error.
  void put_in_again(const PageImages &images);
  // Makes the file whole; nobody uses it.
  void settle();

 private:
  using Lock = std::unique_lock<std::mutex>;
  std::unique_ptr<SqlConnection> connect();
  bool wait_until_nobody(Lock &lock, std::chrono::milliseconds limit);
  void clear_file(Lock &lock, std::chrono::milliseconds limit);
  void empty_log();

  const std::string file_;
  WriteLock write_lock_;
  std::atomic<bool> must_stop_{false};
  std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  bool closed_ = false;         // pages are put in: nobody may use the file
  std::set<DataSlot *> slots_;  // with a connection, or about to get one
  std::vector<std::unique_ptr<SqlConnection>> idle_;
};

// A connection for a moment.
class DataTurn {
 public:
  explicit DataTurn(DataFile &data) : data_(data), connection_(data.use(slot_)) {}
  ~DataTurn() { data_.give_back(slot_); }
  DataTurn(const DataTurn &) = delete;
  DataTurn &operator=(const DataTurn &) = delete;
  SqlConnection &connection() { return connection_; }
  Database &database() { return connection_.database(); }

 private:
  DataFile &data_;
  DataSlot slot_;
  SqlConnection &connection_;
};

// Part of the open transaction of the branch with the journal's id: when it commits, so does the mark.
void set_mark(const Database &database, int64_t journal_id);

}  // namespace zdb
