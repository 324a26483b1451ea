// Finds out what a transaction will write, before it is committed.
//
// SQLite writes a transaction's pages behind the others into the write-ahead log, in frames, and marks the last one as
// the commit. Some pages go there earlier, when the cache is full or is flushed. The file layer (watched_files.h) tells
// the capture of every such write. To capture, COMMIT is tried: its frames are kept back, and the last one is answered
// with SQLITE_BUSY, which leaves the transaction open. The COMMIT that is meant writes them again.
//
// Every frame's checksum goes on from the one before, and SQLite has counted the frames that were kept back. Only the
// rollback to a savepoint brings it back to the frames that there are, and only if frames came after the savepoint. So
// the last change is made after one, flushed, captured, undone and made once more.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <map>
#include <string>

#include "disk/page_images.h"

namespace zdb {

class Database;

// One connection's; used by the thread that uses the connection.
class PageCapture {
 public:
  // A transaction begins: frames that were written before it are not its own.
  void begin();

  // Whether the open transaction has written pages, after those that are left in the cache were flushed, too.
  bool has_written(const Database &database);
  // The pages of the open transaction as they are after the change, which is made twice and must do the same both
  // times. Throws SqliteError when the transaction could not be committed either (a deferred constraint, no memory);
  // the change may be part of it then, so it must be rolled back.
  PageImages pages_after(const Database &database, const std::function<void()> &change);

  // Called by the file layer.
  void opened(sqlite3_file *log) { log_ = log; }
  void closed() { log_ = nullptr; }
  bool captures() const { return capturing_; }
  // A write of the log; the answer to SQLite. With captures() the write is not to reach the file. Throws bad_alloc.
  int write(const char *bytes, int count, sqlite3_int64 at);

 private:
  void flush(const Database &database);
  void try_commit(const Database &database);
  void read_early_frames();

  sqlite3_file *log_ = nullptr;  // of the layer below
  bool capturing_ = false;
  sqlite3_int64 commit_frame_ = 0;            // where it begins; 0 before it is met
  std::map<sqlite3_int64, uint32_t> frames_;  // where the transaction's frames begin, and their pages
  PageImages images_;
};

}  // namespace zdb
