// Configuration: the file xa_config with its [all] and [xa] sections, and the keyword tables that turn
// texts into settings rows. Runs under the serialisation mutex.
#pragma once

#include <cstdint>

#include "common_routines.h"
#include "config/xal_settings.h"

inline constexpr int32_t XAL_PATH_SIZE = 1024;

// The configuration file's path once a search has found one, else empty.
extern char xa_config_file[XAL_PATH_SIZE];

// Finds and reads the configuration file, opens the log and sets the trace mask: 1, or 0 on failure.
int32_t xal_configure(const char *open_string, XA_SETTING *settings);
int32_t xa_config_open(INTL_READER *reader);
int32_t xal_read_all_section(INTL_READER *reader, int32_t *logfile, int32_t *traceflags, XA_SETTING *settings);
// The settings of an LRM: 1 when they were obtained (or none are needed), else 0. server is a 32-byte field or null.
int32_t xal_lrm_lookup(const char *name, char *server, XA_SETTING *capabilities, XA_SETTING *properties,
                       XA_SETTING *options);
// Heap copies, to be freed with comn_free; null when there is nothing or memory is short.
char *xa_get_env(const char *name);
char *xa_make_fname(const char *file, const char *dir1, const char *dir2, const char *dir3);

// ---- Keyword tables -------------------------------------------------------------------------------------------------

struct XA_KEYVALUE {
  const char *kv_name;  // null ends the table
  int32_t kv_value;
};

struct XA_KEYWORD {
  const char *kw_name;  // null ends the table
  int32_t kw_code;
  int32_t kw_len;
  const XA_KEYVALUE *kw_values;
  uint32_t kw_flags;
};

extern const XA_KEYWORD XaCtxPropLookupTab[];
extern const XA_KEYWORD XaCSDTInfoLookupTab[];
extern const XA_KEYWORD XaPropLookupTab[];
extern const XA_KEYWORD XaCapLookupTab[];
extern const XA_KEYWORD XaOptLookupTab[];

// Turns one keyword=value text, which it cuts at the first "=", into a row of the list. 1 when a row was stored or the
// list is null, 0 when the text was rejected.
int32_t xacmn_get_val(const XA_KEYWORD *table, const char *label, char *text, XA_SETTING *list);
// Empties the list's rows. first non-zero: the rows hold no valid data yet; zero: their strings are freed.
void xacmn_clean_val(XA_SETTING *list, int32_t first);
