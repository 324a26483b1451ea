// Words of 64 bits made narrow and back. What does not fit is refused, never cut.
#pragma once

#include <cstdint>
#include <cstring>

#include "xa.h"
#include "xadtm_lp64.h"

constexpr long null_format = -1;

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

// Narrows an XID that names a branch. The data's tail is zero, whatever the wide one's is.
inline void narrow_xid(const xadtm_lp64_xid &wide, XID &narrow) {
  narrow.formatID = static_cast<int32_t>(wide.formatID);
  narrow.gtrid_length = static_cast<int32_t>(wide.gtrid_length);
  narrow.bqual_length = static_cast<int32_t>(wide.bqual_length);
  memcpy(narrow.data, wide.data, sizeof narrow.data);
  const auto used = static_cast<size_t>(wide.gtrid_length + wide.bqual_length);
  memset(narrow.data + used, 0, sizeof narrow.data - used);
}

inline void widen_xid(const XID &narrow, xadtm_lp64_xid &wide) {
  wide.formatID = narrow.formatID;
  wide.gtrid_length = narrow.gtrid_length;
  wide.bqual_length = narrow.bqual_length;
  memcpy(wide.data, narrow.data, sizeof wide.data);
}
