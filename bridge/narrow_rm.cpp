// What the bridge adds to libxadtm's verbs. See docs/transaction-managers.md for the reasons behind the answers.
#include "narrow_rm.h"

#include "words.h"

namespace {

constexpr int32_t chunk_size = 32;

enum class Reopened { yes, failed, never_open };

// Opens a resource manager again that the manager has open. When libxadtm has it open, too, that changes nothing. A
// close in another thread may come in between: then nothing stays open that nobody would close.
Reopened reopen(const NarrowRm &rm, int32_t rmid) {
  OpenRms &open_rms = rm.identity().open_rms;
  OpenString info;
  switch (open_rms.recall(rmid, info)) {
    case Memory::nothing:
      return Reopened::never_open;
    case Memory::closing:
    case Memory::unusable:
      return Reopened::failed;
    case Memory::open:
      break;
  }
  if (rm.open(info.text, rmid, TMNOFLAGS) != XA_OK) {
    return Reopened::failed;
  }
  const Memory now = open_rms.recall(rmid, info);
  if (now != Memory::nothing && now != Memory::closing) {
    return Reopened::yes;
  }
  if (rm.close("", rmid, TMNOFLAGS) != XA_OK) {
    open_rms.note_failure(rmid);  // somebody is at work on it
  }
  return Reopened::failed;
}

int32_t never_inval(int32_t code) {
  return code == XAER_INVAL ? XAER_RMFAIL : code;
}

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
  return (flags & TMSTARTRSCAN) != 0 ? recover_again(rm, xids, count, rmid, flags, found) : XAER_RMFAIL;
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
  OpenRms &open_rms = rm.identity().open_rms;
  if (!open_rms.has_place(rmid)) {
    return XAER_RMERR;
  }
  const int32_t opened = rm.open(info, rmid, flags);
  if (opened == XA_OK) {
    open_rms.remember(rmid, OpenString(info));
  } else {
    open_rms.note_failure(rmid);
  }
  return opened;
}

int32_t close_and_forget(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags) {
  OpenRms &open_rms = rm.identity().open_rms;
  const OpenRms::Slots slots = open_rms.begin_close(rmid);
  const int32_t closed = rm.close(info, rmid, flags);
  open_rms.end_close(rmid, slots, closed == XA_OK);
  if (closed != XAER_INVAL) {
    open_rms.forget_failure(rmid);
  }
  return closed;
}

int32_t after_refusal(const NarrowRm &rm, BranchVerb verb, const AcceptedFlags &accepted, const XID &xid, int32_t rmid,
                      int32_t flags) {
  if (!accepted.has(flags)) {
    return XAER_INVAL;
  }
  switch (reopen(rm, rmid)) {
    case Reopened::never_open:
      return XAER_INVAL;
    case Reopened::failed:
      return XAER_RMFAIL;
    case Reopened::yes:
      break;
  }
  return never_inval(verb(&xid, rmid, flags));
}

int32_t recover_in_chunks(const NarrowRm &rm, xadtm_lp64_xid *xids, long count, int32_t rmid, int32_t flags) {
  const ScanScope scan(rm.identity().scans, rmid);
  if (!scan.is_alone()) {
    return XAER_RMERR;
  }
  long stored = 0;
  int32_t answer = scan_once(rm, xids, count, rmid, flags, stored);
  if (answer < 0 && stored > 0 && (flags & TMSTARTRSCAN) != 0) {
    answer = scan_once(rm, xids, count, rmid, flags, stored);  // the caller has not seen any of it yet
  }
  // Behind the first chunk these are no mistake of the manager's: the scan was lost.
  const bool lost = stored > 0 && (answer == XAER_PROTO || answer == XAER_INVAL);
  return lost ? XAER_RMFAIL : answer;
}

int32_t end_scan(const NarrowRm &rm, int32_t rmid) {
  const ScanScope scan(rm.identity().scans, rmid);
  if (!scan.is_alone()) {
    return XAER_RMERR;
  }
  XID dropped;
  const int32_t ended = rm.recover(&dropped, 1, rmid, TMENDRSCAN);
  // Whatever else is the matter, no scan is open any more.
  OpenString info;
  const bool is_known = ended < 0 && rm.identity().open_rms.recall(rmid, info) != Memory::nothing;
  return ended >= 0 || is_known ? 0 : ended;
}
