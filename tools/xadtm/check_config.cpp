// What the configuration file holds, what of it is not in force, and what it decides.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iostream>

#include "check_reports.h"
#include "texts.h"

namespace {

struct LogPlace {
  std::string path;
  std::string origin;
};

}  // namespace

// ---- Settings -------------------------------------------------------------------------------------------------------

namespace {

// The call that sets the settings of a table.
const char *call_of(const ConfigEntryRow &row) {
  if (row.entry == ConfigEntry::cs_dt_info) {
    return "cs_dt_info";
  }
  if (row.keywords == XaCtxPropLookupTab) {
    return "ct_config";
  }
  if (row.keywords == XaPropLookupTab) {
    return "ct_con_props";
  }
  return row.keywords == XaCapLookupTab ? "ct_capability" : "ct_options";
}

// What shows only when a setting is made: the library has no room for it, or the client library refuses it. Empty for
// neither. Keywords may be written in either case.
std::string refusal_of(const ConfigEntryRow &row, const std::string &keyword, const std::vector<Heard> &heard) {
  const std::string texts[] = {
      std::string("Maximum number of ") + row.label + " exceeded, " + keyword + " ignored",
      std::string(call_of(row)) + "(CS_SET, " + keyword + ") failed!",
  };
  const auto found = std::find_if(heard.begin(), heard.end(), [&](const Heard &one) {
    return std::any_of(std::begin(texts), std::end(texts),
                       [&](const std::string &text) { return lower_case(text) == lower_case(one.said); });
  });
  return found == heard.end() ? "" : found->text;
}

// Why a setting is not in force; empty when it is.
std::string why_not_in_force(const Findings &findings, const ConfigEntryRow &row, SettingFault fault,
                             const std::string &keyword) {
  switch (fault) {
    case SettingFault::unknown_keyword:
      return "not in force: the entry takes no such keyword; correct it, or move it to the entry it belongs to";
    case SettingFault::unknown_value:
      return "not in force: the keyword takes no such value";
    case SettingFault::none:
      break;
  }
  const std::string refusal = refusal_of(row, keyword, findings.heard);
  if (!refusal.empty()) {
    return "not in force: " + refusal;
  }
  return findings.settings_read ? "" : "not tried: see what is said below";
}

// Values of keywords that do not exist may be passwords, and so may those that were not tried.
void print_setting(const Findings &findings, const ConfigEntryRow &row, const std::string &setting) {
  const size_t equals = setting.find('=');
  const std::string keyword = setting.substr(0, equals);
  const std::string value = equals == std::string::npos ? "" : setting.substr(equals + 1);
  const SettingFault fault = meaning_of_setting(row.keywords, keyword.c_str(), value.c_str()).fault;
  const std::string why = why_not_in_force(findings, row, fault, keyword);
  if (why.empty()) {
    std::cout << "      " << printable(without_passwords(setting)) << '\n';
    return;
  }
  std::cout << "      " << (findings.discretion.holds_password(keyword) ? "***" : printable(keyword));
  if (equals != std::string::npos) {
    const bool shown =
        findings.settings_read && fault != SettingFault::unknown_keyword && !findings.discretion.holds_password(value);
    std::cout << '=' << (shown ? printable(without_passwords(value)) : "(value not shown)");
  }
  std::cout << "  <- " << why << '\n';
}

}  // namespace

// ---- The file -------------------------------------------------------------------------------------------------------

