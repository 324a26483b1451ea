// The connection record: one server connection, the branch that it serves, and the states that it goes through. All of
// it is read and written under the serialisation mutex.
#pragma once

#include <cstdint>

#include "quillet.h"
#include "registry/xal_registry.h"
#include "xa.h"

// Longest branch name with its terminating zero: 8 + 1 + 86 + 1 + 86 + 2 + 31 + 1.
inline constexpr int32_t XA_NAME_SIZE = 216;

// One server connection with the branch it serves. Owned by its LRM's list from xc_open on; freed by xc_open when
// connecting fails, and by xc_get when a search meets it in XCS_CLOSED and nobody holds it.
struct xa_connection : XC_LINKS {
  int32_t xc_mutex;  // placeholder
  xa_lrminfo *xc_lrm;
  QLT_CONNECTION *xc_conn;
  QLT_COMMAND *xc_cmd;        // carries every DTM request
  QLT_COMMAND *xc_recov_cmd;  // carries an open recovery scan, else null
  XID xc_xid;                 // formatID -1: no branch
  int32_t xc_state;
  int32_t rpcret;    // class of the last DTM reply
  int32_t rpcstat;   // error code of the last DTM reply
  int32_t transtat;  // transaction state of the last DTM reply
  void *xc_srvmsg_cb;
  void *xc_climsg_cb;
  void *xc_tmdata;  // the personality's

  // How often the record is held, from hand-out to release, and by which thread. A held record is never purged, nor
  // handed out again; a thread that looks for just this record waits for its release.
  int32_t xc_holds;
  const void *xc_holder;
  // The branch name last encoded for a request on this connection, and the XID it stands for (length 0: none yet).
  XID xc_named_xid;
  int32_t xc_named_data;  // bytes of its data that count
  int32_t xc_name_length;
  char xc_name[XA_NAME_SIZE];
};
using XA_CONNECTION = xa_connection;

// Connection states. What holds in each, and who enters it:
inline constexpr int32_t XCS_INUSE = -1;         // handed out, no branch yet: xc_get, xc_reopen_conn
inline constexpr int32_t XCS_UNUSED = 0;         // connected, free for any branch: every verb when it is done
inline constexpr int32_t XCS_ASSOC = 1;          // xc_xid is associated with the thread identity: xa_start
inline constexpr int32_t XCS_CLOSED = 2;         // no server connection, waits to be purged: xc_close
inline constexpr int32_t XCS_SUSPEND = 3;        // xc_xid is suspended here, unknown to the server: xa_end
inline constexpr int32_t XCS_OPENED = 100;       // freshly made: xc_open
inline constexpr int32_t XCS_STARTING = 101;     // xa_start is at work
inline constexpr int32_t XCS_ENDING = 102;       // xa_end is at work
inline constexpr int32_t XCS_PREPARING = 103;    // xa_prepare is at work
inline constexpr int32_t XCS_COMMITTING = 104;   // xa_commit is at work
inline constexpr int32_t XCS_ROLLINGBACK = 105;  // xa_rollback is at work, or xa_end after a failed end
inline constexpr int32_t XCS_CLOSING = 106;      // xa_close or xc_reopen_conn is at work
inline constexpr int32_t XCS_FORGETTING = 107;   // xa_forget is at work
inline constexpr int32_t XCS_RECOVER = 108;      // holds an open recovery scan: xa_recover
