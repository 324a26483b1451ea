// The entries behind the wide switch records, one body for all flavours: narrow the words, call libxadtm's entry
// function, and only look twice at the few answers that a manager could take for something else.
#include <pthread.h>

#include <cstdlib>
#include <new>

#include "narrow_rm.h"
#include "words.h"
#include "xadtm.h"

namespace {

constinit OpenRms mts_open{};
constinit OpenRms tux_open{};

OpenRms *mts_rms() {
  return &mts_open;
}

OpenRms *tux_rms() {
  return &tux_open;
}

// Under TXS a thread is an identity of its own, and what it has open ends with it. A key instead of a thread-local
// variable: when there is no memory for it, an open fails, where the loader would end the process.
constinit pthread_once_t txs_once = PTHREAD_ONCE_INIT;
constinit pthread_key_t txs_key{};
constinit bool txs_has_key = false;

void forget_thread(void *rms) {
  static_cast<OpenRms *>(rms)->clear();
  free(rms);
}

void make_txs_key() {
  txs_has_key = pthread_key_create(&txs_key, forget_thread) == 0;
}

OpenRms *txs_rms() {
  pthread_once(&txs_once, make_txs_key);
  return txs_has_key ? static_cast<OpenRms *>(pthread_getspecific(txs_key)) : nullptr;
}

OpenRms *txs_rms_to_open() {
  OpenRms *rms = txs_rms();
  if (rms != nullptr || !txs_has_key) {
    return rms;
  }
  void *room = malloc(sizeof(OpenRms));
  if (room == nullptr || pthread_setspecific(txs_key, room) != 0) {
    free(room);
    return nullptr;
  }
  return new (room) OpenRms{};
}

struct Mts {
  static constexpr NarrowRm rm = {mts_rms,          mts_rms,        trv_mts_xa_open,
                                  trv_mts_xa_close, trv_mts_xa_end, trv_mts_xa_recover};
  static constexpr WideVerb start = {"xa_start", trv_mts_xa_start, start_flags, Finishes::nothing};
  static constexpr WideVerb end = {"xa_end", trv_mts_xa_end, end_flags, Finishes::nothing};
  static constexpr WideVerb rollback = {"xa_rollback", trv_mts_xa_rollback, no_flags, Finishes::by_rollback};
  static constexpr WideVerb prepare = {"xa_prepare", trv_mts_xa_prepare, no_flags, Finishes::nothing};
  static constexpr WideVerb commit = {"xa_commit", trv_mts_xa_commit, commit_flags, Finishes::by_commit};
  static constexpr WideVerb forget = {"xa_forget", trv_mts_xa_forget, no_flags, Finishes::by_forget};
  static constexpr auto complete = trv_mts_xa_complete;
};

struct Tux {
  static constexpr NarrowRm rm = {tux_rms,          tux_rms,        trv_tux_xa_open,
                                  trv_tux_xa_close, trv_tux_xa_end, trv_tux_xa_recover};
  static constexpr WideVerb start = {"xa_start", trv_tux_xa_start, start_flags, Finishes::nothing};
  static constexpr WideVerb end = {"xa_end", trv_tux_xa_end, end_flags, Finishes::nothing};
  static constexpr WideVerb rollback = {"xa_rollback", trv_tux_xa_rollback, no_flags, Finishes::by_rollback};
  static constexpr WideVerb prepare = {"xa_prepare", trv_tux_xa_prepare, no_flags, Finishes::nothing};
  static constexpr WideVerb commit = {"xa_commit", trv_tux_xa_commit, commit_flags, Finishes::by_commit};
  static constexpr WideVerb forget = {"xa_forget", trv_tux_xa_forget, no_flags, Finishes::by_forget};
  static constexpr auto complete = trv_tux_xa_complete;
};

struct Txs {
  static constexpr NarrowRm rm = {txs_rms,          txs_rms_to_open, trv_txs_xa_open,
                                  trv_txs_xa_close, trv_txs_xa_end,  trv_txs_xa_recover};
  static constexpr WideVerb start = {"xa_start", trv_txs_xa_start, start_flags, Finishes::nothing};
  static constexpr WideVerb end = {"xa_end", trv_txs_xa_end, end_flags, Finishes::nothing};
  static constexpr WideVerb rollback = {"xa_rollback", trv_txs_xa_rollback, no_flags, Finishes::by_rollback};
  static constexpr WideVerb prepare = {"xa_prepare", trv_txs_xa_prepare, no_flags, Finishes::nothing};
  static constexpr WideVerb commit = {"xa_commit", trv_txs_xa_commit, commit_flags, Finishes::by_commit};
  static constexpr WideVerb forget = {"xa_forget", trv_txs_xa_forget, no_flags, Finishes::by_forget};
  static constexpr auto complete = trv_txs_xa_complete;
};

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

template <typename Flavour, const WideVerb &Verb>
int wide_verb(const xadtm_lp64_xid *xid, int rmid, long flags) {
  int32_t narrow = 0;
  if (!names_a_branch(xid) || !narrow_flags(flags, narrow)) {
    return XAER_INVAL;
  }
  PaddedXid branch;
  narrow_xid(*xid, branch);
  const int32_t answer = Verb.call(&branch.xid, rmid, narrow);
  if (answer == XA_OK) [[likely]] {
    return answer;
  }
  return judged(Flavour::rm, Verb, branch.xid, rmid, narrow, answer);
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
          wide_verb<Flavour, Flavour::start>,
          wide_verb<Flavour, Flavour::end>,
          wide_verb<Flavour, Flavour::rollback>,
          wide_verb<Flavour, Flavour::prepare>,
          wide_verb<Flavour, Flavour::commit>,
          wide_recover<Flavour>,
          wide_verb<Flavour, Flavour::forget>,
          wide_complete<Flavour>};
}

}  // namespace

extern "C" {

constexpr xadtm_lp64_switch tarvex_MTS_xa_switch_lp64 = wide_record<Mts>();
constexpr xadtm_lp64_switch tarvex_TUX_xa_switch_lp64 = wide_record<Tux>();
constexpr xadtm_lp64_switch tarvex_TXS_xa_switch_lp64 = wide_record<Txs>();

}  // extern "C"
