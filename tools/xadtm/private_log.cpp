// The temporary log, and what its messages mean for an operator.
#include "private_log.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string_view>

#include "commands.h"
#include "log_file.h"
#include "xadtm.h"

namespace {

struct Advice {
  std::string_view part;  // of the message
  const char *advice;
};

constexpr const char *cannot_list =
    "the server did not list its branches in full; see whether it is still recovering, then check again";

constexpr Advice advices[] = {
    {"No $XACONFIGFILE or $TARVEX found",
     "set XACONFIGFILE to the path of xa_config, or TARVEX to the folder that holds it"},
    {"Configuration file search path",
     "no readable file is there; put xa_config there or set XACONFIGFILE to its path"},
    {"maxoutconn", "remove the entry, and write properties=CS_MAX_CONNECT=NUMBER in the [all] section"},
    {"section not found in config file", "correct the malformed line before or in the [all] section"},
    {"No xa section", "correct the malformed line in the section that the search for the LRM stopped at"},
    {"Maximum number of", "remove settings: nine properties, nine options and 53 capabilities are kept"},
    {"(CS_SET, ",
     "the client library or the server does not take this setting; if the configuration names it, remove it there or "
     "give another value"},
    {"lrm invalid", "give every lrm entry a name of 1 to 31 characters"},
    {"server invalid", "give every server entry a name of 1 to 31 characters"},
    {"not found", "add an [xa] section with this lrm, or correct -N"},
    {"not configured for XA DTM use", "switch it on at the server: zdbd --admin DIR dtm on"},
    {"dtm_tm_role", "give the user the role at the server: zdbd --admin DIR add-user USER dtm"},
    {"Connection failed after established", "look after the server: it went away during the check"},
    {"Unable to determine DTM", "look after the server: it did not answer the question whether DTM is on"},
    {"Connect(", "see that the server runs and the interfaces file leads to it, and that user and password are right"},
    {"Only one type", "give --flavour the one that was used before"},
    {"start scan result", cannot_list},
    {"scan termination failed", cannot_list},
    {"XIDs could", cannot_list},
    {"No status result to confirm", cannot_list},
    {"not named as a branch", "whoever made it works without a transaction manager; look at it at the server"},
    {"without failover", "nothing is wrong unless the server has another one to fail over to"},
};

constexpr const char *usual_advice =
    "set traceflags=all in the [all] section and run xadtm branches; xadtm log FILE --failures then shows what led to "
    "it";

bool is_error(const LogRecord &record) {
  return record.type == "Error" || record.type == "Fatal Error";
}

// About an entry or a setting that the check has shown with its remark.
bool is_of_entry(const LogRecord &record) {
  return record.function == "xal_read_all_section" || record.function == "xacmn_get_val";
}

// Servers and client libraries say themselves what to do, as far as they know it.
std::string advice_for(const LogRecord &record) {
  if (record.text.find("Msg: ") != std::string::npos) {
    return "";
  }
  const auto *found = std::find_if(std::begin(advices), std::end(advices),
                                   [&](const Advice &row) { return record.text.find(row.part) != std::string::npos; });
  if (found != std::end(advices)) {
    return found->advice;
  }
  return is_error(record) && !is_of_entry(record) ? usual_advice : "";
}

}  // namespace

PrivateLog::PrivateLog() {
  std::error_code error;
  std::string path = (std::filesystem::temp_directory_path(error) / "xadtm.XXXXXX").string();
  file_ = error ? -1 : mkstemp(path.data());
  if (file_ < 0) {
    throw Refused("no temporary file can be made; look at the folder for such files, or set TMPDIR to another one");
  }
  const bool opened = xalog_open_file(path.c_str()) == 1;
  unlink(path.c_str());
  if (!opened) {
    close(file_);
    throw Refused("the temporary file cannot be used; look at the folder for such files and its space");
  }
  static_cast<void>(xacmn_log_trace_add("event"));
}

PrivateLog::~PrivateLog() {
  close(file_);
}

namespace {

// What the library says of the open string; its reader has told the check more.
bool is_of_open_string(const LogRecord &record) {
  return record.function == "xacmn_parse_open_info" || record.function == "xalog_init";
}

// Traces, reports that are shown as results, and what the library says about itself.
bool is_chatter(const LogRecord &record) {
  if (record.type.ends_with("trace")) {
    return record.text.find("(CS_SET, ") == std::string::npos || record.text.find("failed!") == std::string::npos;
  }
  return record.text.starts_with("Return ") || record.text.starts_with("Using config file") ||
         record.function == "xalog_open_file" || (record.function == "xl_init" && record.type != "Error") ||
         (record.type == "Message" && record.text.find("(CS_SET, ") != std::string::npos);
}

std::string contents_of(int file) {
  std::string text;
  std::array<char, 4096> buffer{};
  ssize_t got = 0;
  while ((got = pread(file, buffer.data(), buffer.size(), static_cast<off_t>(text.size()))) > 0) {
    text.append(buffer.data(), static_cast<size_t>(got));
  }
  return text;
}

std::string trimmed(const std::string &text) {
  return text.substr(0, text.find_last_not_of(" \n") + 1);
}

}  // namespace

std::vector<Heard> PrivateLog::read(const Discretion &discretion) const {
  std::vector<Heard> all;
  std::istringstream stream(contents_of(file_));
  LogFile file(stream);
  for (LogRecord record; file.next(record);) {
    if (is_of_open_string(record) || is_chatter(record)) {
      continue;
    }
    Heard heard{record.type.ends_with("trace") ? "Warning" : record.type, discretion.of_library(record.text),
                advice_for(record), trimmed(record.text)};
    if (std::none_of(all.begin(), all.end(), [&](const Heard &other) { return other.said == heard.said; })) {
      all.push_back(std::move(heard));
    }
  }
  return all;
}
