// An open string's options, taken apart as the library does it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/xal_open_options.h"

struct OptionGiven {
  size_t place = 0;    // of its "-"
  char letter = '\0';  // upper case; zero for a "-" with nothing behind it
  std::string value;
  OpenFault fault = OpenFault::none;
  bool is_stored = false;        // it is one of -N, -U, -P, -S and -K, and no option before it is wrong
  bool may_be_password = false;  // it is in the word behind a -P that has no value
};

// The lookup key (-K) is an option under some flavours only.
std::vector<OptionGiven> read_open_string(std::string_view text, bool has_key);

// The words or parts of words outside all options, which the library passes over.
std::vector<std::string> stray_texts(std::string_view text);

// What the library takes for the option -N, -U, -P, -S or -K.
std::string stored_value(const std::vector<OptionGiven> &options, char letter);

// The log file's path as the library looks for it: behind the first "-L" of the text, even when that is part of another
// option's value. Nothing without one; one that is empty or too long stands for none as well, but ends the search.
struct LogOption {
  std::string path;
  bool is_part = false;  // of another option, or of a stray text
};
std::optional<LogOption> log_option(std::string_view text);

// Whether the library finds a trace option in the text; it looks for "-T" everywhere.
bool takes_for_trace_option(std::string_view text);

// All words behind traceflags and -T, for messages.
std::string trace_keyword_list();

// Only the values of options that hold no password, for texts of unknown origin; all else is masked.
std::string masked_open_string(std::string_view text);
