// xa_forget: lets the server forget a heuristically completed branch.
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMNOFLAGS, -1};

int32_t request(XA_CONNECTION *conn, const XID *xid, int32_t) {
  return xa__dtm_forget(conn, xid);
}

}  // namespace

extern "C" int32_t xa_forget(const XID *xid, int32_t rmid, int32_t flags) {
  static constexpr Completion verb = {"xa_forget", validflags, XCS_FORGETTING, request, XAER_NOTA};
  return verb_complete(verb, xid, rmid, flags);
}
