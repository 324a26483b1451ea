// A trace log of the library, record by record.
//
// A record begins with a line such as
//
//   2026/01/02 03:04:05: 0x4d2,00000000.00000001: [xa_start/344] XA trace:  retstat: 0 ([XA_OK])
//
// and may go on over lines of no such form: the rmid, flags and XID of a failed call, the rest of a server's message.
#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <string_view>

struct LogRecord {
  std::string when;
  int64_t seconds = 0;  // the same as a number
  std::string process;
  std::string thread;
  std::string function;
  std::string type;
  std::string text;  // of all lines, without the last line's end
};

class LogFile {
 public:
  explicit LogFile(std::istream &stream) : stream_(stream) {}

  // Reads the next record; false at the end.
  bool next(LogRecord &record);
  // Lines that are part of no record: foreign ones, and lines that were cut.
  int64_t unreadable() const { return unreadable_; }
  int64_t lines() const { return lines_; }

 private:
  std::istream &stream_;
  LogRecord ahead_;  // the record whose first line has been read already
  bool has_ahead_ = false;
  int64_t unreadable_ = 0;
  int64_t lines_ = 0;
};
