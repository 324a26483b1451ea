// Finds the configuration file and reads it through the maker's reader, marking what the library
// passes over without a word.
#include "config_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "common_routines.h"
#include "log/xal_trace_keywords.h"
#include "open_string.h"

namespace {

constexpr size_t longest_path = 1023;
constexpr size_t longest_log_path = 1024;

}  // namespace

bool same_name(const std::string &left, const std::string &right) {
  return com_unsignstricmp(left.c_str(), right.c_str()) == 0;
}

namespace {

std::string environment(const char *name) {
  const char *value = com_getenv(name);
  return value == nullptr ? "" : value;
}

std::vector<std::string> candidates(std::string &origin) {
  if (com_getenv("XACONFIGFILE") != nullptr) {
    origin = "$XACONFIGFILE";
    return {environment("XACONFIGFILE")};
  }
  if (com_getenv("TARVEX") == nullptr) {
    return {};
  }
  origin = "$TARVEX";
  const std::string home = environment("TARVEX") + "/";
  std::string release = home;
  if (com_getenv("TARVEX_QLT") != nullptr) {
    origin += " and $TARVEX_QLT";
    release += environment("TARVEX_QLT") + "/";
  }
  std::vector<std::string> paths = {release + "config/xa_config", release + "xa_config"};
  if (release != home) {
    paths.insert(paths.end(), {home + "config/xa_config", home + "xa_config"});
  }
  return paths;
}

std::vector<std::string> read_values(INTL_READER &reader) {
  std::vector<std::string> values;
  int32_t status = 0;
  while (const char *value = intl_nextvalue(&reader, &status)) {
    values.emplace_back(value);
  }
  return values;
}

ConfigPart read_part(INTL_READER &reader, const char *name, int32_t status) {
  ConfigPart part{name, {}, status == 0 ? "" : "it holds a malformed line; correct it"};
  while (const char *entry = intl_nextentry(&reader, &status)) {
    ConfigLine line;
    line.name = entry;
    line.malformed = status != 0;
    line.values = read_values(reader);
    part.lines.push_back(std::move(line));
  }
  return part;
}

std::vector<ConfigPart> read_parts(INTL_READER &reader) {
  std::vector<ConfigPart> parts;
  int32_t status = 0;
  while (const char *name = intl_nextsection(&reader, &status)) {
    parts.push_back(read_part(reader, name, status));
  }
  return parts;
}

bool is_entry(const ConfigLine &line, ConfigEntry entry) {
  return line.row != nullptr && line.row->entry == entry;
}

bool is_usable(const ConfigLine &line) {
  return !line.values.empty() && !line.values.front().empty() &&
         (!same_name(line.name, "logfile") || line.values.front().size() <= longest_log_path);
}

}  // namespace

using Line = std::vector<ConfigLine>::const_iterator;

