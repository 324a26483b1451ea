// xa_rollback: rolls a branch back; one that is still associated or suspended here is ended with TMFAIL first.
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMNOFLAGS, -1};

int32_t request(XA_CONNECTION *conn, const XID *xid, int32_t) {
  return xa__dtm_rollback(conn, xid);
}

}  // namespace

extern "C" int32_t xa_rollback(const XID *xid, int32_t rmid, int32_t flags) {
  static constexpr Completion verb = {"xa_rollback", validflags, XCS_ROLLINGBACK, request, XA_OK};
  return verb_complete(verb, xid, rmid, flags);
}
