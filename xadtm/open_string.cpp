/* open_string.cpp - every "-" that is not within a value begins an option, and white space ends it. */
#include "open_string.h"

#include <cctype>

std::vector<OpenOption> read_open_string(std::string_view text) {
  std::vector<OpenOption> options;
  for (size_t at = text.find('-'); at != std::string_view::npos; at = text.find('-', at)) {
    OpenOption option;
    ++at;
    if (at < text.size()) {
      option.letter = static_cast<char>(std::toupper(static_cast<unsigned char>(text[at])));
    }
    if (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) == 0) {
      for (++at; at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) == 0; ++at) {
        option.value += text[at];
      }
    }
    options.push_back(std::move(option));
  }
  return options;
}

bool has_stray_text(std::string_view text) {
  bool in_option = false;
  for (const char c : text) {
    const bool blank = std::isspace(static_cast<unsigned char>(c)) != 0;
    in_option = !blank && (in_option || c == '-');
    if (!blank && !in_option) {
      return true;
    }
  }
  return false;
}

std::string last_value(const std::vector<OpenOption> &options, char letter) {
  std::string value;
  for (const OpenOption &option : options) {
    value = option.letter == letter ? option.value : value;
  }
  return value;
}
