/*
 * page_capture.h - finds out what a transaction will write, before it is committed.
 *
 * SQLite writes a transaction's pages behind the others into the write-ahead log, in frames, and marks the last one as
 * the commit. Some pages may go there earlier, when the cache is full. The file layer (watched_files.h) tells the
 * capture of every such write. To capture, COMMIT is tried: the frames are kept back, and the last one is answered with
 * SQLITE_BUSY, which leaves the transaction open and the log as it was. The COMMIT that is meant writes them again.
 */
#ifndef ZDB_DISK_PAGE_CAPTURE_H
#define ZDB_DISK_PAGE_CAPTURE_H

#include <sqlite3.h>

#include <map>
#include <optional>
#include <string>

#include "page_images.h"

namespace zdb {

class Database;

/* One connection's; used by the thread that uses the connection. */
class PageCapture {
 public:
  /* A transaction begins: frames that were written before it are not its own. */
  void begin();

  /*
   * The pages of the open transaction; none when it has nothing to write, which also ends it. Throws SqliteError when
   * it could not be committed either (a deferred constraint, no memory); it is still open then, or undone, as
   * Database::in_transaction tells.
   */
  std::optional<PageImages> pages_of(const Database &database);

  /* Called by the file layer. */
  void opened(sqlite3_file *log) { log_ = log; }
  void closed() { log_ = nullptr; }
  bool captures() const { return capturing_; }
  /* A write of the log; the answer to SQLite. With captures() the write is not to reach the file. Throws bad_alloc. */
  int write(const char *bytes, int count, sqlite3_int64 at);

 private:
  void read_early_frames();

  sqlite3_file *log_ = nullptr; /* of the layer below */
  bool capturing_ = false;
  sqlite3_int64 commit_frame_ = 0; /* where it begins; 0 before it is met */
  std::map<sqlite3_int64, uint32_t> frames_; /* where the transaction's frames begin, and their pages */
  PageImages images_;
};

}  // namespace zdb

#endif /* ZDB_DISK_PAGE_CAPTURE_H */
