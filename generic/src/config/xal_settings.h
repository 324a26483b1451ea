// Settings rows: what the configuration and the library itself want set on the client library's context and
// connections.
#pragma once

#include <cstdint>

// One setting of the client library; a list ends with a row whose xs_flags is XS_END.
struct XA_SETTING {
  int32_t xs_code;  // the client library's number of what is set
  int32_t xs_int;   // the value when xs_str is null
  char *xs_str;     // a heap string, or null
  int32_t xs_len;   // bytes of the value, QLT_NULLTERM or QLT_UNUSED
  uint32_t xs_flags;
  const char *xs_label;  // the keyword, for messages
};

// How a value is set (one of the four), on what, when, and by whom.
inline constexpr uint32_t XS_PROP = 0x1;        // a property: ct_con_props, or ct_config on a context
inline constexpr uint32_t XS_OPT = 0x2;         // an option of the server: ct_options
inline constexpr uint32_t XS_CAP = 0x4;         // a capability: ct_capability
inline constexpr uint32_t XS_DTINFO = 0x8;      // how datatypes are shown: cs_dt_info
inline constexpr uint32_t XS_CTX = 0x40;        // on the context
inline constexpr uint32_t XS_CON = 0x80;        // on each connection
inline constexpr uint32_t XS_PRECONN = 0x200;   // before the login
inline constexpr uint32_t XS_POSTCONN = 0x400;  // after it
inline constexpr uint32_t XS_DEFAULT = 0x800;   // by the library, before the configuration's, which may replace it
inline constexpr uint32_t XS_FORCED = 0x1000;   // by the library, after the configuration's, which it replaces
inline constexpr uint32_t XS_USER = 0x2000;     // by the configuration
inline constexpr uint32_t XS_FATAL = 0x100000;  // without it there is no connection
inline constexpr uint32_t XS_END = 0xFFFFFFFF;  // ends a list
