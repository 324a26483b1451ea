// The entries of the fuzzers. Each takes any bytes at all, gives them to one of the readers of outside text
// and throws when what comes out breaks a promise of that reader; a sanitizer stops the program for the rest.
#pragma once

#include <stdexcept>
#include <string_view>
#include <vector>

namespace fuzz {

void frame(std::string_view input);        // payloads of the wire's frames
void open_string(std::string_view input);  // open strings, and the log and trace options in them
void scan_row(std::string_view input);     // rows of the recovery scan, and the branch names in them

inline void require(bool kept, const char *promise) {
  if (!kept) {
    throw std::logic_error(promise);
  }
}

// The text and its terminating zero in a block that ends there, so that a sanitizer sees every step beyond.
inline std::vector<char> terminated(std::string_view text) {
  const std::string_view whole = text.substr(0, text.find('\0'));
  std::vector<char> block;
  block.reserve(whole.size() + 1);
  block.assign(whole.begin(), whole.end());
  block.push_back('\0');
  return block;
}

// Takes the first byte off, which chooses what is done with the others; 0 when there is none.
inline unsigned take_choice(std::string_view &input) {
  if (input.empty()) {
    return 0;
  }
  const auto choice = static_cast<unsigned char>(input.front());
  input.remove_prefix(1);
  return choice;
}

}  // namespace fuzz
