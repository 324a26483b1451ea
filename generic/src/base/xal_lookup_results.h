// What a lookup answers. The numbers begin far above the XA codes, which it answers as well, and the log names them
// all.
#pragma once

#include <cstdint>

// Lookup results of xc_get; those below XCRET_NOCONN hand out a connection, which the caller then holds.
inline constexpr int32_t XCRET_FIRST = 2000;    // no result; the hand-outs begin here
inline constexpr int32_t XCRET_MATCH = 2001;    // the connection that serves the XID
inline constexpr int32_t XCRET_CONN = 2002;     // an unused or a new one, or just any (XCF_ANY)
inline constexpr int32_t XCRET_ASSOC = 2003;    // one with an associated branch, in XCS_ASSOC
inline constexpr int32_t XCRET_SUSPEND = 2004;  // one with a suspended branch, in XCS_SUSPEND
inline constexpr int32_t XCRET_RECOVER = 2005;  // one with an open recovery scan, in XCS_RECOVER
inline constexpr int32_t XCRET_LAST = 2100;     // no result; the hand-outs end here
inline constexpr int32_t XCRET_NOCONN = 2101;   // there is none, and none was to be made
inline constexpr int32_t XCRET_NOLRM = 2102;    // the thread identity has not opened the rmid

// True when a lookup result handed out a connection.
inline bool xc_handed_out(int32_t result) {
  return result >= XCRET_FIRST && result < XCRET_LAST;
}
