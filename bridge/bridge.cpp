// The entries behind the wide switch records, one body for all flavours: narrow the words, call libxadtm's entry
// function, and only when that answers XAER_INVAL look whether the resource manager has to be opened again.
#include "narrow_rm.h"
#include "words.h"
#include "xadtm.h"

namespace {

constinit Identity mts_identity{};
constinit Identity tux_identity{};
// Under TXS a thread is an identity of its own, and what it has open ends with it. The loader makes room for it at a
// thread's first open, close or refused verb, unless the bridge was loaded with the program.
constinit thread_local Identity txs_identity{};

#define XADTM_LP64_FLAVOUR(Flavour, prefix, its_identity)                                                \
  struct Flavour {                                                                                       \
    static Identity &identity() { return its_identity; }                                                 \
    static constexpr NarrowRm rm = {identity, prefix##_xa_open, prefix##_xa_close, prefix##_xa_recover}; \
    static constexpr BranchVerb start = prefix##_xa_start;                                               \
    static constexpr BranchVerb end = prefix##_xa_end;                                                   \
    static constexpr BranchVerb rollback = prefix##_xa_rollback;                                         \
    static constexpr BranchVerb prepare = prefix##_xa_prepare;                                           \
    static constexpr BranchVerb commit = prefix##_xa_commit;                                             \
    static constexpr BranchVerb forget = prefix##_xa_forget;                                             \
    static constexpr auto complete = prefix##_xa_complete;                                               \
  };

XADTM_LP64_FLAVOUR(Mts, trv_mts, mts_identity)
XADTM_LP64_FLAVOUR(Tux, trv_tux, tux_identity)
XADTM_LP64_FLAVOUR(Txs, trv_txs, txs_identity)

template <typename Flavour>
int wide_open(const char *info, int rmid, long flags) {
  int32_t narrow = 0;
  return narrow_flags(flags, narrow) ? open_and_remember(Flavour::rm, info, rmid, narrow) : XAER_INVAL;
}

template <typename Flavour>
int wide_close(const char *info, int rmid, long flags) {
  int32_t narrow = 0;
  return narrow_flags(flags, narrow) ? close_and_forget(Flavour::rm, info, rmid, narrow) : XAER_INVAL;
}

template <typename Flavour, BranchVerb Verb, const AcceptedFlags &Accepted>
int wide_verb(const xadtm_lp64_xid *xid, int rmid, long flags) {
  int32_t narrow = 0;
  if (!names_a_branch(xid) || !narrow_flags(flags, narrow)) {
    return XAER_INVAL;
  }
  PaddedXid branch;
  narrow_xid(*xid, branch);
  const int32_t answer = Verb(&branch.xid, rmid, narrow);
  if (answer != XAER_INVAL) [[likely]] {
    return answer;
  }
  return after_refusal(Flavour::rm, Verb, Accepted, branch.xid, rmid, narrow);
}

template <typename Flavour>
int wide_recover(xadtm_lp64_xid *xids, long count, int rmid, long flags) {
  int32_t narrow = 0;
  if (!narrow_flags(flags, narrow)) {
    return XAER_INVAL;
  }
  if (count == 0 && narrow == TMENDRSCAN) {
    return end_scan(Flavour::rm, rmid);
  }
  return xids != nullptr && count > 0 ? recover_in_chunks(Flavour::rm, xids, count, rmid, narrow) : XAER_INVAL;
}

template <typename Flavour>
int wide_complete(int *handle, int *result, int rmid, long flags) {
  int32_t narrow = 0;
  return narrow_flags(flags, narrow) ? Flavour::complete(handle, result, rmid, narrow) : XAER_INVAL;
}

template <typename Flavour>
constexpr xadtm_lp64_switch wide_record() {
  return {"TARVEX_XA_SERVER",
          TMNOFLAGS,
          0,
          wide_open<Flavour>,
          wide_close<Flavour>,
          wide_verb<Flavour, Flavour::start, start_flags>,
          wide_verb<Flavour, Flavour::end, end_flags>,
          wide_verb<Flavour, Flavour::rollback, no_flags>,
          wide_verb<Flavour, Flavour::prepare, no_flags>,
          wide_verb<Flavour, Flavour::commit, commit_flags>,
          wide_recover<Flavour>,
          wide_verb<Flavour, Flavour::forget, no_flags>,
          wide_complete<Flavour>};
}

}  // namespace

extern "C" {

constexpr xadtm_lp64_switch tarvex_MTS_xa_switch_lp64 = wide_record<Mts>();
constexpr xadtm_lp64_switch tarvex_TUX_xa_switch_lp64 = wide_record<Tux>();
constexpr xadtm_lp64_switch tarvex_TXS_xa_switch_lp64 = wide_record<Txs>();

}  // extern "C"
