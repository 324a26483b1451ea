/*
 * check_command.cpp - xadtm check: tries a configuration and says everything that is known about it.
 *
 * What the library passes over silently is found here by its rules; what it complains about is taken from its log.
 */
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "commands.h"
#include "config_file.h"
#include "open_string.h"
#include "private_log.h"
#include "session.h"
#include "texts.h"

namespace {

struct LogPlace {
  std::string path;
  std::string origin;
};

struct Option {
  char letter;
  const char *meaning;
};

}  // namespace

static constexpr Option options_known[] = {
    {'N', "LRM name"},      {'U', "user"},       {'P', "password"},
    {'S', "server"},        {'K', "lookup key"}, {'L', "log file"},
    {'T', "trace keyword"}, {'V', "version"},    {'C', "connection limit, which is refused here"},
};

static constexpr std::array<std::string_view, 11> trace_keywords = {"xa", "xl", "xc", "cmn", "event", "misc",
                                                                    "os", "xs", "ct", "v",   "all"};

static bool is_trace_keyword(const std::string &text) {
  return std::any_of(trace_keywords.begin(), trace_keywords.end(),
                     [&](std::string_view keyword) { return keyword.starts_with(text); });
}

static const char *meaning_of(char letter, const std::string &flavour) {
  if (letter == 'K' && flavour != "mts") {
    return nullptr;
  }
  const auto *found = std::find_if(std::begin(options_known), std::end(options_known),
                                   [=](const Option &option) { return option.letter == letter; });
  return found == std::end(options_known) ? nullptr : found->meaning;
}

// ---- The open string ------------------------------------------------------------------------------------------------

/* Why an option is not used, as far as the library says nothing of it; empty when it is. */
static std::string why_unused(const std::vector<OpenOption> &options, size_t index, const ConfigFile &config) {
  const OpenOption &option = options[index];
  const auto same = [&](const OpenOption &other) { return other.letter == option.letter; };
  const auto here = options.begin() + static_cast<ptrdiff_t>(index);
  if (option.letter == 'L') {
    if (config_value(config, "all", "logfile")) {
      return "not used: the configuration's logfile entry decides";
    }
    return std::any_of(options.begin(), here, same) ? "not used: only the first -L is" : "";
  }
  if (option.letter == 'T') {
    if (config_value(config, "all", "traceflags")) {
      return "not used: the configuration's traceflags entry decides";
    }
    return is_trace_keyword(option.value) ? "" : "ignored: there is no such trace keyword";
  }
  return option.letter != 'V' && std::any_of(here + 1, options.end(), same) ? "not used: the option stands again later"
                                                                            : "";
}

static void print_option(const OpenOption &option, const std::string &flavour, const std::string &unused) {
  const char *meaning = meaning_of(option.letter, flavour);
  std::cout << "  -" << printable({&option.letter, 1});
  if (option.letter == 'P') {
    std::cout << (option.value.empty() ? " (empty)" : " ***");
  } else if (meaning == nullptr) {
    std::cout << " (value not shown)"; /* it may be a password with a wrong letter */
  } else {
    std::cout << ' ' << printable(without_passwords(option.value));
  }
  std::cout << "  " << (meaning == nullptr ? "ignored: there is no such option" : meaning);
  std::cout << (unused.empty() ? "" : "; " + unused);
  const bool swallowed = without_passwords(option.value) != option.value && meaning != nullptr && option.letter != 'P';
  std::cout << (swallowed ? "; it holds -P, which needs white space before it" : "") << '\n';
}

static void print_options(const std::vector<OpenOption> &options, const Arguments &arguments,
                          const ConfigFile &config) {
  std::cout << "open string, flavour " << arguments.flavour << (arguments.flavour_given ? "" : " (unless --flavour)")
            << '\n';
  for (size_t i = 0; i < options.size(); ++i) {
    print_option(options[i], arguments.flavour, why_unused(options, i, config));
  }
  if (has_stray_text(*arguments.open_string)) {
    std::cout << "  text that belongs to no option is ignored: put \"-\" and a letter before every value, and no white "
                 "space behind the letter\n";
  }
}

