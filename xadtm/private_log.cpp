/* private_log.cpp - the temporary log, and what its messages mean for an operator. */
#include "private_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "commands.h"
#include "log_file.h"
#include "texts.h"
#include "xadtm.h"

namespace {

struct Advice {
  std::string_view part; /* of the message */
  const char *advice;
};

}  // namespace

static constexpr Advice advices[] = {
    {"No $XACONFIGFILE or $TARVEX found",
     "set XACONFIGFILE to the path of xa_config, or TARVEX to the folder that holds it"},
    {"Configuration file search path",
     "no readable file is there; put xa_config there or set XACONFIGFILE to its path"},
    {"invalid logfile", "give logfile one path of at most 1024 characters, or remove the entry"},
    {"invalid traceflag", "give traceflags one of xa, xl, xc, xs, event, misc, v, all, or remove the entry"},
    {"invalid cs_dt_info", "give cs_dt_info CS_DATES_SHORT or CS_DATES_LONG, or remove the entry"},
    {"maxoutconn", "remove the entry, and write properties=CS_MAX_CONNECT=NUMBER in the [all] section"},
    {"Invalid entry in [all]", "remove the entry; [all] takes logfile, traceflags, cs_dt_info and properties"},
    {"section not found in config file", "mend the malformed line before or in the [all] section"},
    {"No xa section", "mend the malformed line in the section that the search for the LRM stopped at"},
    {"Unknown value", "give the keyword a value that it takes"},
    {"not supported, ignored",
     "correct the spelling, or move it to the entry (properties, capabilities, options) and section it belongs to"},
    {"Maximum number of connections", "remove -C, and write properties=CS_MAX_CONNECT=NUMBER in the [all] section"},
    {"Maximum number of", "remove settings: nine properties, nine options and 53 capabilities are kept"},
    {"failed!",
     "the client library or the server does not take this setting; if the configuration names it, remove it there or "
     "give another value"},
    {"lrm invalid", "give every lrm entry a name of 1 to 31 characters"},
    {"server invalid", "give every server entry a name of 1 to 31 characters"},
    {"not found", "add an [xa] section with this lrm, or correct -N"},
    {"Password Too long", "passwords have at most 31 characters"},
    {"Too long, Truncated", "shorten it to at most 31 characters; options behind it are not used"},
    {"longer than", "shorten the path after -L; the library has looked elsewhere for its log's path"},
    {"Incorrect version identifier", "write -V11, or leave -V out; options behind it are not used"},
    {"not recognized", "remove the option; -N, -U, -P, -S, -L, -T and -V are known, and -K under mts"},
    {"Contains no Lookup key", "add -K and a key, which the flavour mts wants"},
    {"Contains no", "add -N and the LRM's name"},
    {"not configured for XA DTM use", "switch it on at the server: zdbd --admin DIR dtm on"},
    {"dtm_tm_role", "give the user the role at the server: zdbd --admin DIR add-user USER dtm"},
    {"Connection failed after established", "look after the server: it went away during the check"},
    {"Unable to determine DTM", "look after the server: it did not answer the question whether DTM is on"},
    {"Connect(", "see that the server runs and the interfaces file leads to it, and that user and password are right"},
    {"Only one type", "give --flavour the one that was used before"},
};

static std::string advice_for(std::string_view text) {
  const auto *found = std::find_if(std::begin(advices), std::end(advices),
                                   [&](const Advice &row) { return text.find(row.part) != std::string_view::npos; });
  return found == std::end(advices) ? "" : found->advice;
}

PrivateLog::PrivateLog() {
  std::error_code error;
  path_ = (std::filesystem::temp_directory_path(error) / "xadtm.XXXXXX").string();
  const int file = error ? -1 : mkstemp(path_.data());
  if (file < 0) {
    throw Refused("no temporary file can be made; look at the folder for such files, or set TMPDIR to another one");
  }
  close(file);
  if (xalog_open_file(path_.c_str()) != 1) {
    unlink(path_.c_str());
    throw Refused("the temporary file cannot be used; look at the folder for such files and its space");
  }
  static_cast<void>(xacmn_log_trace_add("event"));
}

PrivateLog::~PrivateLog() {
  unlink(path_.c_str());
}

/* Traces, reports that are shown as results, and what the library says about itself. */
static bool is_chatter(const LogRecord &record) {
  if (record.type.ends_with("trace")) {
    return record.text.find("(CS_SET, ") == std::string::npos || record.text.find("failed!") == std::string::npos;
  }
  return record.text.starts_with("Return ") || record.text.starts_with("Using config file") ||
         record.function == "xalog_open_file" || record.function == "xl_init" ||
         (record.type == "Message" && record.text.find("(CS_SET, ") != std::string::npos);
}

static std::string replaced(std::string text, const std::string &part, const std::string &by) {
  for (size_t at = text.find(part); !part.empty() && at != std::string::npos; at = text.find(part, at + by.size())) {
    text.replace(at, part.size(), by);
  }
  return text;
}

/* A message that quotes the open string does so at its end; it may be cut anywhere, so it goes as a whole. */
static std::string without_secrets(std::string text, const std::vector<std::string> &passwords) {
  static constexpr std::string_view quote = "open string ";
  if (const size_t at = text.find(quote); at != std::string::npos) {
    text.resize(at + quote.size() - 1);
  }
  for (const std::string &password : passwords) {
    text = replaced(std::move(text), password, "***");
  }
  return printable(without_passwords(text));
}

std::vector<Heard> PrivateLog::read(const std::vector<std::string> &passwords) const {
  std::vector<Heard> all;
  std::ifstream stream(path_, std::ios::binary);
  LogFile file(stream);
  for (LogRecord record; file.next(record);) {
    if (is_chatter(record)) {
      continue;
    }
    Heard heard{record.type.ends_with("trace") ? "Warning" : record.type, without_secrets(record.text, passwords),
                advice_for(record.text)};
    if (std::none_of(all.begin(), all.end(), [&](const Heard &other) { return other.text == heard.text; })) {
      all.push_back(std::move(heard));
    }
  }
  return all;
}
