// What the bridge adds to libxadtm's verbs. See docs/transaction-managers.md for the reasons behind the answers.
#include "narrow_rm.h"

#include <atomic>
#include <cstdio>

#include "words.h"
#include "xadtm.h"

namespace {

constexpr int32_t chunk_size = 32;
constexpr int32_t log_note = 102;
constexpr const char *recover_name = "xa_recover";

enum class Reopened { yes, failed, never_open };

// The flavour that the bridge knows to be the active one: the first whose open left one active.
constinit std::atomic<const NarrowRm *> active_flavour{nullptr};

// Names both answers in the log, in which only libxadtm's would be found otherwise.
int32_t noted(const char *verb, int32_t rmid, int32_t given, int32_t answer) {
  if (given != answer) {
    char from[32];
    snprintf(from, sizeof from, "%s", xacmn_log_dump_xarc(given));
    char text[160];
    snprintf(text, sizeof text, "Answered the transaction manager %d %s instead of %d %s (rmid %d)", answer,
             xacmn_log_dump_xarc(answer), given, given >= 0 ? "" : from, rmid);
    xalog_msg(verb, text, __LINE__, log_note);
  }
  return answer;
}

Memory recall(const NarrowRm &rm, int32_t rmid, OpenString &info) {
  OpenRms *known = rm.known();
  if (known == nullptr) {
    return lacked_memory() ? Memory::unusable : Memory::nothing;
  }
  return known->recall(rmid, info);
}

// Opens a resource manager again that the manager has open. When libxadtm has it open, too, that changes nothing. A
// close in another thread waits, so that nothing is left open behind it.
Reopened reopen(const NarrowRm &rm, int32_t rmid) {
  OpenRms *known = rm.known();
  if (known == nullptr) {
    return lacked_memory() ? Reopened::failed : Reopened::never_open;
  }
  OpenString info;
  const Memory found = known->begin_reopen(rmid, info);
  if (found != Memory::open) {
    return found == Memory::nothing ? Reopened::never_open : Reopened::failed;
  }
  const bool opened = rm.open(info.text(), rmid, TMNOFLAGS) == XA_OK;
  known->end_reopen(rmid);
  return opened ? Reopened::yes : Reopened::failed;
}

// libxadtm looks at a close's flags once it has found a flavour active, and before it does anything.
bool no_flavour_is_active(const NarrowRm &rm, int32_t rmid) {
  return rm.close("", rmid, TMASYNC) == XAER_PROTO;
}

// Notes what an open tells of the active flavour, and whether its XAER_INVAL came from the server: the flags were good,
// a string was there, the configuration is read, and no other flavour's.
bool refused_by_server(const NarrowRm &rm, int32_t rmid, int32_t flags, int32_t opened) {
  const bool tells = opened == XA_OK || opened == XAER_RMERR || opened == XAER_INVAL;
  if (!tells || flags != TMNOFLAGS || (opened == XAER_INVAL && no_flavour_is_active(rm, rmid))) {
    return false;
  }
  const NarrowRm *active = nullptr;
  const bool is_first = active_flavour.compare_exchange_strong(active, &rm);
  return opened == XAER_INVAL && (is_first || active == &rm);
}

int32_t never_inval(int32_t code) {
  return code == XAER_INVAL ? XAER_RMFAIL : code;
}

// Whether the verb may answer the code. Managers count codes that they do not expect of a verb that finishes a branch
// as done, and drop their record of it. So only those are left that say what became of the branch or, as XAER_RMFAIL,
// that this is not known.
bool may_answer(const WideVerb &verb, int32_t flags, int32_t code) {
  const bool is_heuristic = code >= XA_HEURMIX && code <= XA_HEURHAZ;
  const bool is_rolled_back = code >= XA_RBBASE && code <= XA_RBEND;
  const bool is_common = code == XA_OK || code == XAER_NOTA || code == XAER_RMFAIL;
  switch (verb.finishes) {
    case Finishes::by_commit:
      return is_common || is_heuristic || code == XA_RETRY || (is_rolled_back && (flags & TMONEPHASE) != 0);
    case Finishes::by_rollback:
      return is_common || is_heuristic || is_rolled_back;
    case Finishes::by_forget:
      return is_common || code == XAER_PROTO;
    case Finishes::nothing:
      break;
  }
  return code != XAER_INVAL;
}

int32_t passed_on(const WideVerb &verb, int32_t rmid, int32_t flags, int32_t code) {
  return noted(verb.name, rmid, code, may_answer(verb, flags, code) ? code : XAER_RMFAIL);
}

int32_t after_refusal(const NarrowRm &rm, const WideVerb &verb, const XID &xid, int32_t rmid, int32_t flags) {
  if (!verb.accepted.has(flags)) {
    return XAER_INVAL;
  }
  switch (reopen(rm, rmid)) {
    case Reopened::never_open:
      // Another thread of the identity may have closed it to open it again, and the branch may be prepared.
      return verb.finishes == Finishes::nothing ? XAER_INVAL : passed_on(verb, rmid, flags, XAER_INVAL);
    case Reopened::failed:
      return noted(verb.name, rmid, XAER_INVAL, XAER_RMFAIL);
    case Reopened::yes:
      break;
  }
  return passed_on(verb, rmid, flags, verb.call(&xid, rmid, flags));
}

// libxadtm answers XAER_PROTO while no flavour is active. That is no news of a branch: for a manager that could not
// open, and for a verb that finishes branches when it has nothing open.
int32_t after_proto(const NarrowRm &rm, const WideVerb &verb, int32_t rmid, int32_t flags) {
  OpenString info;
  const Memory found = recall(rm, rmid, info);
  const bool finishes = verb.finishes != Finishes::nothing;
  if (found == Memory::unusable || (finishes && found == Memory::nothing)) {
    return noted(verb.name, rmid, XAER_PROTO, XAER_RMFAIL);
  }
  return passed_on(verb, rmid, flags, XAER_PROTO);
}

// ---- Recovery -------------------------------------------------------------------------------------------------------

// A scan from its construction to its destruction.
class ScanScope {
 public:
  ScanScope(OpenRms *known, int32_t rmid) : known_(known), rmid_(rmid) {
    if (known_ != nullptr) {
      claim_ = known_->begin_scan(rmid_);
    }
  }
  ~ScanScope() {
    if (claim_ == ScanClaim::claimed) {
      known_->end_scan(rmid_, kept_);
    }
  }
  ScanScope(const ScanScope &) = delete;
  ScanScope &operator=(const ScanScope &) = delete;

