// See the header.
#include "fake_entries.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "xadtm.h"

thread_local FakeEntries narrow;

std::vector<std::string> FakeEntries::called() const {
  std::vector<std::string> texts;
  std::transform(calls.begin(), calls.end(), std::back_inserter(texts), [](const auto &call) { return call.text(); });
  return texts;
}

namespace {

int32_t answered(const NarrowCall &call, int32_t otherwise) {
  narrow.calls.push_back(call);
  int32_t answer = otherwise;
  if (!narrow.answers.empty()) {
    answer = narrow.answers.front();
    narrow.answers.pop_front();
  }
  if (narrow.meanwhile) {
    const auto meanwhile = std::exchange(narrow.meanwhile, nullptr);
    meanwhile(call);
  }
  return answer;
}

int32_t on_branch(const char *entry, const XID *xid, int32_t rmid, int32_t flags) {
  return answered({entry, rmid, flags, "", *xid, 0}, XA_OK);
}

int32_t on_rm(const char *entry, const char *info, int32_t rmid, int32_t flags) {
  return answered({entry, rmid, flags, info == nullptr ? "(null)" : info, {}, 0}, XA_OK);
}

int32_t give_branches(const char *entry, XID *xids, int32_t count, int32_t rmid, int32_t flags) {
  const int32_t given = std::min(count, narrow.in_doubt);
  const int32_t answer = answered({entry, rmid, flags, "", {}, count}, given);
  for (int32_t i = 0; answer == given && i < given; ++i) {
    XID &xid = xids[i];
    std::memset(&xid, 0x5a, sizeof xid);
    xid.formatID = -narrow.in_doubt - 1;
    xid.gtrid_length = sizeof narrow.in_doubt;
    xid.bqual_length = 0;
    std::memcpy(xid.data, &narrow.in_doubt, sizeof narrow.in_doubt);
    --narrow.in_doubt;
  }
  return answer;
}

}  // namespace

#define FAKE_BRANCH_VERB(flavour, verb)                                            \
  int32_t trv_##flavour##_xa_##verb(const XID *xid, int32_t rmid, int32_t flags) { \
    return on_branch(#flavour "_" #verb, xid, rmid, flags);                        \
  }

#define FAKE_ENTRIES(flavour)                                                                          \
  int32_t trv_##flavour##_xa_open(const char *info, int32_t rmid, int32_t flags) {                     \
    return on_rm(#flavour "_open", info, rmid, flags);                                                 \
  }                                                                                                    \
  int32_t trv_##flavour##_xa_close(const char *info, int32_t rmid, int32_t flags) {                    \
    return on_rm(#flavour "_close", info, rmid, flags);                                                \
  }                                                                                                    \
  FAKE_BRANCH_VERB(flavour, start)                                                                     \
  FAKE_BRANCH_VERB(flavour, end)                                                                       \
  FAKE_BRANCH_VERB(flavour, rollback)                                                                  \
  FAKE_BRANCH_VERB(flavour, prepare)                                                                   \
  FAKE_BRANCH_VERB(flavour, commit)                                                                    \
  FAKE_BRANCH_VERB(flavour, forget)                                                                    \
  int32_t trv_##flavour##_xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags) {          \
    return give_branches(#flavour "_recover", xids, count, rmid, flags);                               \
  }                                                                                                    \
  int32_t trv_##flavour##_xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags) { \
    return answered({#flavour "_complete", rmid, flags, "", {}, *handle + *result}, XA_OK);            \
  }

extern "C" {
void xalog_msg(const char *, const char *text, int32_t, int32_t) {
  narrow.log.emplace_back(text);
}
const char *xacmn_log_dump_xarc(int32_t) {
  return "[NAME]";
}
FAKE_ENTRIES(mts)
FAKE_ENTRIES(tux)
FAKE_ENTRIES(txs)
}
