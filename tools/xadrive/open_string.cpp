// Asks the library's reader.
#include "open_string.h"

#include "config/xal_open_options.h"

std::string option_of(std::string_view open_string, char letter) {
  OpenStringReader reader(open_string, true);
  std::string value;
  for (OpenOption option{}; reader.next(option);) {
    if (option.letter == letter && option.is_stored) {
      value = option.value.substr(0, longest_open_value);
    }
  }
  return value;
}