  bool is_busy() const { return claim_ == ScanClaim::busy; }
  void keep(bool kept) { kept_ = kept; }

 private:
  OpenRms *known_;
  int32_t rmid_;
  ScanClaim claim_ = ScanClaim::unknown;
  bool kept_ = false;
};

// A scan call that libxadtm refused: XAER_RMFAIL is also what it answers for a resource manager that is not open.
bool was_refused(int32_t code, int32_t flags) {
  return code == XAER_RMFAIL || (code == XAER_INVAL && recover_flags.has(flags));
}

int32_t recover_again(const NarrowRm &rm, XID *xids, int32_t count, int32_t rmid, int32_t flags, int32_t refusal) {
  switch (reopen(rm, rmid)) {
    case Reopened::never_open:
      return refusal;
    case Reopened::failed:
      return XAER_RMFAIL;
    case Reopened::yes:
      break;
  }
  return never_inval(rm.recover(xids, count, rmid, flags));
}

// A chunk that opens the scan is repeated on a resource manager opened again. A scan that was going on is lost.
int32_t recover_chunk(const NarrowRm &rm, XID *xids, int32_t count, int32_t rmid, int32_t flags) {
  const int32_t found = rm.recover(xids, count, rmid, flags);
  if (!was_refused(found, flags)) {
    return found;
  }
  const bool starts = (flags & TMSTARTRSCAN) != 0;
  const int32_t answer = starts ? recover_again(rm, xids, count, rmid, flags, found) : XAER_RMFAIL;
  return answer == XAER_RMFAIL ? noted(recover_name, rmid, found, answer) : answer;
}

// The call's scan, chunk by chunk. `stored` is what was stored when it broke off, too.
int32_t scan_once(const NarrowRm &rm, xadtm_lp64_xid *xids, long count, int32_t rmid, int32_t flags, long &stored) {
  XID chunk[chunk_size];
  stored = 0;
  int32_t chunk_flags = flags & ~TMENDRSCAN;
  while (stored < count) {
    const long left = count - stored;
    const int32_t wanted = left < chunk_size ? static_cast<int32_t>(left) : chunk_size;
    if (wanted == left) {
      chunk_flags |= flags & TMENDRSCAN;
    }
    const int32_t found = recover_chunk(rm, chunk, wanted, rmid, chunk_flags);
    if (found < 0) {
      return found;
    }
    for (int32_t i = 0; i < found; ++i) {
      widen_xid(chunk[i], xids[stored + i]);
    }
    stored += found;
    if (found < wanted) {
      break;  // libxadtm ended the scan
    }
    chunk_flags &= ~TMSTARTRSCAN;
  }
  return static_cast<int32_t>(stored);
}

// A server that refuses a scan gives no branches. Whether it answers at all shows when it is asked for a branch that no
// manager makes. Not by a start, which would end what the identity works on.
int32_t confirm_nothing(const NarrowRm &rm, int32_t rmid) {
  static constexpr XID nobody = {-2, 44, 0, "libxadtm asks whether the server answers it."};
  const int32_t asked = rm.end(&nobody, rmid, TMSUCCESS);
  return noted(recover_name, rmid, 0, asked == XAER_NOTA ? 0 : XAER_RMERR);
}

int32_t scan(const NarrowRm &rm, xadtm_lp64_xid *xids, long count, int32_t rmid, int32_t flags) {
  const bool starts = (flags & TMSTARTRSCAN) != 0;
  long stored = 0;
  int32_t answer = scan_once(rm, xids, count, rmid, flags, stored);
  if (answer < 0 && stored > 0 && starts) {
    answer = scan_once(rm, xids, count, rmid, flags, stored);  // the caller has not seen any of it yet
  }
  // Behind the first chunk these are no mistake of the manager's: the scan was lost.
  if (stored > 0 && (answer == XAER_PROTO || answer == XAER_INVAL)) {
    return noted(recover_name, rmid, answer, XAER_RMFAIL);
  }
  return answer == 0 && starts ? confirm_nothing(rm, rmid) : answer;
}

int32_t scan_is_busy() {
  xalog_msg(recover_name, "Another thread is in a scan of this resource manager", __LINE__, log_note);
  return XAER_RMERR;
}

}  // namespace

