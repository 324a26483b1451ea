// One global transaction's life at one resource manager, through the TUX switch: start, end, prepare, commit.
#pragma once

#include "xa.h"

inline constexpr int32_t bench_rmid = 1;

// An XID with a gtrid and a bqual of 64 bytes each; the number makes it another branch.
XID full_size_xid(int32_t number);

// Opens the resource manager through the TUX switch; false, with a message, when that fails.
bool open_for_cycles();

// Runs one cycle; false when a verb did not answer XA_OK.
bool run_cycle(const XID &xid);
