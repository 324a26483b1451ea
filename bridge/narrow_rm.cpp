// What the bridge adds to libxadtm's verbs. See docs/transaction-managers.md for the reasons behind the answers.
#include "narrow_rm.h"

#include "words.h"

namespace {

constexpr int32_t chunk_size = 32;

enum class Reopened { yes, failed, never_open };

// Opens a resource manager again that the manager has open. When libxadtm has it open, too, that changes nothing.
Reopened reopen(const NarrowRm &rm, int32_t rmid) {
  OpenString info;
  if (!rm.memory().recall(rmid, info)) {
    return Reopened::never_open;
  }
  const bool opened = info.kept() && rm.open(info.text, rmid, TMNOFLAGS) == XA_OK;
  return opened ? Reopened::yes : Reopened::failed;
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
  OpenRms &memory = rm.memory();
  OpenString string;
  string.set(info);
  // The place is kept before anything is opened, so that what is open can be remembered.
  OpenRms::Reservation slot = OpenRms::none;
  if (!memory.remembers(rmid, string)) {
    slot = memory.reserve(rmid, string);
    if (slot == OpenRms::none) {
      return XAER_RMERR;
    }
  }
  const int32_t opened = rm.open(info, rmid, flags);
  if (opened != XA_OK) {
    if (slot != OpenRms::none) {
      memory.cancel(slot);
    }
    return opened;
  }
  if (slot == OpenRms::none && !memory.renew(rmid, string)) {
    slot = memory.reserve(rmid, string);  // another thread closed it meanwhile, and a place is free
  }
  if (slot != OpenRms::none) {
    memory.publish(slot);
  }
  return XA_OK;
}

int32_t close_and_forget(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags) {
  OpenRms &memory = rm.memory();
  const OpenRms::Ticket opened_before = memory.now();
  const int32_t closed = rm.close(info, rmid, flags);
  if (closed == XA_OK) {
    memory.forget(rmid, opened_before);
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
  XID chunk[chunk_size];
  long stored = 0;
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

int32_t end_scan(const NarrowRm &rm, int32_t rmid) {
  XID dropped;
  int32_t ended = rm.recover(&dropped, 1, rmid, TMENDRSCAN);
  if (was_refused(ended, TMENDRSCAN)) {
    ended = recover_again(rm, &dropped, 1, rmid, TMENDRSCAN, ended);
  }
  OpenString info;
  const bool none_open = ended == XAER_PROTO && rm.memory().recall(rmid, info);
  return ended >= 0 || none_open ? 0 : ended;
}
