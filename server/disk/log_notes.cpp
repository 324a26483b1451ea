// A note is a line of fixed size, one for each log, which ends in a check of itself: one that a cut of
// power has torn says nothing. The log's layout is the one that SQLite documents.
#include "disk/log_notes.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include "disk/folder.h"
#include "disk/storage_failure.h"

namespace zdb {
namespace {

constexpr std::size_t log_count = 2;
constexpr std::array<const char *, log_count> names = {"catalog.db-wal", "data.db-wal"};
// A line: name, salt, length, check.
constexpr std::size_t salt_place = 14 + 1;
constexpr std::size_t length_place = salt_place + 16 + 1;
constexpr std::size_t line_size = length_place + 16 + 1 + 16 + 1;
using Line = std::array<char, line_size + 1>;

uint64_t check_of(const LogNote &note) {
  uint64_t mixed = note.salt * 0x9E3779B97F4A7C15U + note.length;
  mixed = (mixed ^ (mixed >> 29U)) * 0xBF58476D1CE4E5B9U;
  return mixed ^ (mixed >> 32U);
}

Line line_of(std::size_t place, const LogNote &note) {
  Line line{};
  std::snprintf(line.data(), line.size(), "%-14s %016" PRIx64 " %016" PRIu64 " %016" PRIx64 "\n", names[place],
                note.salt, note.length, check_of(note));
  return line;
}

// A line that does not come out the same is torn, or none.
LogNote read_note(int file, std::size_t place) {
  Line line{};
  LogNote note;
  if (pread(file, line.data(), line_size, static_cast<off_t>(place * line_size)) != line_size) {
    return {};
  }
  std::from_chars(line.data() + salt_place, line.data() + length_place, note.salt, 16);
  std::from_chars(line.data() + length_place, line.data() + line_size, note.length);
  return line == line_of(place, note) ? note : LogNote();
}

}  // namespace

class LogNotes {
 public:
  explicit LogNotes(const std::string &file) : file_(open(file.c_str(), O_RDWR | O_CLOEXEC)) {
    if (file_ < 0) {
      throw std::system_error(errno, std::generic_category());
    }
    for (std::size_t place = 0; place < log_count; ++place) {
      notes_[place] = read_note(file_, place);
    }
  }
  ~LogNotes() { close(file_); }
  LogNotes(const LogNotes &) = delete;
  LogNotes &operator=(const LogNotes &) = delete;

  static std::shared_ptr<LogNotes> of(const std::string &folder);

  bool take_back(std::size_t place, uint64_t beyond) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (notes_[place].length <= beyond) {
      return true;
    }
    if (!write(place, {})) {
      return false;
    }
    sync();
    notes_[place] = {};
    return true;
  }

  LogNote noted(std::size_t place) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return notes_[place];
  }

  // One that cannot be written leaves less noted, or nothing.
  void put(std::size_t place, const LogNote &note) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool is_first = notes_[place].length == 0;
    notes_[place] = note;
    if (write(place, note) && is_first) {
      sync();
    }
  }

 private:
  bool write(std::size_t place, const LogNote &note) const {
    return pwrite(file_, line_of(place, note).data(), line_size, static_cast<off_t>(place * line_size)) == line_size;
  }

  void sync() const {
    if (fdatasync(file_) != 0) {
      end_after_storage_failure(std::string("cannot sync the lock file: ") + std::strerror(errno));
    }
  }

  const int file_;
  std::mutex mutex_;
  std::array<LogNote, log_count> notes_;  // what the file may say
};

// All of a folder share one: who takes a note back must know of everybody's. Null without a lock file.
std::shared_ptr<LogNotes> LogNotes::of(const std::string &folder) {
  static std::mutex mutex;
  static auto &all = *new std::map<std::string, std::weak_ptr<LogNotes>>;  // used until the process ends
  const std::lock_guard<std::mutex> lock(mutex);
  std::weak_ptr<LogNotes> &known = all[folder];
  std::shared_ptr<LogNotes> notes = known.lock();
  if (notes != nullptr) {
    return notes;
  }
  if (is_made(folder)) {
    known = notes = std::make_shared<LogNotes>(lock_path(folder));
  }
  return notes;
}

// ---- Taking notes ---------------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t log_header_size = 32;
constexpr std::size_t frame_header_size = 24;

uint32_t big_endian_word(const char *bytes) {
  uint32_t value = 0;
  for (int byte = 0; byte < 4; ++byte) {
    value = value << 8U | static_cast<unsigned char>(bytes[byte]);
  }
  return value;
}

uint64_t salt_at(const char *bytes) {
  return static_cast<uint64_t>(big_endian_word(bytes)) << 32U | big_endian_word(bytes + 4);
}

