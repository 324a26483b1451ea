// Reads the options of an open string: a "-", a letter in either case, a value up to white space.
#include "open_string.h"

#include <cctype>

std::string option_of(std::string_view open_string, char letter) {
  static constexpr std::string_view blanks = " \t\n\v\f\r";
  std::string value;
  while (!open_string.empty()) {
    const bool is_option = open_string.front() == '-';
    open_string.remove_prefix(1);
    if (!is_option || open_string.empty()) {
      continue;
    }
    const bool is_wanted = std::toupper(static_cast<unsigned char>(open_string.front())) == letter;
    const std::string_view option = open_string.substr(0, open_string.find_first_of(blanks));
    if (is_wanted) {
      value = option.substr(1);
    }
    open_string.remove_prefix(option.size());
  }
  return value;
}
