// What the logs of a folder must hold at the next start, as the folder's lock file says it.
//
// SQLite takes a log that is missing or damaged for one that holds less, without a word. So each commit that has been
// synced is noted: how long the log is with it, and the salt, which every beginning of the log changes. The note
// outlives the process, and needs no sync of its own: it may say less than the log holds, but never more. That is why
// it is taken back, synced, before the log loses anything that it speaks of; only the first one after that is synced as
// well. A log that does not hold what is noted was lost, or harmed, by something else than a crash or a cut of power.
//
// A lock file without notes says nothing of the logs: an operator who empties it goes on without what is lost.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>

namespace zdb {

struct LogNote {
  uint64_t salt = 0;
  uint64_t length = 0;  // bytes, up to the end of a commit; 0: nothing is noted
};

// The notes of one folder, shared by all who have one of its logs open; any thread may use them.
class LogNotes;

// An open log. Its functions are called under SQLite's lock of whoever writes the log.
class LogWatch {
 public:
  // Null for other files, and in a folder that is still being made. Throws std::system_error, bad_alloc.
  static std::unique_ptr<LogWatch> of(const std::string &log);

  // Everything from there on is about to be lost. False when the note cannot be taken back: it must stay then.
  bool before_loss(sqlite3_int64 at) noexcept;
  void wrote(const void *bytes, int count, sqlite3_int64 at) noexcept;
  void synced() noexcept;

 private:
  LogWatch(std::shared_ptr<LogNotes> notes, std::size_t place) : notes_(std::move(notes)), place_(place) {}

  const std::shared_ptr<LogNotes> notes_;
  const std::size_t place_;
  LogNote commit_;                    // that is being written; its length is known with its page
  sqlite3_int64 commit_page_at_ = 0;  // where that is to be written
};

// Compares the folder's logs, which nobody has open, with its notes. Throws std::runtime_error with what to do.
void require_noted_logs(const std::string &folder);

}  // namespace zdb