namespace {

void print_values(const Findings &findings, const ConfigLine &line) {
  for (const std::string &value : line.values) {
    if (line.row == nullptr || (!line.ignored.empty() && findings.discretion.holds_password(value))) {
      std::cout << "      (value not shown)\n";
    } else if (line.row->keywords != nullptr) {
      print_setting(findings, *line.row, value);
    } else {
      std::cout << "      " << (findings.discretion.holds_password(value) ? "***" : printable(value)) << '\n';
    }
  }
}

// A malformed line is in the place of the name.
std::string name_shown(const Findings &findings, const ConfigLine &line) {
  const auto end = std::find_if(line.name.begin(), line.name.end(),
                                [](unsigned char c) { return c != '_' && std::isalnum(c) == 0; });
  const std::string name = line.row != nullptr ? line.name : std::string(line.name.begin(), end);
  return (findings.discretion.holds_password(name) ? "***" : printable(without_passwords(name))) +
         (name == line.name ? "" : " (rest not shown)");
}

void print_line(const Findings &findings, const ConfigLine &line) {
  std::cout << "    " << name_shown(findings, line) << '\n';
  print_values(findings, line);
  if (!line.ignored.empty()) {
    std::cout << "      <- ignored: " << line.ignored << '\n';
  }
}

// A malformed header is in the place of the name, whole; what stands behind its first word may be anything.
std::string header_shown(const Findings &findings, const ConfigPart &part) {
  const size_t begin = std::min(part.name.find_first_not_of('['), part.name.size());
  const size_t end = std::min(part.name.find_first_of(" \t]=-", begin), part.name.size());
  const std::string name = part.name.substr(begin, end - begin);
  return '[' + (findings.discretion.holds_password(name) ? "***" : printable(name)) +
         (end == part.name.size() ? "" : " (rest not shown)") + ']';
}

// Of a part that is not used only what makes it so.
void print_part(const Findings &findings, const ConfigPart &part) {
  std::cout << "  " << header_shown(findings, part) << (part.ignored.empty() ? "" : "  <- not used: ") << part.ignored
            << '\n';
  for (const ConfigLine &line : part.lines) {
    if (part.ignored.empty() || line.malformed) {
      print_line(findings, line);
    }
  }
}

}  // namespace

void report_config(const Findings &findings) {
  const ConfigFile &config = findings.config;
  if (config.path.empty()) {
    std::cout << "configuration file: none\n";
  } else {
    std::cout << "configuration file " << printable(config.path) << ", from " << config.origin << '\n';
  }
  for (const std::string &path : config.tried) {
    std::cout << "  not readable: " << printable(path) << '\n';
  }
  for (const ConfigPart &part : config.parts) {
    print_part(findings, part);
  }
}

void report_server(const Findings &findings) {
  const std::string own = stored_value(findings.options, 'S');
  const std::string configured = config_value(findings.config, "xa", "server").value_or("");
  if (!own.empty()) {
    std::cout << "server: " << printable(without_passwords(own)) << ", from -S"
              << (configured.empty() ? "" : "; the configuration's server entry is not used") << '\n';
  } else if (!configured.empty()) {
    std::cout << "server: " << printable(configured) << ", from the configuration's [xa] section\n";
  } else {
    std::cout << "server: none named; add -S, or a server entry to the LRM's [xa] section\n";
  }
}

// ---- The log --------------------------------------------------------------------------------------------------------

namespace {

LogPlace log_place(const Findings &findings) {
  if (const auto configured = log_entry(findings.config)) {
    return {*configured, "the configuration's logfile entry"};
  }
  const std::optional<LogOption> option = log_option(findings.open_string);
  if (option && !option->path.empty()) {
    return {option->path, option->is_part ? "\"-L\" within another option" : "-L"};
  }
  if (const char *named = std::getenv("XALOGFILE")) {
    return {named, "$XALOGFILE"};
  }
  if (const char *home = std::getenv("TARVEX")) {
    return {std::string(home) + "/trv_xa_log", "$TARVEX"};
  }
  return {"stderr", "nothing else being set"};
}

// A path of the open string may hold a password that was meant for -P.
std::string path_shown(const Findings &findings, const LogPlace &place) {
  const std::optional<LogOption> option = log_option(findings.open_string);
  if (!option || place.path != option->path) {
    return printable(place.path);
  }
  return option->is_part || findings.discretion.holds_password(place.path) ? "(path not shown)"
                                                                           : printable(without_passwords(place.path));
}

}  // namespace

bool report_log(const Findings &findings) {
  const LogPlace place = log_place(findings);
  const std::optional<LogOption> option = log_option(findings.open_string);
  const bool is_part = option && option->is_part && place.path == option->path;
  std::cout << "log: " << path_shown(findings, place) << ", from " << place.origin << '\n';
  if (is_part) {
    std::cout
        << "  <- the library takes every \"-L\" for its option, even within a value: put a -L of its own first, or "
           "a logfile entry into the [all] section\n";
  }
  if (can_hold_log(place.path)) {
    return true;
  }
  std::cout << "  <- it cannot be opened for reading and writing, and so xa_open would fail: make the folder, change "
               "the rights, or name another file\n";
  return false;
}
