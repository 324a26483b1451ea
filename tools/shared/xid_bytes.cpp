// An XID's data are the bytes of its gtrid, and directly behind them those of its bqual.
#include "xid_bytes.h"

#include <algorithm>
#include <cstddef>

namespace {

size_t length_within(int32_t length, size_t most) {
  return std::min(static_cast<size_t>(std::max(length, 0)), most);
}

}  // namespace

XID xid_of(int32_t format, std::string_view gtrid, std::string_view bqual) {
  XID xid{};
  xid.formatID = format;
  xid.gtrid_length = static_cast<int32_t>(gtrid.size());
  xid.bqual_length = static_cast<int32_t>(bqual.size());
  std::copy(gtrid.begin(), gtrid.end(), xid.data);
  std::copy(bqual.begin(), bqual.end(), xid.data + gtrid.size());
  return xid;
}

std::string_view gtrid_of(const XID &xid) {
  return {xid.data, length_within(xid.gtrid_length, MAXGTRIDSIZE)};
}

std::string_view bqual_of(const XID &xid) {
  return {xid.data + gtrid_of(xid).size(), length_within(xid.bqual_length, MAXBQUALSIZE)};
}

bool same_xid(const XID &left, const XID &right) {
  return left.formatID == right.formatID && gtrid_of(left) == gtrid_of(right) && bqual_of(left) == bqual_of(right);
}
