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

// An entry whose values are settings, and how the library's messages speak of them.
struct SettingsEntry {
  const char *part;
  const char *entry;
  const char *label;
  const char *call;
};

constexpr SettingsEntry settings_entries[] = {
    {"all", "properties", "Context Property", "ct_config"},
    {"all", "cs_dt_info", "cs_dt_info setting", "cs_dt_info"},
    {"xa", "properties", "Property", "ct_con_props"},
    {"xa", "capabilities", "Capability", "ct_capability"},
    {"xa", "options", "Option", "ct_options"},
};

const SettingsEntry *settings_entry(const ConfigPart &part, const ConfigLine &line) {
  const auto *found =
      std::find_if(std::begin(settings_entries), std::end(settings_entries), [&](const SettingsEntry &candidate) {
        return same_name(candidate.part, part.name) && same_name(candidate.entry, line.name);
      });
  return found == std::end(settings_entries) ? nullptr : found;
}

}  // namespace

// ---- Settings -------------------------------------------------------------------------------------------------------

namespace {

std::string unsupported(const SettingsEntry &entry, const std::string &keyword) {
  return std::string(entry.label) + " " + keyword + " not supported, ignored";
}

// What the library said against a setting; null when it takes it. Keywords may be written in either case.
const Heard *complaint_about(const SettingsEntry &entry, const std::string &keyword, const std::string &value,
                             const std::vector<Heard> &heard) {
  const std::string label = entry.label;
  const std::string texts[] = {
      unsupported(entry, keyword),
      "Unknown value " + value + " for " + label + ": " + keyword + ", ignored",
      "Maximum number of " + label + " exceeded, " + keyword + " ignored",
      std::string(entry.call) + "(CS_SET, " + keyword + ") failed!",
  };
  const auto found = std::find_if(heard.begin(), heard.end(), [&](const Heard &one) {
    return std::any_of(std::begin(texts), std::end(texts),
                       [&](const std::string &text) { return lower_case(text) == lower_case(one.said); });
  });
  return found == heard.end() ? nullptr : &*found;
}

// Values of keywords that do not exist may be passwords.
void print_setting(const Findings &findings, const SettingsEntry &entry, const std::string &setting) {
  const size_t equals = setting.find('=');
  const std::string keyword = setting.substr(0, equals);
  const std::string value = equals == std::string::npos ? "" : setting.substr(equals + 1);
  const Heard *complaint = complaint_about(entry, keyword, value, findings.heard);
  if (complaint == nullptr && findings.settings_read) {
    std::cout << "      " << printable(without_passwords(setting)) << '\n';
    return;
  }
  if (complaint == nullptr) {
    std::cout << "      " << (findings.discretion.holds_password(keyword) ? "***" : printable(keyword))
              << (equals == std::string::npos ? "" : "=(value not shown)")
              << "  <- not tried: see what is said below\n";
    return;
  }
  const bool is_known = lower_case(complaint->said) != lower_case(unsupported(entry, keyword));
  std::cout << "      " << (findings.discretion.holds_password(keyword) ? "***" : printable(keyword));
  if (equals != std::string::npos) {
    const bool shown = is_known && !findings.discretion.holds_password(value);
    std::cout << '=' << (shown ? printable(without_passwords(value)) : "(value not shown)");
  }
  std::cout << "  <- not in force: " << complaint->text << '\n';
}

}  // namespace

// ---- The file -------------------------------------------------------------------------------------------------------

namespace {

void print_values(const Findings &findings, const ConfigPart &part, const ConfigLine &line) {
  const SettingsEntry *settings = settings_entry(part, line);
  for (const std::string &value : line.values) {
    if (!line.known || (!line.ignored.empty() && findings.discretion.holds_password(value))) {
      std::cout << "      (value not shown)\n";
    } else if (settings != nullptr) {
      print_setting(findings, *settings, value);
    } else {
      std::cout << "      " << (findings.discretion.holds_password(value) ? "***" : printable(value)) << '\n';
    }
  }
}

// A malformed line is in the place of the name.
std::string name_shown(const Findings &findings, const ConfigLine &line) {
  const auto end = std::find_if(line.name.begin(), line.name.end(),
                                [](unsigned char c) { return c != '_' && std::isalnum(c) == 0; });
  const std::string name = line.known ? line.name : std::string(line.name.begin(), end);
  return (findings.discretion.holds_password(name) ? "***" : printable(without_passwords(name))) +
         (name == line.name ? "" : " (rest not shown)");
}

void print_line(const Findings &findings, const ConfigPart &part, const ConfigLine &line) {
  std::cout << "    " << name_shown(findings, line) << '\n';
  print_values(findings, part, line);
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
      print_line(findings, part, line);
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