// ---- The configuration ----------------------------------------------------------------------------------------------

static bool is_part_of_word(char c) {
  return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0;
}

static bool holds_word(const std::string &text, const std::string &word) {
  for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    const size_t end = at + word.size();
    if ((at == 0 || !is_part_of_word(text[at - 1])) && (end == text.size() || !is_part_of_word(text[end]))) {
      return true;
    }
  }
  return false;
}

/* Whether what the library said means this setting: it names the keyword, and the value where that is wrong. */
static bool is_about(const std::string &said, const std::string &keyword, const std::string &value) {
  if (said.starts_with("Unknown value ")) {
    return said.starts_with("Unknown value " + value + " for ") && holds_word(said, keyword);
  }
  return (said.ends_with("ignored") || said.ends_with("failed!")) && holds_word(said, keyword);
}

/* What the library said against a setting, "keyword=value"; empty when it takes it. */
static std::string complaint_about(const std::string &setting, const std::vector<Heard> &heard) {
  const size_t equals = setting.find('=');
  const std::string keyword = setting.substr(0, equals);
  const std::string value = equals == std::string::npos ? "" : setting.substr(equals + 1);
  const auto found = std::find_if(heard.begin(), heard.end(), [&](const Heard &one) {
    return !keyword.empty() && is_about(one.text, keyword, value);
  });
  return found == heard.end() ? "" : found->text;
}

static bool is_settings(const std::string &entry) {
  return same_name(entry, "properties") || same_name(entry, "capabilities") || same_name(entry, "options") ||
         same_name(entry, "cs_dt_info");
}

static void print_line(const ConfigLine &line, const std::vector<Heard> &heard) {
  std::cout << "    " << printable(without_passwords(line.name)) << '\n';
  for (const std::string &value : line.values) {
    const std::string complaint = is_settings(line.name) ? complaint_about(value, heard) : "";
    std::cout << "      " << printable(without_passwords(value))
              << (complaint.empty() ? "" : "  <- not in force: " + complaint) << '\n';
  }
  if (!line.ignored.empty()) {
    std::cout << "      <- ignored: " << line.ignored << '\n';
  }
}

static void print_config(const ConfigFile &config, const std::vector<Heard> &heard) {
  if (config.path.empty()) {
    std::cout << "configuration file: none\n";
  } else {
    std::cout << "configuration file " << printable(config.path) << ", from " << config.origin << '\n';
  }
  for (const std::string &path : config.tried) {
    std::cout << "  not readable: " << printable(path) << '\n';
  }
  for (const ConfigPart &part : config.parts) {
    std::cout << "  [" << printable(part.name) << ']' << (part.ignored.empty() ? "" : "  <- not used: " + part.ignored)
              << '\n';
    if (part.ignored.empty()) {
      for (const ConfigLine &line : part.lines) {
        print_line(line, heard);
      }
    }
  }
}

static void print_server(const std::vector<OpenOption> &options, const ConfigFile &config) {
  const std::string own = last_value(options, 'S');
  const std::string configured = config_value(config, "xa", "server").value_or("");
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

static LogPlace log_place(const std::vector<OpenOption> &options, const ConfigFile &config) {
  constexpr size_t longest = 511; /* of a path after -L */
  if (const auto configured = config_value(config, "all", "logfile")) {
    return {*configured, "the configuration's logfile entry"};
  }
  const auto option = std::find_if(options.begin(), options.end(), [](const OpenOption &o) { return o.letter == 'L'; });
  if (option != options.end() && !option->value.empty() && option->value.size() <= longest) {
    return {option->value, "-L"};
  }
  if (const char *named = std::getenv("XALOGFILE")) {
    return {named, "$XALOGFILE"};
  }
  if (const char *home = std::getenv("TARVEX")) {
    return {std::string(home) + "/trv_xa_log", "$TARVEX"};
  }
  return {"stderr", "nothing else being set"};
}

/* A log that cannot be opened makes xa_open fail. */
static bool can_be_written(const std::string &path) {
  if (path == "stderr") {
    return true;
  }
  std::error_code error;
  if (std::filesystem::exists(path, error)) {
    return !std::filesystem::is_directory(path, error) && access(path.c_str(), R_OK | W_OK) == 0;
  }
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return !path.empty() && access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) == 0;
}

