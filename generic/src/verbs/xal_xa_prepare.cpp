// xa_prepare: asks the server to get a branch ready to commit.
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMNOFLAGS, -1};

int32_t request(XA_CONNECTION *conn, const XID *xid, int32_t) {
  return xa__dtm_prepare(conn, xid);
}

}  // namespace

extern "C" int32_t xa_prepare(const XID *xid, int32_t rmid, int32_t flags) {
  static constexpr Completion verb = {"xa_prepare", validflags, XCS_PREPARING, request, XAER_PROTO};
  return verb_complete(verb, xid, rmid, flags);
}
