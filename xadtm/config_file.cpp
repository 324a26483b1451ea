/*
 * config_file.cpp - finds the configuration file and reads it through the maker's reader, marking what the library
 * passes over without a word.
 */
#include "config_file.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "common_routines.h"

static constexpr size_t longest_path = 1023;

static constexpr std::array<std::string_view, 5> all_entries = {"logfile", "traceflags", "cs_dt_info", "properties",
                                                                "maxoutconn"};
static constexpr std::array<std::string_view, 7> xa_entries = {"lrm",          "dsn",     "server",    "properties",
                                                               "capabilities", "options", "maxoutconn"};

bool same_name(const std::string &left, const std::string &right) {
  return com_unsignstricmp(left.c_str(), right.c_str()) == 0;
}

static std::string environment(const char *name) {
  const char *value = com_getenv(name);
  return value == nullptr ? "" : value;
}

static std::vector<std::string> candidates(std::string &origin) {
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

static std::vector<std::string> read_values(INTL_READER &reader) {
  std::vector<std::string> values;
  int32_t status = 0;
  while (const char *value = intl_nextvalue(&reader, &status)) {
    values.emplace_back(value);
  }
  return values;
}

static ConfigPart read_part(INTL_READER &reader, const char *name, int32_t status) {
  ConfigPart part{name, {}, status == 0 ? "" : "it holds a malformed line; mend that"};
  while (const char *entry = intl_nextentry(&reader, &status)) {
    ConfigLine line{entry, {}, status == 0 ? "" : "it is malformed"};
    line.values = read_values(reader);
    part.lines.push_back(std::move(line));
  }
  return part;
}

static std::vector<ConfigPart> read_parts(INTL_READER &reader) {
  std::vector<ConfigPart> parts;
  int32_t status = 0;
  while (const char *name = intl_nextsection(&reader, &status)) {
    parts.push_back(read_part(reader, name, status));
  }
  return parts;
}

template <size_t Count>
static bool is_listed(const std::array<std::string_view, Count> &names, const std::string &name) {
  return std::any_of(names.begin(), names.end(),
                     [&](std::string_view listed) { return same_name(std::string(listed), name); });
}

static void mark_lines(ConfigPart &part) {
  const bool is_all = same_name(part.name, "all");
  for (ConfigLine &line : part.lines) {
    const bool known = is_all ? is_listed(all_entries, line.name) : is_listed(xa_entries, line.name);
    if (line.ignored.empty() && !known) {
      line.ignored = "no entry of this name belongs here";
    } else if (line.ignored.empty() && line.values.size() > 1 && !same_name(line.name, "properties") &&
               !same_name(line.name, "capabilities") && !same_name(line.name, "options")) {
      line.ignored = "only its first value is used";
    }
  }
}

static bool names_lrm(const ConfigPart &part, const std::string &lrm) {
  return std::any_of(part.lines.begin(), part.lines.end(), [&](const ConfigLine &line) {
    return (same_name(line.name, "lrm") || same_name(line.name, "dsn")) && !line.values.empty() &&
           line.values.front() == lrm;
  });
}

/* The first [all] section counts, and the first [xa] section that names the LRM. */
static void mark_parts(std::vector<ConfigPart> &parts, const std::string &lrm) {
  bool have_all = false;
  bool have_xa = false;
  for (ConfigPart &part : parts) {
    const bool is_all = same_name(part.name, "all");
    const bool is_xa = same_name(part.name, "xa");
    if (!is_all && !is_xa) {
      part.ignored = "only sections [all] and [xa] are read";
    } else if (is_all && have_all) {
      part.ignored = "only the first [all] section is read";
    } else if (is_xa && !names_lrm(part, lrm)) {
      part.ignored = part.ignored.empty() ? "it is another LRM's" : part.ignored;
    } else if (is_xa && have_xa) {
      part.ignored = "only the first [xa] section with this lrm is read";
    } else {
      (is_all ? have_all : have_xa) = true;
      mark_lines(part);
    }
  }
}

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
    static_cast<void>(intl_close(&reader)); /* only read */
    mark_parts(file.parts, lrm);
    break;
  }
  return file;
}

std::optional<std::string> config_value(const ConfigFile &file, const std::string &part, const std::string &entry) {
  for (const ConfigPart &candidate : file.parts) {
    if (!candidate.ignored.empty() || !same_name(candidate.name, part)) {
      continue;
    }
    for (const ConfigLine &line : candidate.lines) {
      if (same_name(line.name, entry) && !line.values.empty() && !line.values.front().empty()) {
        return line.values.front();
      }
    }
  }
  return std::nullopt;
}
