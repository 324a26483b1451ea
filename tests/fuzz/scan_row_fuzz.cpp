// The first byte chooses whether the others are a scan's row or an XID whose branch name is one.
// Every message of the scan is written, to nowhere.
#include <cstring>
#include <string>

#include "base/xal_xid.h"
#include "dtm/xal_dtm.h"
#include "fuzz.h"
#include "library_state.h"
#include "log/xal_log.h"
#include "record/xal_record.h"

namespace {

constexpr const char *own_lrm = "L1";

bool accepted(std::string_view row, XID &xid) {
  const TraceScope trace("scan_row_fuzz", TRACE_NONE);
  return dtm_accept_row(trace, own_lrm, fuzz::terminated(row).data(), xid);
}

// The branch name, in the room that it may take.
std::string name_of(const XID &xid) {
  std::vector<char> out(XA_NAME_SIZE, 'x');
  xa__dtm_encode_xid(&xid, own_lrm, out.data());
  const std::size_t length = strnlen(out.data(), out.size());
  fuzz::require(length < out.size(), "a branch name is terminated within its room");
  return {out.data(), length};
}

bool same(const XID &left, const XID &right) {
  return left.formatID == right.formatID && left.gtrid_length == right.gtrid_length &&
         left.bqual_length == right.bqual_length && memcmp(left.data, right.data, xid_data_size(left)) == 0;
}

void check_again(const XID &xid) {
  XID again{};
  fuzz::require(accepted(name_of(xid), again) && same(xid, again), "a branch name gives the XID it was made of");
}

void check_row(std::string_view row) {
  XID xid;
  memset(&xid, 'x', sizeof xid);
  const XID untouched = xid;
  if (!accepted(row, xid)) {
    fuzz::require(memcmp(&xid, &untouched, sizeof xid) == 0, "nothing is stored of a row that is passed over");
    return;
  }
  fuzz::require(xid.gtrid_length >= 1 && xid.gtrid_length <= MAXGTRIDSIZE, "a gtrid has 1 to 64 bytes");
  fuzz::require(xid.bqual_length >= 0 && xid.bqual_length <= MAXBQUALSIZE, "a bqual has 0 to 64 bytes");
  for (std::size_t at = xid_data_size(xid); at < sizeof xid.data; ++at) {
    fuzz::require(xid.data[at] == 0, "what is behind an XID's bytes is zero");
  }
  check_again(xid);
}

// An XID with any length words, in a block that ends with the bytes that count.
void check_xid(std::string_view bytes) {
  XID xid{};
  memcpy(&xid, bytes.data(), bytes.size() < sizeof xid ? bytes.size() : sizeof xid);
  std::vector<char> tight(xid_size(xid));
  memcpy(tight.data(), &xid, tight.size());
  const std::string name = name_of(*reinterpret_cast<const XID *>(tight.data()));
  xid.gtrid_length = xid_clamped(xid.gtrid_length);
  xid.bqual_length = xid_clamped(xid.bqual_length);
  fuzz::require(name == name_of(xid), "lengths count as clamped");
  if (xid.gtrid_length > 0) {
    check_again(xid);
  }
}

}  // namespace

void fuzz::scan_row(std::string_view input) {
  use_library_without_log();
  xacmn_log_tracing.store(XATR_MISC);
  if (take_choice(input) % 2 == 0) {
    check_row(input);
  } else {
    check_xid(input);
  }
  xacmn_log_tracing.store(0);
}
