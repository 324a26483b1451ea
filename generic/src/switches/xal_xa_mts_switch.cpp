// The MTS flavour: its personality record, switch record and entry functions, and the statement numbers that only MTS
// hands out. All threads share one identity; connections are published under the LRM's name and lookup key; the
// caller's XIDs are copied, since this transaction manager passes records that end with their data.
#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"
#include "switches/xal_flavour_entries.h"
#include "switches/xal_flavour_objects.h"

namespace {

constinit QLT_THREAD_TABLE _xa__mts_threadfn{};
constinit int32_t _xa_mts_init_mutexp = 0;

struct Mts {
  static constexpr FlavourNames names = {
      .lock_global = "_trvmts_lock_global",
      .unlock_global = "_trvmts_unlock_global",
      .create_mutex = "_trvmts_create_mutex",
      .delete_mutex = "_trvmts_delete_mutex",
      .take_mutex = "_trvmts_take_mutex",
      .release_mutex = "_trvmts_release_mutex",
      .create_event = "_trvmts_create_event",
      .delete_event = "_trvmts_delete_event",
      .signal_event = "_trvmts_signal_event",
      .waitfor_event = "_trvmts_waitfor_event",
      .reset_event = "_trvmts_reset_event",
      .obj_insert = "trvmts_cs_obj_insert",
      .obj_clear = "_trvmts_cs_obj_clear",
      .obj_get = "_trvmts_cs_obj_get",
      .conn_init = "_trvmts_xa_conn_init",
      .conn_free = "_trvmts_xa_conn_free",
      .xa_open = "trv_mts_xa_open",
  };
  static constexpr const char *not_implemented = "_trvmts_conn_get: not implemented\n";
  static constexpr bool counts_statements = true;
  static constexpr bool copies_xid = true;
  static constexpr TraceCategory open_trace = TRACE_XA;

  static QLT_THREAD_TABLE &threads() { return _xa__mts_threadfn; }
  static int32_t &init_state() { return _xa_mts_init_state; }
  static int32_t &init_mutex() { return _xa_mts_init_mutexp; }
  static const XA_PERSONALITY &personality() { return trvxal_mts_personality; }
  static void choose_personality() {}
  static bool has_threads() { return true; }
  static void report_no_threads(const TraceScope &trace) { trace.error()(" unable to get thread functions"); }

  // An LRM without a key, or with the distributed transaction coordinator's own, is not published.
  static KeyOutcome complete_key(const XA_LRMINFO &lrm, QLT_OBJECT_NAME &name, XA_THRDID &) {
    if (lrm.lrm_key[0] == '\0' || strcmp(lrm.lrm_key, "MSDTC") == 0) {
      return {false, CS_SUCCEED};
    }
    name.fnlen = static_cast<int32_t>(strlen(lrm.lrm_key));
    memcpy(name.first_name, lrm.lrm_key, static_cast<size_t>(name.fnlen));
    return {true, CS_SUCCEED};
  }
};

int32_t _trvmts_cs_obj_insert(XA_CONNECTION *conn) {
  return FlavourObjects<Mts>::insert(conn);
}
int32_t _trvmts_cs_obj_clear(XA_CONNECTION *conn) {
  return FlavourObjects<Mts>::clear(conn);
}
int32_t _trvmts_cs_obj_get() {
  return FlavourObjects<Mts>::get();
}
int32_t _trvmts_xa_conn_init(XA_CONNECTION *conn) {
  return FlavourObjects<Mts>::conn_init(conn);
}
int32_t _trvmts_xa_conn_free(XA_CONNECTION *conn) {
  return FlavourObjects<Mts>::conn_free(conn);
}

// Takes the next number from a held connection's counter; numbers start at 1.
int32_t count_statement(const SerialisedCall &call, XA_CONNECTION *conn) {
  auto *counter = static_cast<int32_t *>(conn->xc_tmdata);
  if (call.personality().tm_type != XATM_MTS || counter == nullptr) {
    return XAER_INVAL;
  }
  const int32_t number = *counter;
  *counter = number < INT32_MAX ? number + 1 : 1;
  return number;
}

int32_t next_statement(int32_t rmid) {
  const SerialisedCall call;
  if (!call.entered()) {
    return XAER_PROTO;
  }
  XA_CONNECTION *conn = nullptr;
  const int32_t found = xc_get(rmid, nullptr, &conn, XCF_ASSOC);
  const int32_t number = found == XCRET_ASSOC ? count_statement(call, conn) : XAER_PROTO;
  if (xc_handed_out(found)) {
    xc_release(conn);
  }
  return number;
}

}  // namespace

