// libxadtm's entry functions of one flavour, and what is done with them when something is out of the ordinary: the
// opening again of a resource manager that libxadtm has closed, answers that a manager would take for something else,
// and the recovery scan in chunks.
#pragma once

#include <cstdint>

#include "open_rms.h"
#include "xa.h"
#include "xadtm_lp64.h"

// The flag words that libxadtm accepts for a verb.
struct AcceptedFlags {
  uint32_t count;
  int32_t words[6];

  bool has(int32_t flags) const;
};

inline constexpr AcceptedFlags no_flags = {1, {TMNOFLAGS}};
inline constexpr AcceptedFlags start_flags = {
    6, {TMNOFLAGS, TMJOIN, TMRESUME, TMNOWAIT, TMNOWAIT | TMJOIN, TMNOWAIT | TMRESUME}};
inline constexpr AcceptedFlags end_flags = {4, {TMSUCCESS, TMSUSPEND, TMSUSPEND | TMMIGRATE, TMFAIL}};
inline constexpr AcceptedFlags commit_flags = {4, {TMNOFLAGS, TMONEPHASE, TMNOWAIT, TMONEPHASE | TMNOWAIT}};
inline constexpr AcceptedFlags recover_flags = {4, {TMNOFLAGS, TMSTARTRSCAN, TMENDRSCAN, TMSTARTRSCAN | TMENDRSCAN}};

using BranchVerb = int32_t (*)(const XID *xid, int32_t rmid, int32_t flags);

struct NarrowRm {
  OpenRms *(*known)();    // what is open in the calling thread's identity; null when nothing ever was
  OpenRms *(*to_open)();  // the same, made when it is not there; null without memory
  int32_t (*open)(const char *info, int32_t rmid, int32_t flags);
  int32_t (*close)(const char *info, int32_t rmid, int32_t flags);
  BranchVerb end;
  int32_t (*recover)(XID *xids, int32_t count, int32_t rmid, int32_t flags);
};

// A verb on a branch: its entry, and how its answers are to be judged.
struct WideVerb {
  const char *name;
  BranchVerb call;
  AcceptedFlags accepted;
  bool completes;  // commit, rollback, forget: after any other answer than XAER_RMFAIL a manager may drop its record
};

int32_t open_and_remember(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags);
int32_t close_and_forget(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags);

// What the manager gets for these answers of libxadtm; all others are passed on as they are.
inline bool needs_judgement(const WideVerb &verb, int32_t answer) {
  return answer == XAER_INVAL || answer == XAER_PROTO || (verb.completes && answer == XAER_RMERR);
}
[[gnu::cold]] int32_t judged(const NarrowRm &rm, const WideVerb &verb, const XID &xid, int32_t rmid, int32_t flags,
                             int32_t answer);

int32_t recover_in_chunks(const NarrowRm &rm, xadtm_lp64_xid *xids, long count, int32_t rmid, int32_t flags);
// Ends a scan without taking anything from it: 0 for whatever the manager has open, also when no scan is. XAER_RMERR
// while another thread is in a scan of the rmid.
int32_t end_scan(const NarrowRm &rm, int32_t rmid);
