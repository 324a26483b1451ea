// What the open string holds, which of it is not used, and why.
#include <algorithm>
#include <cctype>
#include <iostream>

#include "check_reports.h"
#include "log/xal_trace_keywords.h"
#include "texts.h"

namespace {

struct Option {
  char letter;
  const char *meaning;
};

constexpr Option options_known[] = {
    {'N', "LRM name"},      {'U', "user"},       {'P', "password"},
    {'S', "server"},        {'K', "lookup key"}, {'L', "log file"},
    {'T', "trace keyword"}, {'V', "version"},    {'C', "connection limit, which is refused here"},
};

const char *meaning_of(char letter, const std::string &flavour) {
  if (letter == 'K' && flavour != "mts") {
    return nullptr;
  }
  const auto *found = std::find_if(std::begin(options_known), std::end(options_known),
                                   [=](const Option &option) { return option.letter == letter; });
  return found == std::end(options_known) ? nullptr : found->meaning;
}

bool stands_again(const Findings &findings, size_t index) {
  const auto here = findings.options.begin() + static_cast<ptrdiff_t>(index);
  return std::any_of(here + 1, findings.options.end(),
                     [&](const OptionGiven &later) { return later.letter == here->letter && later.is_stored; });
}

std::string why_log_unused(const Findings &findings, size_t index) {
  if (log_entry(findings.config)) {
    return "not used: the configuration's logfile entry decides";
  }
  const auto here = findings.options.begin() + static_cast<ptrdiff_t>(index);
  const bool is_first =
      std::none_of(findings.options.begin(), here, [](const OptionGiven &earlier) { return earlier.letter == 'L'; });
  const std::optional<LogOption> taken = log_option(findings.open_string);
  if (!is_first || !taken || taken->is_part) {
    return "not used: only the first -L is";
  }
  return taken->path.empty() ? "not used: it is empty or has more than 511 characters" : "";
}

std::string why_trace_unused(const Findings &findings, const OptionGiven &option) {
  if (config_value(findings.config, "all", "traceflags")) {
    return "not used: the configuration's traceflags entry decides";
  }
  return find_trace_keyword(option.value) != nullptr
             ? ""
             : "ignored: there is no such trace keyword; known are " + trace_keyword_list();
}

// Why an option is not used; empty when it is.
std::string why_unused(const Findings &findings, size_t index) {
  const OptionGiven &option = findings.options[index];
  switch (option.letter) {
    case 'L':
      return why_log_unused(findings, index);
    case 'T':
      return why_trace_unused(findings, option);
    case 'V':
    case 'C':
      return "";
    default:
      if (!option.is_stored) {
        return "not used: an option before it is wrong";
      }
      return stands_again(findings, index) ? "not used: the option stands again later" : "";
  }
}

bool is_number(const std::string &text) {
  constexpr size_t most = 9;
  return text.size() <= most &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

// A value that means nothing behind its letter may be a password with a wrong letter.
bool may_be_shown(const OptionGiven &option) {
  switch (option.letter) {
    case 'T':
      return find_trace_keyword(option.value) != nullptr;
    case 'V':
    case 'C':
      return is_number(option.value);
    default:
      return true;
  }
}

std::string value_shown(const OptionGiven &option, bool is_known) {
  if (option.letter == 'P') {
    return option.value.empty() ? " (empty)" : " ***";
  }
  if (!is_known || !may_be_shown(option) || option.may_be_password) {
    return " (value not shown)";
  }
  return std::string(" ").append(printable(without_passwords(option.value)));
}

std::string why_wrong(const OptionGiven &option) {
  switch (option.fault) {
    case OpenFault::bad_version:
      return "refused: write -V11 with white space behind it, or leave it out; values behind it are not used";
    case OpenFault::too_long:
      return "refused: it has more than 31 characters; shorten it; values behind it are not used";
    case OpenFault::connection_limit:
      return "remove -C, and write properties=CS_MAX_CONNECT=NUMBER in the [all] section; values behind it are not "
             "used";
    default:
      return "";
  }
}

std::string remarks_on(const Findings &findings, size_t index) {
  const OptionGiven &option = findings.options[index];
  std::string remarks;
  for (const std::string &remark : {why_wrong(option), why_unused(findings, index)}) {
    remarks.append(remark.empty() ? "" : "; ").append(remark);
  }
  if (option.letter != 'P' && without_passwords(option.value) != option.value) {
    remarks += "; if -P in it was to be an option, put white space before it";
  }
  if (takes_for_trace_option(option.value)) {
    remarks += "; the library takes \"-T\" in it for a trace option";
  }
  if (option.letter == 'K' && option.value == "MSDTC") {
    remarks += "; with this one, connections are not published to application code";
  }
  if (option.letter == 'P' && option.value.empty()) {
    remarks += "; a password stands directly behind -P, without white space";
  }
  return remarks;
}

}  // namespace

void report_options(const Findings &findings) {
  for (size_t i = 0; i < findings.options.size(); ++i) {
    const OptionGiven &option = findings.options[i];
    const char *meaning = meaning_of(option.letter, findings.flavour);
    std::cout << "  -" << (option.letter == '\0' ? "" : printable({&option.letter, 1}))
              << value_shown(option, meaning != nullptr) << "  ";
    if (meaning == nullptr) {
      std::cout << "ignored: there is no such option\n";
    } else {
      std::cout << meaning << remarks_on(findings, i) << '\n';
    }
  }
  if (findings.flavour == "mts" && stored_value(findings.options, 'K').empty()) {
    std::cout << "  without -K, connections are not published to application code\n";
  }
  if (findings.flavour != "mts" && stored_value(findings.options, 'N').empty()) {
    std::cout << "  no LRM is named, which only MTS allows: add -N and the LRM's name\n";
  }
  if (!stray_texts(findings.open_string).empty()) {
    std::cout << "  text that belongs to no option is ignored: put \"-\" and a letter before every value, and no white "
                 "space behind the letter\n";
  }
}