extern "C" {

int32_t _trvmts_get_thrdid(XA_THRDID *identity) {
  return shared_identity(identity);
}

int32_t _trvmts_unlock_global() {
  return FlavourThreads<Mts>::unlock_global();
}
int32_t _trvmts_lock_global() {
  return FlavourThreads<Mts>::lock_global();
}
int32_t _trvmts_create_mutex() {
  return FlavourThreads<Mts>::create_mutex();
}
int32_t _trvmts_delete_mutex(int32_t handle) {
  return FlavourThreads<Mts>::delete_mutex(handle);
}
int32_t _trvmts_release_mutex(int32_t handle) {
  return FlavourThreads<Mts>::release_mutex(handle);
}
int32_t _trvmts_take_mutex(int32_t handle) {
  return FlavourThreads<Mts>::take_mutex(handle);
}
int32_t _trvmts_create_event() {
  return FlavourThreads<Mts>::create_event();
}
int32_t _trvmts_delete_event(int32_t handle) {
  return FlavourThreads<Mts>::delete_event(handle);
}
int32_t _trvmts_signal_event(int32_t handle) {
  return FlavourThreads<Mts>::signal_event(handle);
}
int32_t _trvmts_waitfor_event(int32_t handle) {
  return FlavourThreads<Mts>::waitfor_event(handle);
}
int32_t _trvmts_reset_event(int32_t handle) {
  return FlavourThreads<Mts>::reset_event(handle);
}

int32_t trv_mts_xa_open(const char *info, int32_t rmid, int32_t flags) {
  return flavour_open<Mts>(info, rmid, flags);
}
int32_t trv_mts_xa_close(const char *info, int32_t rmid, int32_t flags) {
  return serialised_close(info, rmid, flags);
}
int32_t trv_mts_xa_start(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Mts, xa_start>(xid, rmid, flags);
}
int32_t trv_mts_xa_end(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Mts, xa_end>(xid, rmid, flags);
}
int32_t trv_mts_xa_rollback(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Mts, xa_rollback>(xid, rmid, flags);
}
int32_t trv_mts_xa_prepare(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Mts, xa_prepare>(xid, rmid, flags);
}
int32_t trv_mts_xa_commit(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Mts, xa_commit>(xid, rmid, flags);
}
int32_t trv_mts_xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags) {
  return serialised_recover(xids, count, rmid, flags);
}
int32_t trv_mts_xa_forget(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Mts, xa_forget>(xid, rmid, flags);
}
int32_t trv_mts_xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags) {
  return serialised_complete(handle, result, rmid, flags);
}

constexpr xa_switch_t tarvex_MTS_xa_switch = {
    .name = "TARVEX_XA_SERVER",
    .flags = TMNOFLAGS,
    .version = 0,
    .xa_open_entry = trv_mts_xa_open,
    .xa_close_entry = trv_mts_xa_close,
    .xa_start_entry = trv_mts_xa_start,
    .xa_end_entry = trv_mts_xa_end,
    .xa_rollback_entry = trv_mts_xa_rollback,
    .xa_prepare_entry = trv_mts_xa_prepare,
    .xa_commit_entry = trv_mts_xa_commit,
    .xa_recover_entry = trv_mts_xa_recover,
    .xa_forget_entry = trv_mts_xa_forget,
    .xa_complete_entry = trv_mts_xa_complete,
};

int32_t TrvXA_GetStatementNr(int32_t rmid) {
  const TraceScope trace("TrvXA_GetStatementNr", TRACE_XA);
  const int32_t number = next_statement(rmid);
  return number > 0 ? trace.hex(number) : trace.xa(number);
}

}  // extern "C"

constexpr XA_PERSONALITY trvxal_mts_personality = {
    .tm_type = XATM_MTS,
    .tm_flags = XAPF_CFG_OPTIONAL | XAPF_CLOSE_ENDS | XAPF_FORCE_ATTACH | XAPF_LOOKUP_KEY,
    .get_thrdid = _trvmts_get_thrdid,
    .unlock_global = _trvmts_unlock_global,
    .lock_global = _trvmts_lock_global,
    .create_mutex = _trvmts_create_mutex,
    .delete_mutex = _trvmts_delete_mutex,
    .release_mutex = _trvmts_release_mutex,
    .take_mutex = _trvmts_take_mutex,
    .create_event = _trvmts_create_event,
    .delete_event = _trvmts_delete_event,
    .signal_event = _trvmts_signal_event,
    .waitfor_event = _trvmts_waitfor_event,
    .reset_event = _trvmts_reset_event,
    .cs_obj_insert = _trvmts_cs_obj_insert,
    .cs_obj_clear = _trvmts_cs_obj_clear,
    .cs_obj_get = _trvmts_cs_obj_get,
    .xa_conn_init = _trvmts_xa_conn_init,
    .xa_conn_free = _trvmts_xa_conn_free,
};
static_assert(trvxal_mts_personality.tm_flags == 0x10E);
