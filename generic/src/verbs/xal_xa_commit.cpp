// xa_commit: commits a branch, prepared or in one phase. With TMNOWAIT alone it sends nothing while the server still
// has the branch attached.
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMNOFLAGS, TMONEPHASE, TMNOWAIT, TMONEPHASE | TMNOWAIT, -1};

}  // namespace

extern "C" int32_t xa_commit(const XID *xid, int32_t rmid, int32_t flags) {
  static constexpr Completion verb = {"xa_commit", validflags, XCS_COMMITTING, xa__dtm_commit, XAER_PROTO};
  return verb_complete(verb, xid, rmid, flags);
}