namespace {

bool is_log_entry(const ConfigLine &line) {
  return same_name(line.name, "logfile") && is_usable(line) && can_hold_log(line.values.front());
}

bool has_usable(Line begin, Line end, const char *entry) {
  return std::any_of(begin, end,
                     [=](const ConfigLine &line) { return same_name(line.name, entry) && is_usable(line); });
}

// Why an entry is not used that takes one value, if it is so.
std::string why_single_unused(const std::vector<ConfigLine> &lines, Line line) {
  if (!is_usable(*line)) {
    return line->values.empty() || line->values.front().empty() ? "it has no value"
                                                                : "it has more than 1024 characters";
  }
  if (is_entry(*line, ConfigEntry::logfile) && std::any_of(lines.begin(), line, is_log_entry)) {
    return "only the first logfile entry is used";
  }
  if (is_entry(*line, ConfigEntry::logfile) && !is_log_entry(*line) && std::any_of(line, lines.end(), is_log_entry)) {
    return "the file cannot be opened, and so a later entry is used";
  }
  if (is_entry(*line, ConfigEntry::server) && has_usable(line + 1, lines.end(), "server")) {
    return "the entry stands again later";
  }
  if (is_entry(*line, ConfigEntry::traceflags) && find_trace_keyword(line->values.front()) == nullptr) {
    return "there is no such trace keyword; known are " + trace_keyword_list();
  }
  return line->values.size() > 1 ? "only its first value is used" : "";
}

std::string why_line_unused(const std::vector<ConfigLine> &lines, Line line) {
  if (line->malformed) {
    return "it is malformed; write NAME=VALUE";
  }
  if (line->row == nullptr) {
    return "no entry of this name belongs here";
  }
  if (is_entry(*line, ConfigEntry::maxoutconn)) {
    return "write properties=CS_MAX_CONNECT=NUMBER in the [all] section instead";
  }
  return is_entry(*line, ConfigEntry::settings) ? "" : why_single_unused(lines, line);
}

void mark_lines(ConfigPart &part) {
  const ConfigEntryRow *entries = same_name(part.name, "all") ? all_section_entries : xa_section_entries;
  for (ConfigLine &line : part.lines) {
    line.row = line.malformed ? nullptr : find_config_entry(entries, line.name.c_str());
  }
  for (auto line = part.lines.begin(); line != part.lines.end(); ++line) {
    line->ignored = why_line_unused(part.lines, line);
  }
}

bool names_lrm(const ConfigPart &part, const std::string &lrm) {
  return std::any_of(part.lines.begin(), part.lines.end(), [&](const ConfigLine &line) {
    const ConfigEntryRow *row = find_config_entry(xa_section_entries, line.name.c_str());
    return row != nullptr && row->entry == ConfigEntry::lrm && !line.values.empty() && line.values.front() == lrm;
  });
}

// The first [all] section counts, and the first [xa] section that names the LRM.
void mark_parts(std::vector<ConfigPart> &parts, const std::string &lrm) {
  bool have_all = false;
  bool have_xa = false;
  for (ConfigPart &part : parts) {
    const bool is_all = same_name(part.name, "all");
    const bool is_xa = same_name(part.name, "xa");
    if (!part.ignored.empty()) {
      mark_lines(part);
    } else if (!is_all && !is_xa) {
      part.ignored = "only sections [all] and [xa] are read";
    } else if (is_all && have_all) {
      part.ignored = "only the first [all] section is read";
    } else if (is_xa && !names_lrm(part, lrm)) {
      part.ignored = "it is another LRM's";
    } else if (is_xa && have_xa) {
      part.ignored = "only the first [xa] section with this lrm is read";
    } else {
      (is_all ? have_all : have_xa) = true;
      mark_lines(part);
    }
  }
}

}  // namespace

ConfigFile read_config(const std::string &lrm) {
  ConfigFile file;
  for (const std::string &path : candidates(file.origin)) {
    INTL_READER reader{};
    if (path.size() > longest_path || intl_open(path.c_str(), &reader) != 1) {
      file.tried.push_back(path);
      continue;
    }
    file.path = path;
    file.parts = read_parts(reader);
    static_cast<void>(intl_close(&reader));  // only read
    mark_parts(file.parts, lrm);
    break;
  }
  return file;
}

std::optional<std::string> config_value(const ConfigFile &file, const std::string &part, const std::string &entry) {
  std::optional<std::string> value;
  for (const ConfigPart &candidate : file.parts) {
    if (!candidate.ignored.empty() || !same_name(candidate.name, part)) {
      continue;
    }
    for (const ConfigLine &line : candidate.lines) {
      if (same_name(line.name, entry) && is_usable(line)) {
        value = line.values.front();
      }
    }
  }
  return value;
}

bool can_hold_log(const std::string &path) {
  if (path == "stderr") {
    return true;
  }
  if (const int log = open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); log >= 0) {
    close(log);
    return true;
  }
  if (errno != ENOENT || path.empty()) {
    return false;
  }
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::weakly_canonical(path, error).parent_path();
  return access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) == 0;
}

std::optional<std::string> log_entry(const ConfigFile &file) {
  std::optional<std::string> first;
  for (const ConfigPart &part : file.parts) {
    if (!part.ignored.empty() || !same_name(part.name, "all")) {
      continue;
    }
    for (const ConfigLine &line : part.lines) {
      if (is_log_entry(line)) {
        return line.values.front();
      }
      if (!first && same_name(line.name, "logfile") && is_usable(line)) {
        first = line.values.front();
      }
    }
  }
  return first;
}