// A frame: page number, page count of the whole file in a commit's last frame, else 0, salt, checksum; then the page.
constexpr std::size_t count_place = 4;
constexpr std::size_t frame_salt_place = 8;
constexpr std::size_t frame_sum_place = 16;

}  // namespace

std::unique_ptr<LogWatch> LogWatch::of(const std::string &log) {
  const std::filesystem::path path(log);
  for (std::size_t place = 0; place < log_count; ++place) {
    if (path.filename() == names[place]) {
      auto notes = LogNotes::of(path.parent_path());
      return notes == nullptr ? nullptr : std::unique_ptr<LogWatch>(new LogWatch(std::move(notes), place));
    }
  }
  return nullptr;
}

bool LogWatch::before_loss(sqlite3_int64 at) noexcept {
  return notes_->take_back(place_, static_cast<uint64_t>(at));
}

// SQLite writes a frame as its header and its page, one after the other. The log's own header is at 0.
void LogWatch::wrote(const void *bytes, int count, sqlite3_int64 at) noexcept {
  if (at != 0 && at == commit_page_at_) {
    commit_.length = static_cast<uint64_t>(at + count);
  }
  commit_page_at_ = 0;
  const auto *header = static_cast<const char *>(bytes);
  if (at != 0 && count == static_cast<int>(frame_header_size) && big_endian_word(header + count_place) != 0) {
    commit_ = {salt_at(header + frame_salt_place), 0};
    commit_page_at_ = at + count;
  }
}

void LogWatch::synced() noexcept {
  if (commit_.length != 0) {
    notes_->put(place_, commit_);
  }
  commit_ = {};
}

// ---- Comparing ------------------------------------------------------------------------------------------------------

namespace {

constexpr uint32_t magic = 0x377F0682;  // the last bit says which order of bytes the checksums are of
constexpr std::size_t page_size_place = 8;
constexpr std::size_t header_salt_place = 16;
constexpr std::size_t header_sum_place = 24;

// SQLite's running checksum.
class LogSum {
 public:
  explicit LogSum(bool big_endian) : big_endian_(big_endian) {}

  void add(const char *bytes, std::size_t count) {
    for (std::size_t at = 0; at < count; at += 8) {
      first_ += word(bytes + at) + second_;
      second_ += word(bytes + at + 4) + first_;
    }
  }
  bool stands_at(const char *place) const {
    return big_endian_word(place) == first_ && big_endian_word(place + 4) == second_;
  }

 private:
  uint32_t word(const char *bytes) const {
    const uint32_t word = big_endian_word(bytes);
    return big_endian_ ? word : __builtin_bswap32(word);
  }

  const bool big_endian_;
  uint32_t first_ = 0;
  uint32_t second_ = 0;
};

bool holds(std::ifstream &log, const LogNote &note) {
  std::string bytes(log_header_size, '\0');
  log.read(bytes.data(), log_header_size);
  const uint32_t begin = big_endian_word(bytes.data());
  const uint32_t page_size = big_endian_word(bytes.data() + page_size_place);
  LogSum sum((begin & 1U) != 0);
  sum.add(bytes.data(), header_sum_place);
  if (!log || (begin & ~1U) != magic || page_size > 65536 || salt_at(bytes.data() + header_salt_place) != note.salt ||
      !sum.stands_at(bytes.data() + header_sum_place)) {
    return false;
  }
  bytes.resize(frame_header_size + page_size);
  for (uint64_t at = log_header_size; at < note.length; at += bytes.size()) {
    log.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    sum.add(bytes.data(), frame_salt_place);
    sum.add(bytes.data() + frame_header_size, page_size);
    if (!log || salt_at(bytes.data() + frame_salt_place) != note.salt ||
        !sum.stands_at(bytes.data() + frame_sum_place)) {
      return false;
    }
  }
  return true;
}

// What is wrong with the log, null if nothing is.
const char *fault_of(const std::string &path, const LogNote &note) {
  std::ifstream log(path, std::ios::binary);
  if (!log) {
    return errno == ENOENT ? "is missing" : "cannot be opened";
  }
  std::error_code failure;
  if (std::filesystem::file_size(path, failure) < note.length) {
    return "is cut off";
  }
  return holds(log, note) ? nullptr : "is damaged, or another one";
}

}  // namespace

void require_noted_logs(const std::string &folder) {
  const std::shared_ptr<LogNotes> notes = LogNotes::of(folder);
  for (std::size_t place = 0; notes != nullptr && place < log_count; ++place) {
    const std::string log = folder + "/" + names[place];
    const LogNote note = notes->noted(place);
    const char *fault = note.length == 0 ? nullptr : fault_of(log, note);
    if (fault != nullptr) {
      throw std::runtime_error(log + " " + fault +
                               ": commits or prepared branches that were answered as done would be gone. Put it back "
                               "as it was, or the folder's backup. To start without them for good, empty " +
                               lock_path(folder));
    }
  }
}

}  // namespace zdb
