// The TXS flavour: its personality record, switch record and entry functions. Every thread has its own identity, and so
// its own resource managers and connections; connections are published under the LRM's name and the thread's identity.
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "quillet.h"
#include "registry/xal_registry.h"
#include "switches/xal_flavour_entries.h"
#include "switches/xal_flavour_objects.h"

namespace {

constexpr uint32_t txs_unread_flag = 0x1;  // part of the published record; nothing looks at it

constinit QLT_THREAD_TABLE _xa__txs_threadfn{};
constinit int32_t _xa_txs_init_mutexp = 0;

struct Txs {
  static constexpr FlavourNames names = {
      .lock_global = "_trvtxs_lock_global",
      .unlock_global = "_trvtxs_unlock_global",
      .create_mutex = "_trvtxs_create_mutex",
      .delete_mutex = "_trvtxs_delete_mutex",
      .take_mutex = "_trvtxs_take_mutex",
      .release_mutex = "_trvtxs_release_mutex",
      .create_event = "_trvtxs_create_event",
      .delete_event = "_trvtxs_delete_event",
      .signal_event = "_trvtxs_signal_event",
      .waitfor_event = "_trvtxs_waitfor_event",
      .reset_event = "_trvtxs_reset_event",
      .obj_insert = "trvtxs_cs_obj_insert",
      .obj_clear = "_trvtxs_cs_obj_clear",
      .obj_get = "_trvtxs_cs_obj_get",
      .conn_init = "_trvtxs_xa_conn_init",
      .conn_free = "_trvtxs_xa_conn_free",
      .xa_open = "trv_txs_xa_open",
  };
  static constexpr const char *not_implemented = "not implemented";
  static constexpr bool counts_statements = false;
  static constexpr bool copies_xid = false;
  static constexpr TraceCategory open_trace = TRACE_NONE;

  static QLT_THREAD_TABLE &threads() { return _xa__txs_threadfn; }
  static int32_t &init_state() { return _xa_txs_init_state; }
  static int32_t &init_mutex() { return _xa_txs_init_mutexp; }
  static const XA_PERSONALITY &personality() { return trvxal_txs_personality; }
  static void choose_personality() {}
  static bool has_threads() { return true; }
  // This flavour's failure goes to standard error, even with a log open.
  static void report_no_threads(const TraceScope &) {
    xal_display_nolog("trv_txs_xa_open: unable to get thread functions\n");
  }

  static KeyOutcome complete_key(const XA_LRMINFO &, QLT_OBJECT_NAME &name, XA_THRDID &identity) {
    return thread_key(_trvtxs_get_thrdid(&identity), name, identity);
  }
};

int32_t _trvtxs_cs_obj_insert(XA_CONNECTION *conn) {
  return FlavourObjects<Txs>::insert(conn);
}
int32_t _trvtxs_cs_obj_clear(XA_CONNECTION *conn) {
  return FlavourObjects<Txs>::clear(conn);
}
int32_t _trvtxs_cs_obj_get() {
  return FlavourObjects<Txs>::get();
}
int32_t _trvtxs_xa_conn_init(XA_CONNECTION *conn) {
  return FlavourObjects<Txs>::conn_init(conn);
}
int32_t _trvtxs_xa_conn_free(XA_CONNECTION *conn) {
  return FlavourObjects<Txs>::conn_free(conn);
}

}  // namespace

