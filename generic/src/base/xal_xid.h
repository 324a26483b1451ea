// XIDs: their sizes, copies and comparison. The XA standard's own record and constants are in xa.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "xa.h"

inline int32_t xid_clamped(int32_t length) {
  if (static_cast<uint32_t>(length) <= 64) [[likely]] {
    return length;
  }
  return length < 0 ? 0 : 64;
}
// True when an XID's lengths are those that the XA standard allows. Others would be clamped in the branch's name, and
// give it the name of another branch, or one that a recovery passes over.
inline bool xid_lengths_fit(const XID &xid) {
  return static_cast<uint32_t>(xid.gtrid_length) - 1 < MAXGTRIDSIZE &&
         static_cast<uint32_t>(xid.bqual_length) <= MAXBQUALSIZE;
}
// The bytes of an XID's data that count, each length clamped to 0 to 64; with the header in the second.
inline size_t xid_data_size(const XID &xid) {
  return static_cast<size_t>(xid_clamped(xid.gtrid_length)) + static_cast<size_t>(xid_clamped(xid.bqual_length));
}
inline size_t xid_size(const XID &xid) {
  return offsetof(XID, data) + xid_data_size(xid);
}
// Copies the bytes that count; nothing else of the target is touched, nothing else of the source is read.
inline void xid_copy(XID &to, const XID &from) {
  memcpy(&to, &from, xid_size(from));
}
// Two XIDs are equal when neither is null and the bytes that count are the same.
bool xid_equal(const XID &left, const XID &right);
