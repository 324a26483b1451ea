// Settings rows: what the configuration and the library itself want set on the client library's context and
// connections.
#pragma once

#include <cstdint>

// One setting of the client library; a list ends with a row whose xs_flags is XS_END.
struct XA_SETTING {
  int32_t xs_code;
  int32_t xs_int;  // the value when xs_str is null
  char *xs_str;    // a heap string, or null
  int32_t xs_len;
  uint32_t xs_flags;
  const char *xs_label;  // the keyword, for messages
};

inline constexpr uint32_t XS_PROP = 0x1;
inline constexpr uint32_t XS_OPT = 0x2;
inline constexpr uint32_t XS_CAP = 0x4;
inline constexpr uint32_t XS_DTINFO = 0x8;
inline constexpr uint32_t XS_CTX = 0x40;
inline constexpr uint32_t XS_CON = 0x80;
inline constexpr uint32_t XS_PRECONN = 0x200;
inline constexpr uint32_t XS_POSTCONN = 0x400;
inline constexpr uint32_t XS_DEFAULT = 0x800;
inline constexpr uint32_t XS_FORCED = 0x1000;
inline constexpr uint32_t XS_USER = 0x2000;
inline constexpr uint32_t XS_FATAL = 0x100000;
inline constexpr uint32_t XS_END = 0xFFFFFFFF;
