// The one reader of open strings. It knows which options there are, where their values end and what is wrong with them,
// and says so by code and place; it logs nothing, keeps nothing and asks for no memory. The library logs and stores
// what it reads (xal_open_string.cpp); the tools link it, so that they read what the library reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

inline constexpr size_t longest_open_value = 31;      // of -N, -U, -P, -S and -K
inline constexpr size_t longest_open_log_path = 511;  // of -L

enum class OpenFault : int32_t {
  none,
  unknown,           // the letter is no option's; at the end of the string there is none
  too_long,          // the value has more than 31 characters
  bad_version,       // -V has another value than "11" with white space behind it
  connection_limit,  // -C: the configuration's to set
  no_name,           // at the end of the string: no -N has a value
  no_key,            // at the end of the string: no -K has a value
};

struct OpenOption {
  size_t place;            // of its "-", or the end of the string
  char letter;             // upper case; zero at the end of the string
  std::string_view value;  // all that stands up to white space
  OpenFault fault;
  bool is_stored;  // -N, -U, -P, -S or -K, and no option before it is wrong
};

// Reads one open string from its beginning to its end.
class OpenStringReader {
 public:
  // has_key: the flavour knows -K. wanted: the letters whose values are stored and required; the others' are passed
  // over.
  OpenStringReader(std::string_view text, bool has_key, std::string_view wanted = "NUPSK");

  // The next option, and behind them what is missing; false at the end.
  bool next(OpenOption &option);

 private:
  bool next_missing(OpenOption &option);
  OpenFault fault_of(const OpenOption &option, bool at_end) const;
  bool is_value(char letter) const;

  const std::string_view text_;
  const bool has_key_;
  const std::string_view wanted_;
  size_t at_ = 0;
  bool failed_ = false;
  bool lacks_name_;
  bool lacks_key_;
};

// What stands behind a "-" and a letter, up to white space.
struct OpenMark {
  size_t place;  // of the "-"
  std::string_view value;
};

// The log's path and trace keywords are looked for in their own way: behind the next "-" with this letter, in either
// case, even inside another option's value. The letter is given in upper case.
std::optional<OpenMark> find_open_mark(std::string_view text, char letter, size_t from = 0);
