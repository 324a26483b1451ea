// Words of 64 bits made narrow and back. What does not fit is refused, never cut.
#pragma once

#include <cstdint>
#include <cstring>

#include "xa.h"
#include "xadtm_lp64.h"

constexpr long null_format = -1;
constexpr size_t data_at = __builtin_offsetof(XID, data);

// XIDDATASIZE bytes, in blocks that the compiler moves by itself: a call of libc's routines costs more.
constexpr size_t block_size = 64;
static_assert(XIDDATASIZE == 2 * block_size);

inline void copy_blocks(char *to, const char *from) {
  memcpy(to, from, block_size);
  memcpy(to + block_size, from + block_size, block_size);
}

inline void clear_blocks(char *to) {
  memset(to, 0, block_size);
  memset(to + block_size, 0, block_size);
}

inline bool fits_int32(long word) {
  return word == static_cast<int32_t>(word);
}

// Flags are bits, of which the highest (TMASYNC) makes the narrow word negative and the wide one not. False when a bit
// lies outside the 32.
inline bool narrow_flags(long flags, int32_t &narrow) {
  const auto bits = static_cast<uint32_t>(static_cast<unsigned long>(flags));
  narrow = static_cast<int32_t>(bits);
  return bits == static_cast<unsigned long>(flags);
}

// True when the XID names a branch and fits. As unsigned words, lengths under 0 are over 64.
inline bool names_a_branch(const xadtm_lp64_xid *xid) {
  return xid != nullptr && xid->formatID != null_format && fits_int32(xid->formatID) &&
         static_cast<unsigned long>(xid->gtrid_length) - 1 < MAXGTRIDSIZE &&
         static_cast<unsigned long>(xid->bqual_length) <= MAXBQUALSIZE;
}

// A narrow XID with room behind it.
struct PaddedXid {
  XID xid;
  char room[XIDDATASIZE];
};

// Narrows an XID that names a branch. The data's tail is zero, whatever the wide one's is: always as many zeros as
// there are bytes of data are written behind what is used, which needs no counting.
inline void narrow_xid(const xadtm_lp64_xid &wide, PaddedXid &narrow) {
  narrow.xid.formatID = static_cast<int32_t>(wide.formatID);
  narrow.xid.gtrid_length = static_cast<int32_t>(wide.gtrid_length);
  narrow.xid.bqual_length = static_cast<int32_t>(wide.bqual_length);
  copy_blocks(reinterpret_cast<char *>(&narrow) + data_at, wide.data);
  clear_blocks(reinterpret_cast<char *>(&narrow) + data_at + wide.gtrid_length + wide.bqual_length);
}

inline void widen_xid(const XID &narrow, xadtm_lp64_xid &wide) {
  wide.formatID = narrow.formatID;
  wide.gtrid_length = narrow.gtrid_length;
  wide.bqual_length = narrow.bqual_length;
  memcpy(wide.data, narrow.data, sizeof wide.data);
}