extern "C" {

int32_t _trvtxs_get_thrdid(XA_THRDID *identity) {
  if (identity == nullptr) {
    return 0;
  }
  const auto operation = _xa__txs_threadfn.thread_identity;
  constexpr int32_t size = sizeof identity->tid_bytes;
  identity->tid_len = 0;
  if (operation == nullptr || operation(identity->tid_bytes, size, &identity->tid_len) != CS_SUCCEED) {
    return 0;
  }
  if (identity->tid_len < 1 || identity->tid_len > size) {
    return 0;
  }
  identity->tid_tag = identity->tid_bytes[identity->tid_len - 1];
  return 1;
}

int32_t _trvtxs_unlock_global() {
  return FlavourThreads<Txs>::unlock_global();
}
int32_t _trvtxs_lock_global() {
  return FlavourThreads<Txs>::lock_global();
}
int32_t _trvtxs_create_mutex() {
  return FlavourThreads<Txs>::create_mutex();
}
int32_t _trvtxs_delete_mutex(int32_t handle) {
  return FlavourThreads<Txs>::delete_mutex(handle);
}
int32_t _trvtxs_release_mutex(int32_t handle) {
  return FlavourThreads<Txs>::release_mutex(handle);
}
int32_t _trvtxs_take_mutex(int32_t handle) {
  return FlavourThreads<Txs>::take_mutex(handle);
}
int32_t _trvtxs_create_event() {
  return FlavourThreads<Txs>::create_event();
}
int32_t _trvtxs_delete_event(int32_t handle) {
  return FlavourThreads<Txs>::delete_event(handle);
}
int32_t _trvtxs_signal_event(int32_t handle) {
  return FlavourThreads<Txs>::signal_event(handle);
}
int32_t _trvtxs_waitfor_event(int32_t handle) {
  return FlavourThreads<Txs>::waitfor_event(handle);
}
int32_t _trvtxs_reset_event(int32_t handle) {
  return FlavourThreads<Txs>::reset_event(handle);
}

int32_t trv_txs_xa_open(const char *info, int32_t rmid, int32_t flags) {
  return flavour_open<Txs>(info, rmid, flags);
}
int32_t trv_txs_xa_close(const char *info, int32_t rmid, int32_t flags) {
  return serialised_close(info, rmid, flags);
}
int32_t trv_txs_xa_start(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Txs, xa_start>(xid, rmid, flags);
}
int32_t trv_txs_xa_end(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Txs, xa_end>(xid, rmid, flags);
}
int32_t trv_txs_xa_rollback(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Txs, xa_rollback>(xid, rmid, flags);
}
int32_t trv_txs_xa_prepare(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Txs, xa_prepare>(xid, rmid, flags);
}
int32_t trv_txs_xa_commit(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Txs, xa_commit>(xid, rmid, flags);
}
int32_t trv_txs_xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags) {
  return serialised_recover(xids, count, rmid, flags);
}
int32_t trv_txs_xa_forget(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Txs, xa_forget>(xid, rmid, flags);
}
int32_t trv_txs_xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags) {
  return serialised_complete(handle, result, rmid, flags);
}

constexpr xa_switch_t tarvex_TXS_xa_switch = {
    .name = "TARVEX_XA_SERVER",
    .flags = TMNOFLAGS,
    .version = 0,
    .xa_open_entry = trv_txs_xa_open,
    .xa_close_entry = trv_txs_xa_close,
    .xa_start_entry = trv_txs_xa_start,
    .xa_end_entry = trv_txs_xa_end,
    .xa_rollback_entry = trv_txs_xa_rollback,
    .xa_prepare_entry = trv_txs_xa_prepare,
    .xa_commit_entry = trv_txs_xa_commit,
    .xa_recover_entry = trv_txs_xa_recover,
    .xa_forget_entry = trv_txs_xa_forget,
    .xa_complete_entry = trv_txs_xa_complete,
};

}  // extern "C"

constexpr XA_PERSONALITY trvxal_txs_personality = {
    .tm_type = XATM_TXS,
    .tm_flags = txs_unread_flag,
    .get_thrdid = _trvtxs_get_thrdid,
    .unlock_global = _trvtxs_unlock_global,
    .lock_global = _trvtxs_lock_global,
    .create_mutex = _trvtxs_create_mutex,
    .delete_mutex = _trvtxs_delete_mutex,
    .release_mutex = _trvtxs_release_mutex,
    .take_mutex = _trvtxs_take_mutex,
    .create_event = _trvtxs_create_event,
    .delete_event = _trvtxs_delete_event,
    .signal_event = _trvtxs_signal_event,
    .waitfor_event = _trvtxs_waitfor_event,
    .reset_event = _trvtxs_reset_event,
    .cs_obj_insert = _trvtxs_cs_obj_insert,
    .cs_obj_clear = _trvtxs_cs_obj_clear,
    .cs_obj_get = _trvtxs_cs_obj_get,
    .xa_conn_init = _trvtxs_xa_conn_init,
    .xa_conn_free = _trvtxs_xa_conn_free,
};
