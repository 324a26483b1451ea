// The measured cycle. Every verb's result is checked, so that a cycle that fails early cannot pass for a fast one.
#include "branch_cycle.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "xadtm.h"

XID full_size_xid(int32_t number) {
  XID xid{};
  xid.formatID = 0x5841;
  xid.gtrid_length = MAXGTRIDSIZE;
  xid.bqual_length = MAXBQUALSIZE;
  for (int32_t i = 0; i < XIDDATASIZE; ++i) {
    xid.data[i] = static_cast<char>(i * 7 + 1);
  }
  memcpy(xid.data, &number, sizeof number);
  return xid;
}

bool open_for_cycles() {
  const int32_t opened = tarvex_TUX_xa_switch.xa_open_entry("-NL1 -Ubench -Ppw -Sserver", bench_rmid, TMNOFLAGS);
  if (opened != XA_OK) {
    fprintf(stderr, "xa_open answered %d\n", opened);
  }
  return opened == XA_OK;
}

bool run_cycle(const XID &xid) {
  const xa_switch_t &tm = tarvex_TUX_xa_switch;
  return tm.xa_start_entry(&xid, bench_rmid, TMNOFLAGS) == XA_OK &&
         tm.xa_end_entry(&xid, bench_rmid, TMSUCCESS) == XA_OK &&
         tm.xa_prepare_entry(&xid, bench_rmid, TMNOFLAGS) == XA_OK &&
         tm.xa_commit_entry(&xid, bench_rmid, TMNOFLAGS) == XA_OK;
}
