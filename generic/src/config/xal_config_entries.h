// What the entries and settings of xa_config mean: which entry belongs to which section, and what a keyword's value
// stands for. Answers are codes; nothing is logged or kept, and no memory is asked for. The library logs and stores
// what it learns here (xal_config.cpp, xal_settings.cpp); xadtm links it, so that it reads what the library reads.
#pragma once

#include <cstdint>

#include "config/xal_config.h"

enum class ConfigEntry : int32_t {
  logfile,
  traceflags,
  cs_dt_info,
  maxoutconn,  // refused: a property has taken its place
  lrm,
  server,
  settings,  // any number of keyword=value
};

struct ConfigEntryRow {
  const char *name;  // null ends the table
  ConfigEntry entry;
  const XA_KEYWORD *keywords;  // of its settings, else null
  const char *label;           // what messages call such a setting
};

extern const ConfigEntryRow all_section_entries[];
extern const ConfigEntryRow xa_section_entries[];

// Names may be written in either case. Null when no such entry belongs there.
const ConfigEntryRow *find_config_entry(const ConfigEntryRow *table, const char *name);

enum class SettingFault : int32_t { none, unknown_keyword, unknown_value };
enum class SettingValue : int32_t { named, integer, text };

struct SettingMeaning {
  SettingFault fault;
  const XA_KEYWORD *keyword;  // null for an unknown one
  SettingValue kind;
  const char *value_name;  // of a named value, as the table writes it
  int32_t number;          // of a named value or an integer
};

// value: what stands behind the first "=", empty without one.
SettingMeaning meaning_of_setting(const XA_KEYWORD *table, const char *keyword, const char *value);
