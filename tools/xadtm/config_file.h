// The configuration file as the library finds and reads it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/xal_config_entries.h"

struct ConfigLine {
  std::string name;
  std::vector<std::string> values;
  std::string ignored;                  // why the library does not use it; empty when it may
  bool malformed = false;               // its name is then the whole line
  const ConfigEntryRow *row = nullptr;  // what it is; null when no entry of this name belongs into the part, or the
                                        // part is not used
};

struct ConfigPart {
  std::string name;
  std::vector<ConfigLine> lines;
  std::string ignored;
};

struct ConfigFile {
  std::string path;                // empty: none was found
  std::string origin;              // the variables that led there
  std::vector<std::string> tried;  // places before it, or all when none was found
  std::vector<ConfigPart> parts;
};

// Looks where the library looks, and reads what is there with the LRM's name in mind.
ConfigFile read_config(const std::string &lrm);

bool same_name(const std::string &left, const std::string &right);
// The value that the library uses of an entry in the part of that name; nothing without it.
std::optional<std::string> config_value(const ConfigFile &file, const std::string &part, const std::string &entry);
// Whether a log at the path can be opened as the library does it, for reading and writing. Nothing is made.
bool can_hold_log(const std::string &path);
// The path of the logfile entry that is used: the first whose file can be opened, or else just the first.
std::optional<std::string> log_entry(const ConfigFile &file);
