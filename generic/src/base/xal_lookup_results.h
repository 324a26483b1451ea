// What a lookup answers. The numbers begin far above the XA codes, which it answers as well, and the log names them
// all.
#pragma once

#include <cstdint>

// Lookup results of xc_get; those below XCRET_NOCONN hand out a connection, which the caller then holds.
inline constexpr int32_t XCRET_FIRST = 2000;
inline constexpr int32_t XCRET_MATCH = 2001;
inline constexpr int32_t XCRET_CONN = 2002;
inline constexpr int32_t XCRET_ASSOC = 2003;
inline constexpr int32_t XCRET_SUSPEND = 2004;
inline constexpr int32_t XCRET_RECOVER = 2005;
inline constexpr int32_t XCRET_LAST = 2100;
inline constexpr int32_t XCRET_NOCONN = 2101;
inline constexpr int32_t XCRET_NOLRM = 2102;

// True when a lookup result handed out a connection.
inline bool xc_handed_out(int32_t result) {
  return result >= XCRET_FIRST && result < XCRET_LAST;
}
