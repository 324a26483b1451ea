// Settings lists: turns one "keyword=value" text into a row, and empties a list. Its text values are the heap's.
#include "config/xal_settings.h"

#include <cstring>

#include "common_routines.h"
#include "config/xal_config.h"
#include "config/xal_config_entries.h"
#include "log/xal_log.h"

namespace {

XA_SETTING *find_free_row(XA_SETTING *list) {
  for (XA_SETTING *row = list; row->xs_flags != XS_END; ++row) {
    if (row->xs_flags == 0) {
      return row;
    }
  }
  return nullptr;
}

void store_row(XA_SETTING *row, const XA_KEYWORD &keyword, int32_t integer, char *string) {
  row->xs_code = keyword.kw_code;
  row->xs_int = integer;
  row->xs_str = string;
  row->xs_len = keyword.kw_len;
  row->xs_flags = keyword.kw_flags;
  row->xs_label = keyword.kw_name;
}

int32_t store_string(const TraceScope &trace, XA_SETTING *row, const XA_KEYWORD &keyword, const char *written,
                     const char *value) {
  const size_t size = strlen(value) + 1;
  auto *copy = static_cast<char *>(comn_malloc(size));
  if (copy == nullptr) {
    trace.error()("Unable to allocate memory for %s = %s, ignored", written, value);
    return 0;
  }
  memcpy(copy, value, size);
  store_row(row, keyword, 0, copy);
  return 1;
}

// written: the keyword as the text spells it.
int32_t store_value(const TraceScope &trace, XA_SETTING *row, const SettingMeaning &meaning, const char *written,
                    const char *value) {
  if (meaning.kind == SettingValue::text) {
    return store_string(trace, row, *meaning.keyword, written, value);
  }
  if (meaning.kind == SettingValue::integer) {
    trace.verbose()("Integer value %d for %s", meaning.number, written);
  } else {
    trace.verbose()("Found %s", meaning.value_name);
  }
  store_row(row, *meaning.keyword, meaning.number, nullptr);
  return 1;
}

// Cuts the text at its first "=" and returns the value behind it; empty when there is none.
const char *split_at_equals(char *text) {
  char *equals = strchr(text, '=');
  if (equals == nullptr) {
    return "";
  }
  *equals = '\0';
  return equals + 1;
}

}  // namespace

int32_t xacmn_get_val(const XA_KEYWORD *table, const char *label, char *text, XA_SETTING *list) {
  const TraceScope trace("xacmn_get_val", TRACE_MISC);
  if (list == nullptr) {
    return trace.cs(1);
  }
  const char *value = split_at_equals(text);
  trace.verbose()("looking for %s %s", label, text);
  XA_SETTING *row = find_free_row(list);
  if (row == nullptr) {
    trace.error()("Maximum number of %s exceeded, %s ignored", label, text);
    return trace.cs(0);
  }
  const SettingMeaning meaning = meaning_of_setting(table, text, value);
  if (meaning.keyword == nullptr) {
    trace.error()("%s %s not supported, ignored", label, text);
    return trace.cs(0);
  }
  trace.verbose()("Found %s", meaning.keyword->kw_name);
  if (meaning.fault == SettingFault::unknown_value) {
    trace.error()("Unknown value %s for %s: %s, ignored", value, label, meaning.keyword->kw_name);
    return trace.cs(0);
  }
  return trace.cs(store_value(trace, row, meaning, text, value));
}

void xacmn_clean_val(XA_SETTING *list, int32_t first) {
  const TraceScope trace("xacmn_clean_val", TRACE_VERBOSE);
  for (XA_SETTING *row = list; row->xs_flags != XS_END; ++row) {
    if (first == 0 && row->xs_flags != 0 && row->xs_str != nullptr) {
      comn_free(row->xs_str);
    }
    *row = {0, 0, nullptr, 0, 0, ""};
  }
  trace.nothing();
}