static bool check_log(const LogPlace &place) {
  const bool fine = can_be_written(place.path);
  std::cout << "log: " << printable(without_passwords(place.path)) << ", from " << place.origin << '\n';
  if (!fine) {
    std::cout << "  <- it cannot be opened for reading and writing, and so xa_open would fail: make the folder, change "
                 "the rights, or name another file\n";
  }
  return fine;
}

// ---- Trying it ------------------------------------------------------------------------------------------------------

/* What came of the three calls; those that were not made have no text. */
struct Trial {
  std::string open;
  std::string recover;
  std::string close;
  bool fine = false;
};

static Trial try_out(const xa_switch_t &xa, const std::string &info) {
  Trial trial;
  const int32_t opened = xa.xa_open_entry(info.c_str(), tool_rmid, TMNOFLAGS);
  trial.open = code_text(opened);
  if (opened != XA_OK) {
    return trial;
  }
  std::vector<XID> xids;
  const int32_t scanned = scan_branches(xa, xids);
  trial.recover = scanned == XA_OK ? "branches in doubt: " + std::to_string(xids.size()) : code_text(scanned);
  const int32_t closed = xa.xa_close_entry("", tool_rmid, TMNOFLAGS);
  trial.close = code_text(closed);
  trial.fine = scanned == XA_OK && closed == XA_OK;
  return trial;
}

static void print_trial(const Trial &trial) {
  std::cout << "tried\n  xa_open, with the check that the server is ready: " << trial.open << '\n';
  if (!trial.recover.empty()) {
    std::cout << "  xa_recover: " << trial.recover << "\n  xa_close: " << trial.close << '\n';
  }
}

static void print_heard(const std::vector<Heard> &heard) {
  std::cout << (heard.empty() ? "the library had nothing to complain about\n" : "the library said\n");
  for (const Heard &one : heard) {
    std::cout << "  " << one.type << ": " << one.text << '\n';
    std::cout << (one.advice.empty() ? "" : "    -> " + one.advice + "\n");
  }
}

static std::vector<std::string> passwords_of(const std::vector<OpenOption> &options) {
  std::vector<std::string> passwords;
  for (const OpenOption &option : options) {
    if (option.letter == 'P') {
      passwords.push_back(option.value);
    }
  }
  return passwords;
}

int check_command(const Arguments &arguments) {
  if (arguments.words.size() != 1) {
    throw UsageError("write check -o OPEN_STRING, and no further words");
  }
  const std::string &info = open_string_of(arguments);
  const std::vector<OpenOption> options = read_open_string(info);
  const ConfigFile config = read_config(last_value(options, 'N'));
  const PrivateLog log;
  const Trial trial = try_out(switch_of(arguments.flavour), info);
  const std::vector<Heard> heard = log.read(passwords_of(options));
  print_options(options, arguments, config);
  print_config(config, heard);
  print_server(options, config);
  const bool log_is_fine = check_log(log_place(options, config));
  print_trial(trial);
  print_heard(heard);
  const bool usable = trial.fine && log_is_fine;
  std::cout << (usable ? "A transaction manager can use it as it stands.\n"
                       : "A transaction manager cannot use it: mend what is said above, then check again.\n");
  return usable ? exit_done : exit_refused;
}