bool AcceptedFlags::has(int32_t flags) const {
  for (uint32_t i = 0; i < count; ++i) {
    if (words[i] == flags) {
      return true;
    }
  }
  return false;
}

int32_t open_and_remember(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags) {
  if (info == nullptr) {
    return rm.open(info, rmid, flags);
  }
  OpenRms *rms = rm.to_open();
  OpenString copy(info);
  if (rms == nullptr || copy.text() == nullptr || !rms->reserve(rmid)) {
    note_lack_of_memory();
    return XAER_RMERR;
  }
  const int32_t opened = rm.open(info, rmid, flags);
  if (opened == XA_OK) {
    rms->remember(rmid, copy);
  } else {
    rms->note_failure(rmid);
  }
  return noted("xa_open", rmid, opened, refused_by_server(rm, rmid, flags, opened) ? XAER_RMERR : opened);
}

int32_t close_and_forget(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags) {
  OpenRms *known = rm.known();
  if (known == nullptr) {
    return rm.close(info, rmid, flags);
  }
  const OpenRms::Opening last = known->begin_close(rmid);
  const int32_t closed = rm.close(info, rmid, flags);
  known->end_close(rmid, last, closed == XA_OK);
  if (closed != XAER_INVAL) {
    known->forget_failure(rmid);
  }
  return closed;
}

int32_t judged(const NarrowRm &rm, const WideVerb &verb, const XID &xid, int32_t rmid, int32_t flags, int32_t answer) {
  switch (answer) {
    case XAER_INVAL:
      return after_refusal(rm, verb, xid, rmid, flags);
    case XAER_PROTO:
      return after_proto(rm, verb, rmid, flags);
    default:
      return passed_on(verb, rmid, flags, answer);
  }
}

int32_t recover_in_chunks(const NarrowRm &rm, xadtm_lp64_xid *xids, long count, int32_t rmid, int32_t flags) {
  if (!recover_flags.has(flags)) {
    XID none;
    return rm.recover(&none, 1, rmid, flags);
  }
  ScanScope claim(rm.known(), rmid);
  if (claim.is_busy()) {
    return scan_is_busy();
  }
  const int32_t answer = scan(rm, xids, count, rmid, flags);
  claim.keep(answer == count && (flags & TMENDRSCAN) == 0);
  return answer;
}

int32_t end_scan(const NarrowRm &rm, int32_t rmid) {
  OpenRms *known = rm.known();
  ScanScope claim(known, rmid);
  if (claim.is_busy()) {
    return scan_is_busy();
  }
  OpenString info;
  const bool is_known = recall(rm, rmid, info) != Memory::nothing;
  if (is_known && (known == nullptr || !known->scan_is_kept(rmid))) {
    return 0;  // none is open, and libxadtm would call that an error
  }
  XID dropped;
  const int32_t ended = rm.recover(&dropped, 1, rmid, TMENDRSCAN);
  // Whatever else is the matter, no scan is open any more.
  return ended >= 0 || is_known ? 0 : ended;
}
