// A word holds one option at the most: the first "-" in it begins the option, and white space ends
// its value.
#include "open_string.h"

#include <cctype>

#include "texts.h"

namespace {

constexpr size_t longest_value = 31;
constexpr size_t longest_log_path = 511;
constexpr std::string_view null_info = "<nil>";  // as the library writes it

bool is_blank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
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

// Takes the option out of a word; nothing without one.
std::optional<OpenOption> option_in(std::string_view word) {
  const size_t dash = word.find('-');
  if (dash == std::string_view::npos) {
    return std::nullopt;
  }
  OpenOption option;
  if (dash + 1 < word.size()) {
    option.letter = static_cast<char>(std::toupper(static_cast<unsigned char>(word[dash + 1])));
    option.value = word.substr(dash + 2);
  }
  return option;
}

bool is_stored(char letter, bool has_key) {
  return letter == 'N' || letter == 'U' || letter == 'P' || letter == 'S' || (letter == 'K' && has_key);
}

// A version is wrong at the end of the string, too: white space must follow it.
bool is_error(const OpenOption &option, bool has_key, bool at_end) {
  if (option.letter == 'V') {
    return option.value != "11" || at_end;
  }
  return option.letter == 'C' || (is_stored(option.letter, has_key) && option.value.size() > longest_value);
}

}  // namespace

std::vector<OpenOption> read_open_string(std::string_view text, bool has_key) {
  std::vector<OpenOption> options;
  bool behind_error = false;
  std::string_view rest = text;
  for (std::string_view word = take_word(rest); !word.empty(); word = take_word(rest)) {
    if (std::optional<OpenOption> option = option_in(word)) {
      option->behind_error = behind_error && is_stored(option->letter, has_key);
      option->is_error = !option->behind_error && is_error(*option, has_key, rest.empty());
      behind_error = behind_error || option->is_error;
      option->may_be_password =
          word.front() != '-' && !options.empty() && options.back().letter == 'P' && options.back().value.empty();
      options.push_back(std::move(*option));
    }
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

std::string stored_value(const std::vector<OpenOption> &options, char letter) {
  std::string value;
  for (const OpenOption &option : options) {
    if (option.letter == letter && !option.behind_error) {
      value = option.value.substr(0, longest_value);
    }
  }
  return value;
}

std::optional<LogOption> log_option(std::string_view text) {
  std::string_view rest = text;
  for (std::string_view word = take_word(rest); !word.empty(); word = take_word(rest)) {
    const size_t dash = word.find('-');
    for (size_t at = dash; at != std::string_view::npos; at = word.find('-', at + 1)) {
      if (at + 1 == word.size() || std::toupper(static_cast<unsigned char>(word[at + 1])) != 'L') {
        continue;
      }
      const std::string_view path = word.substr(at + 2);
      return LogOption{path.size() > longest_log_path ? "" : std::string(path), at != dash};
    }
  }
  return std::nullopt;
}

std::string masked_open_string(std::string_view text) {
  if (text == null_info) {
    return std::string(text);
  }
  static constexpr std::string_view known = "NUSKLTV";
  std::string out;
  std::string_view rest = text;
  for (std::string_view word = take_word(rest); !word.empty(); word = take_word(rest)) {
    const std::optional<OpenOption> option = option_in(word);
    const size_t shown = option ? word.find('-') : 0;
    out += out.empty() ? "" : " ";
    out += shown == 0 ? "" : "***";
    if (option && known.find(option->letter) != std::string_view::npos) {
      out += without_passwords(word.substr(shown));
    } else {
      out += option ? word.substr(shown, 2) : "";
      out += option && option->value.empty() ? "" : "***";
    }
  }
  return out;
}
