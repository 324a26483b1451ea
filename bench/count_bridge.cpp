// Runs branch cycles through the TUX switch record of 64-bit words or of 32-bit words, to be counted under valgrind:
// what the first costs more is the bridge's. The XIDs are of 64 + 64 bytes, with "-short" behind the word of 1 + 0.
// With "-open" behind it, a cycle is an open and a close. Usage: count_bridge wide|narrow[-short|-open] CYCLES.
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "branch_cycle.h"
#include "xadtm.h"
#include "xadtm_lp64.h"

namespace {

constexpr long success = TMSUCCESS;

bool run_wide_cycle(const xadtm_lp64_xid &xid) {
  const xadtm_lp64_switch &tm = tarvex_TUX_xa_switch_lp64;
  return tm.xa_start_entry(&xid, bench_rmid, 0) == XA_OK && tm.xa_end_entry(&xid, bench_rmid, success) == XA_OK &&
         tm.xa_prepare_entry(&xid, bench_rmid, 0) == XA_OK && tm.xa_commit_entry(&xid, bench_rmid, 0) == XA_OK;
}

constexpr const char *open_string = "-NL1 -Ubench -Ppw -Sserver";

template <typename Switch>
bool open_by(const Switch &tm) {
  return tm.xa_open_entry(open_string, bench_rmid, 0) == XA_OK;
}

template <typename Switch>
bool close_by(const Switch &tm) {
  return tm.xa_close_entry("", bench_rmid, 0) == XA_OK;
}

// Both kinds of XIDs are made beforehand, so that making them does not count.
constexpr long branches = 64;
XID narrow_xids[branches];
xadtm_lp64_xid wide_xids[branches];

void make_xids(bool are_short) {
  for (int32_t number = 0; number < branches; ++number) {
    XID xid = full_size_xid(number);
    if (are_short) {
      xid = {number, 1, 0, {}};
    }
    narrow_xids[number] = xid;
    wide_xids[number] = {xid.formatID, xid.gtrid_length, xid.bqual_length, {}};
    memcpy(wide_xids[number].data, xid.data, sizeof xid.data);
  }
}

}  // namespace

int main(int argc, char **argv) {
  const std::string_view kind = argc > 1 ? argv[1] : "";
  const bool wide = kind.starts_with("wide");
  const bool opens = kind.ends_with("-open");
  const long cycles = argc > 2 ? strtol(argv[2], nullptr, 10) : 1;
  make_xids(kind.ends_with("-short"));
  bool fine = wide ? open_by(tarvex_TUX_xa_switch_lp64) : open_by(tarvex_TUX_xa_switch);
  for (long number = 0; fine && number < cycles; ++number) {
    const long branch = number % branches;
    if (!opens) {
      fine = wide ? run_wide_cycle(wide_xids[branch]) : run_cycle(narrow_xids[branch]);
    } else if (wide) {
      fine = close_by(tarvex_TUX_xa_switch_lp64) && open_by(tarvex_TUX_xa_switch_lp64);
    } else {
      fine = close_by(tarvex_TUX_xa_switch) && open_by(tarvex_TUX_xa_switch);
    }
  }
  return fine ? 0 : 1;
}
