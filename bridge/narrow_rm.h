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

// How a verb finishes a branch, after which a manager drops its record of it.
enum class Finishes : uint8_t { nothing, by_commit, by_rollback, by_forget };

// A verb on a branch: its entry, and what its answers are judged by.
struct WideVerb {
  const char *name;
  BranchVerb call;
  AcceptedFlags accepted;
  Finishes finishes;
};

int32_t open_and_remember(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags);
int32_t close_and_forget(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags);

// What the manager gets for an answer of libxadtm that is not XA_OK.
int32_t judged(const NarrowRm &rm, const WideVerb &verb, const XID &xid, int32_t rmid, int32_t flags, int32_t answer);

int32_t recover_in_chunks(const NarrowRm &rm, xadtm_lp64_xid *xids, long count, int32_t rmid, int32_t flags);
// Ends a scan without taking anything from it: 0 for whatever the manager has open, also when no scan is. XAER_RMERR
// while another thread is in a scan of the rmid.
int32_t end_scan(const NarrowRm &rm, int32_t rmid);
