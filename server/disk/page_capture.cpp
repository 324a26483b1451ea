// The log's layout is the one that SQLite documents for its write-ahead log files.
#include "disk/page_capture.h"

#include "disk/sqlite.h"

namespace zdb {
namespace {

constexpr sqlite3_int64 log_header_size = 32;
constexpr int frame_header_size = 24;  // page number, page count of a commit or 0, salt, checksum
constexpr int page_count_place = 4;

uint32_t big_endian_word(const char *bytes) {
  uint32_t value = 0;
  for (int byte = 0; byte < 4; ++byte) {
    value = value << 8 | static_cast<unsigned char>(bytes[byte]);
  }
  return value;
}

uint32_t page_size_of(const Database &database) {
  Statement statement(database, "PRAGMA page_size");
  statement.step();
  return static_cast<uint32_t>(statement.integer(0));
}

}  // namespace

void PageCapture::begin() {
  frames_.clear();
}

// A frame is written as its header and its page, one after the other; headers may be written once more alone.
int PageCapture::write(const char *bytes, int count, sqlite3_int64 at) {
  if (at < log_header_size) {
    return SQLITE_OK;
  }
  if (count == frame_header_size) {
    frames_[at] = big_endian_word(bytes);
    const uint32_t page_count = big_endian_word(bytes + page_count_place);
    if (capturing_ && page_count != 0) {
      commit_frame_ = at;
      images_.page_count = page_count;
    }
    return SQLITE_OK;
  }
  if (!capturing_) {
    return SQLITE_OK;
  }
  const auto frame = frames_.find(at - frame_header_size);
  if (frame == frames_.end() || static_cast<uint32_t>(count) != images_.page_size) {
    return SQLITE_IOERR_WRITE;  // no layout that we know: better no capture than a wrong one
  }
  images_.pages[frame->second] = std::string(bytes, static_cast<std::size_t>(count));
  return frame->first == commit_frame_ ? SQLITE_BUSY : SQLITE_OK;
}

// Pages that left the cache before and were not changed again. Frames behind the commit are leftovers of what was
// undone within the transaction. A page's last frame counts, and one that was captured is newer than all of them.
void PageCapture::read_early_frames() {
  std::map<uint32_t, sqlite3_int64> last;
  for (const auto &[at, page] : frames_) {
    if (at < commit_frame_) {
      last[page] = at;
    }
  }
  for (const auto &[page, at] : last) {
    if (images_.pages.contains(page) || page > images_.page_count) {
      continue;
    }
    std::string bytes(images_.page_size, '\0');
    const int code =
        log_->pMethods->xRead(log_, bytes.data(), static_cast<int>(images_.page_size), at + frame_header_size);
    if (code != SQLITE_OK) {
      throw SqliteError(code, sqlite3_errstr(code));
    }
    images_.pages[page] = std::move(bytes);
  }
}

void PageCapture::flush(const Database &database) {
  const int code = sqlite3_db_cacheflush(database.handle());
  if (code != SQLITE_OK) {
    throw database.error(code);
  }
}

bool PageCapture::has_written(const Database &database) {
  flush(database);
  return !frames_.empty();
}

void PageCapture::try_commit(const Database &database) {
  images_ = PageImages();
  images_.page_size = page_size_of(database);
  commit_frame_ = 0;
  capturing_ = true;
  const int code = sqlite3_exec(database.handle(), "COMMIT", nullptr, nullptr, nullptr);
  capturing_ = false;
  if (code != SQLITE_BUSY || commit_frame_ == 0 || log_ == nullptr || !database.in_transaction()) {
    throw SqliteError(code == SQLITE_OK ? SQLITE_INTERNAL : code, sqlite3_errmsg(database.handle()));
  }
}

PageImages PageCapture::pages_after(const Database &database, const std::function<void()> &change) {
  flush(database);
  database.execute("SAVEPOINT change");
  const std::size_t before = frames_.size();
  change();
  flush(database);
  if (frames_.size() == before) {
    throw SqliteError(SQLITE_INTERNAL, "the transaction's last change did not reach the log");
  }
  try_commit(database);
  read_early_frames();
  std::erase_if(images_.pages, [this](const auto &page) { return page.first > images_.page_count; });
  database.execute("ROLLBACK TO change; RELEASE change");
  change();
  return std::move(images_);
}

}  // namespace zdb
