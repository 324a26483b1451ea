// libxadtm's entry functions of one flavour, and what is done with them when something is out of the ordinary: the
// opening again of a resource manager that libxadtm has closed, and the recovery scan in chunks.
#pragma once

#include <cstdint>

#include "open_rms.h"
#include "scans.h"
#include "xa.h"

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

// What the bridge remembers of a thread identity.
struct Identity {
  OpenRms open_rms;
  Scans scans;
};

struct NarrowRm {
  Identity &(*identity)();  // the calling thread's
  int32_t (*open)(const char *info, int32_t rmid, int32_t flags);
  int32_t (*close)(const char *info, int32_t rmid, int32_t flags);
  int32_t (*recover)(XID *xids, int32_t count, int32_t rmid, int32_t flags);
};

int32_t open_and_remember(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags);
int32_t close_and_forget(const NarrowRm &rm, const char *info, int32_t rmid, int32_t flags);

// The answer of a verb that libxadtm refused with XAER_INVAL. When the manager has the resource manager open and the
// flags were good, it is opened again and the verb is repeated; what fails then is XAER_RMFAIL.
[[gnu::cold]] int32_t after_refusal(const NarrowRm &rm, BranchVerb verb, const AcceptedFlags &accepted, const XID &xid,
                                    int32_t rmid, int32_t flags);

int32_t recover_in_chunks(const NarrowRm &rm, xadtm_lp64_xid *xids, long count, int32_t rmid, int32_t flags);
// Ends a scan without taking anything from it: 0 for whatever the manager has open, also when no scan is. XAER_RMERR
// while another thread is in a scan of the rmid.
int32_t end_scan(const NarrowRm &rm, int32_t rmid);
