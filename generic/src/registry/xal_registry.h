// The registry of open resource managers: per thread identity the rmids, per rmid one XA_LRMINFO with the list of its
// connections. Everything here runs under the serialisation mutex; the records' own
// handles are placeholder mutexes, taken and released in the order list before record.
#pragma once

#include <cstdint>

#include "config/xal_open_string.h"
#include "personality/xal_personality.h"

// The links of a connection in its LRM's circular list; the list's head is a pair of links that an empty list points
// at.
struct XC_LINKS {
  XC_LINKS *xc_next;
  XC_LINKS *xc_prev;
};

// One open resource manager. Freed by xal_freelrm only, when it has no connection and none is being made.
struct xa_lrminfo {
  xa_lrminfo *lrm_next;
  xa_lrminfo *lrm_prev;
  int32_t lrm_mutex;   // placeholder
  XC_LINKS lrm_conns;  // head of the list of connections, newest first
  char *open_info;
  char lrm_name[XAL_FIELD_SIZE];
  char lrm_server[XAL_FIELD_SIZE];
  char lrm_user[XAL_FIELD_SIZE];
  char lrm_password[XAL_FIELD_SIZE];
  char lrm_key[XAL_FIELD_SIZE];
  int32_t lrm_opens;  // connections being made, not yet in lrm_conns
};
using XA_LRMINFO = xa_lrminfo;

// The links of an rmid in its identity's list, and of an identity in the list of all; heads as above.
struct RL_LINKS {
  RL_LINKS *rl_next;
  RL_LINKS *rl_prev;
};

struct RMID_LIST : RL_LINKS {
  XA_LRMINFO *rl_lrminfo;
  int32_t rmid;
};

struct TL_LINKS {
  TL_LINKS *tl_next;
  TL_LINKS *tl_prev;
};

struct THREAD_LIST : TL_LINKS {
  RL_LINKS tl_rmids;
  XA_THRDID tl_thrdid;
};

// The record of rmid for the calling thread identity, its mutex taken, or null.
XA_LRMINFO *xal_getlrm(int32_t rmid);
// The same without its mutex and without a trace, for looks that are no lookups; null as well.
XA_LRMINFO *xal_peeklrm(int32_t rmid);
// As xal_getlrm, making the record when there is none. Null when it cannot be made, or is open with other values.
XA_LRMINFO *xal_addlrm(int32_t rmid, const char *open_string);
// Removes the record: 1 (also when rmid was not open), 0 when the identity never opened anything, XAER_NOTA when the
// record still has connections or one is being made.
int32_t xal_freelrm(int32_t rmid);
