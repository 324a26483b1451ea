// A configuration file's text, taken apart into sections, entries and values.
//
// The form of a file:
//
//   # a comment line, as is every line that begins with # or ;
//   [all]                                        a section's header
//   logfile = "/var/log/my xa.log"               an entry: its name, the first "=", its values
//   properties=CS_MAX_CONNECT=25, CS_TIMEOUT=60  values are separated by commas; a value may hold "="
//   properties=CS_LOGIN_TIMEOUT=10               an entry may be repeated
//   traceflags=                                  an entry without any value
//
// White space around names and values is dropped. Double quotes keep what stands between them (blanks, commas, "#"),
// and are dropped themselves; they may enclose a value or a part of it. A "#" outside quotes, at the start of a value
// or after white space, begins a comment. Any other line is malformed, as are a line of more than 4096 characters, one
// with a zero byte, an entry before the first header, quotes that do not end and anything but a comment after a header.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct ConfigEntry {
  std::string name;
  std::vector<std::string> values;
  bool malformed = false;  // the name is then the whole line
};

struct ConfigSection {
  std::string name;
  std::vector<ConfigEntry> entries;
  bool malformed = false;  // its header or one of its entries is
};

// Malformed lines before the first header stand in a section without a name. Throws only when memory is short.
std::vector<ConfigSection> parse_config_text(std::string_view text);
