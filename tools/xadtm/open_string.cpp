// The library's reader takes the options apart. A word holds one at the most: the first "-" in it begins the option.
#include "open_string.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "log/xal_trace_keywords.h"
#include "texts.h"

namespace {

constexpr std::string_view null_info = "<nil>";  // as the library writes it

bool is_blank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

char upper_case(char c) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

// Takes the next word off the text; empty at the end.
std::string_view take_word(std::string_view &rest) {
  size_t begin = 0;
  while (begin < rest.size() && is_blank(rest[begin])) {
    ++begin;
  }
  size_t end = begin;
  while (end < rest.size() && !is_blank(rest[end])) {
    ++end;
  }
  const std::string_view word = rest.substr(begin, end - begin);
  rest.remove_prefix(end);
  return word;
}

}  // namespace

std::vector<OptionGiven> read_open_string(std::string_view text, bool has_key) {
  std::vector<OptionGiven> options;
  OpenStringReader reader(text, has_key);
  for (OpenOption read{}; reader.next(read) && read.place < text.size();) {
    OptionGiven option;
    option.place = read.place;
    option.letter = is_blank(read.letter) ? '\0' : read.letter;
    option.value = read.value;
    option.fault = read.fault;
    option.is_stored = read.is_stored;
    const bool begins_word = read.place == 0 || is_blank(text[read.place - 1]);
    option.may_be_password =
        !begins_word && !options.empty() && options.back().letter == 'P' && options.back().value.empty();
    options.push_back(std::move(option));
  }
  return options;
}

std::vector<std::string> stray_texts(std::string_view text) {
  std::vector<std::string> strays;
  std::string_view rest = text;
  for (std::string_view word = take_word(rest); !word.empty(); word = take_word(rest)) {
    if (const std::string_view stray = word.substr(0, word.find('-')); !stray.empty()) {
      strays.emplace_back(stray);
    }
  }
  return strays;
}

std::string stored_value(const std::vector<OptionGiven> &options, char letter) {
  std::string value;
  for (const OptionGiven &option : options) {
    if (option.letter == letter && option.is_stored) {
      value = option.value.substr(0, longest_open_value);
    }
  }
  return value;
}

std::optional<LogOption> log_option(std::string_view text) {
  const std::optional<OpenMark> mark = find_open_mark(text, 'L');
  if (!mark) {
    return std::nullopt;
  }
  const std::vector<OptionGiven> options = read_open_string(text, true);
  const bool is_own = std::any_of(options.begin(), options.end(),
                                  [&](const OptionGiven &option) { return option.place == mark->place; });
  return LogOption{mark->value.size() > longest_open_log_path ? "" : std::string(mark->value), !is_own};
}

bool takes_for_trace_option(std::string_view text) {
  size_t at = 0;
  for (auto mark = find_open_mark(text, 'T'); mark; mark = find_open_mark(text, 'T', at)) {
    if (find_trace_keyword(mark->value) != nullptr) {
      return true;
    }
    at = mark->place + 2 + mark->value.size();
  }
  return false;
}

std::string trace_keyword_list() {
  std::string list;
  for (const TraceKeyword &row : trace_keywords) {
    list += list.empty() ? "" : &row == std::end(trace_keywords) - 1 ? " and " : ", ";
    list += row.keyword;
  }
  return list;
}

std::string masked_open_string(std::string_view text) {
  if (text == null_info) {
    return std::string(text);
  }
  static constexpr std::string_view known = "NUSKLTV";
  std::string out;
  std::string_view rest = text;
  for (std::string_view word = take_word(rest); !word.empty(); word = take_word(rest)) {
    const size_t dash = std::min(word.find('-'), word.size());
    const std::string_view option = word.substr(dash);
    out += out.empty() ? "" : " ";
    out += dash == 0 ? "" : "***";
    if (option.size() > 1 && known.find(upper_case(option[1])) != std::string_view::npos) {
      out += without_passwords(option);
    } else {
      out.append(option.substr(0, 2)).append(option.size() > 2 ? "***" : "");
    }
  }
  return out;
}
