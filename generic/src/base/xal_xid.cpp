// Comparing XIDs, which lookups do for every connection they pass.
#include "base/xal_xid.h"

bool xid_equal(const XID &left, const XID &right) {
  return left.formatID == right.formatID && left.formatID != -1 && left.gtrid_length == right.gtrid_length &&
         left.bqual_length == right.bqual_length && memcmp(left.data, right.data, xid_data_size(left)) == 0;
}
