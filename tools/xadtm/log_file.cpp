// Takes the lines of a trace log apart and puts the records together.
#include "log_file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <optional>

namespace {

constexpr size_t when_size = sizeof "2026/01/02 03:04:05" - 1;

constexpr std::array<std::string_view, 15> types = {"",
                                                    "Error",
                                                    "Fatal Error",
                                                    "XA trace",
                                                    "RM trace",
                                                    "Connection trace",
                                                    "ZDB I/F trace",
                                                    "Misc trace",
                                                    "Event trace",
                                                    "Verbose trace",
                                                    "Function trace",
                                                    "Quillet trace",
                                                    "Message",
                                                    "Warning",
                                                    "Note"};

// Takes what stands before the separator, and the separator, off the rest; false when it is not there.
bool take(std::string_view &rest, std::string_view separator, std::string &part) {
  const size_t end = rest.find(separator);
  if (end == std::string_view::npos) {
    return false;
  }
  part = rest.substr(0, end);
  rest.remove_prefix(end + separator.size());
  return true;
}

bool has_form(std::string_view text, std::string_view form) {
  return text.size() == form.size() && std::equal(text.begin(), text.end(), form.begin(), [](char c, char wanted) {
           return wanted == '0' ? std::isdigit(static_cast<unsigned char>(c)) != 0 : c == wanted;
         });
}

std::optional<int64_t> seconds_of(const std::string &when) {
  if (!has_form(when, "0000/00/00 00:00:00")) {
    return std::nullopt;
  }
  const auto number = [&](size_t at, size_t count) { return std::stoi(when.substr(at, count)); };
  tm parts{};
  parts.tm_year = number(0, 4) - 1900;
  parts.tm_mon = number(5, 2) - 1;
  parts.tm_mday = number(8, 2);
  parts.tm_hour = number(11, 2);
  parts.tm_min = number(14, 2);
  parts.tm_sec = number(17, 2);
  return timegm(&parts);
}

bool is_made_of(std::string_view text, std::string_view characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

bool is_process(std::string_view text) {
  constexpr size_t longest = sizeof "0x12345678" - 1;
  return text.size() <= longest && text.starts_with("0x") && is_made_of(text.substr(2), "0123456789abcdef");
}

bool is_thread(std::string_view text) {
  return text == "N/A" || is_made_of(text, "0123456789ABCDEF.");
}

// A record's first line; nothing when it is none.
std::optional<LogRecord> first_line(std::string_view line) {
  LogRecord record;
  record.when = line.substr(0, when_size);
  const std::optional<int64_t> seconds = seconds_of(record.when);
  std::string_view rest = line.substr(std::min(line.size(), when_size));
  std::string nothing;
  std::string source_line;
  if (!seconds || !rest.starts_with(": ")) {
    return std::nullopt;
  }
  record.seconds = *seconds;
  rest.remove_prefix(2);
  if (!take(rest, ",", record.process) || !take(rest, ": [", record.thread) || !take(rest, "/", record.function) ||
      !take(rest, "] ", source_line) || !take(rest, ": ", record.type)) {
    return std::nullopt;
  }
  if (!is_process(record.process) || !is_thread(record.thread) || !is_made_of(source_line, "-0123456789") ||
      std::find(types.begin(), types.end(), record.type) == types.end()) {
    return std::nullopt;
  }
  record.text = rest;
  return record;
}

// Whether a line belongs to the record before it. Texts of the library go on with a tab, or as the list says; those of
// servers, which stand behind "Msg: ", go on with anything.
bool goes_on(const LogRecord &record, std::string_view line) {
  if (line.empty() || line.front() == '\t' || line == " No rows returned.") {
    return true;
  }
  if (record.text.starts_with("Return ")) {
    return line.starts_with("rmid: ") || line == "<nil>" || line == "xa_complete is not provided";
  }
  return record.text.find("Msg: ") != std::string::npos;
}

// Texts of the library are far shorter; the rest of a longer one is passed over.
constexpr size_t longest_text = 65536;

bool read_line(std::istream &stream, std::string &line) {
  line.clear();
  bool any = false;
  for (char c = 0; stream.get(c); any = true) {
    if (c == '\n') {
      return true;
    }
    if (line.size() < longest_text) {
      line += c;
    }
  }
  return any;
}

}  // namespace

bool LogFile::next(LogRecord &record) {
  bool begun = has_ahead_;
  if (begun) {
    record = std::move(ahead_);
    has_ahead_ = false;
  }
  bool whole = begun;  // no foreign line has come in between
  for (std::string line; read_line(stream_, line);) {
    ++lines_;
    if (std::optional<LogRecord> found = first_line(line)) {
      if (begun) {
        ahead_ = std::move(*found);
        has_ahead_ = true;
        return true;
      }
      record = std::move(*found);
      begun = whole = true;
    } else if (whole && goes_on(record, line)) {
      record.text += line.empty() || record.text.size() > longest_text ? "" : "\n" + line;
    } else if (!line.empty()) {
      ++unreadable_;
      whole = false;
    }
  }
  return begun;
}
