// The TUX flavour: its two personality records (threaded and non-threaded, chosen at start-up by whether the client
// library has thread support), the null operations of the non-threaded one, switch record and entry functions. All
// threads share one identity; connections are published under the LRM's name.
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "quillet.h"
#include "registry/xal_registry.h"
#include "switches/xal_flavour_entries.h"
#include "switches/xal_flavour_objects.h"

namespace {

constinit QLT_THREAD_TABLE _xa__tux_threadfn{};
constinit int32_t _xa_tux_init_mutexp = 0;
constinit const XA_PERSONALITY *trvxal_tux_personality = nullptr;  // guarded by the global lock

struct Tux {
  static constexpr FlavourNames names = {
      .lock_global = "_trvtux_lock_global",
      .unlock_global = "_trvtux_unlock_global",
      .create_mutex = "_trvtux_create_mutex",
      .delete_mutex = "_trvtux_delete_mutex",
      .take_mutex = "_trvtux_take_mutex",
      .release_mutex = "_trvtux_release_mutex",
      .create_event = "_trvtux_create_event",
      .delete_event = "_trvtux_delete_event",
      .signal_event = "_trvtux_signal_event",
      .waitfor_event = "_trvtux_waitfor_event",
      .reset_event = "_trvtux_reset_event",
      .obj_insert = "trvtux_cs_obj_insert",
      .obj_clear = "_trvtux_cs_obj_clear",
      .obj_get = "_trvtux_cs_obj_ge",
      .conn_init = "_trvtux_xa_conn_init",
      .conn_free = "_trvtux_xa_conn_free",
      .xa_open = "trv_tux_xa_open",
  };
  static constexpr const char *not_implemented = "_trvtux_conn_get: not implemented\n";
  static constexpr bool counts_statements = false;
  static constexpr bool copies_xid = false;
  static constexpr TraceCategory open_trace = TRACE_NONE;

  static QLT_THREAD_TABLE &threads() { return _xa__tux_threadfn; }
  static int32_t &init_state() { return _xa_tux_init_state; }
  static int32_t &init_mutex() { return _xa_tux_init_mutexp; }
  static const XA_PERSONALITY &personality() {
    return trvxal_tux_personality != nullptr ? *trvxal_tux_personality : trvxal_tux_threaded_personality;
  }
  static void choose_personality() {
    trvxal_tux_personality = _xa__tux_threadfn.create_mutex == nullptr ? &trvxal_tux_nonthreaded_personality
                                                                       : &trvxal_tux_threaded_personality;
  }
  static bool has_threads() { return trvxal_tux_personality == &trvxal_tux_threaded_personality; }
  static void report_no_threads(const TraceScope &trace) { trace.error()("unable to get thread functions"); }

  static KeyOutcome complete_key(const XA_LRMINFO &, QLT_OBJECT_NAME &name, XA_THRDID &identity) {
    return thread_key(active_personality().get_thrdid(&identity), name, identity);
  }
};

int32_t _trvtux_cs_obj_insert(XA_CONNECTION *conn) {
  return FlavourObjects<Tux>::insert(conn);
}
int32_t _trvtux_cs_obj_clear(XA_CONNECTION *conn) {
  return FlavourObjects<Tux>::clear(conn);
}
int32_t _trvtux_cs_obj_get() {
  return FlavourObjects<Tux>::get();
}
int32_t _trvtux_xa_conn_init(XA_CONNECTION *conn) {
  return FlavourObjects<Tux>::conn_init(conn);
}
int32_t _trvtux_xa_conn_free(XA_CONNECTION *conn) {
  return FlavourObjects<Tux>::conn_free(conn);
}

// A null operation: nothing happens, under the threaded operation's name, so that a log looks the same either way.
int32_t null_operation(const char *name) {
  const TraceScope trace(name, TRACE_MISC);
  return trace.cs(CS_SUCCEED);
}

int32_t null_create(const char *name) {
  const TraceScope trace(name, TRACE_MISC);
  return trace.hex(0);
}

}  // namespace

extern "C" {

int32_t _trvtux_get_null_thrdid(XA_THRDID *identity) {
  return shared_identity(identity);
}

int32_t _trvtux_unlock_global() {
  return FlavourThreads<Tux>::unlock_global();
}
int32_t _trvtux_lock_global() {
  return FlavourThreads<Tux>::lock_global();
}
int32_t _trvtux_create_mutex() {
  return FlavourThreads<Tux>::create_mutex();
}
int32_t _trvtux_delete_mutex(int32_t handle) {
  return FlavourThreads<Tux>::delete_mutex(handle);
}
int32_t _trvtux_release_mutex(int32_t handle) {
  return FlavourThreads<Tux>::release_mutex(handle);
}
int32_t _trvtux_take_mutex(int32_t handle) {
  return FlavourThreads<Tux>::take_mutex(handle);
}
int32_t _trvtux_create_event() {
  return FlavourThreads<Tux>::create_event();
}
int32_t _trvtux_delete_event(int32_t handle) {
  return FlavourThreads<Tux>::delete_event(handle);
}
int32_t _trvtux_signal_event(int32_t handle) {
  return FlavourThreads<Tux>::signal_event(handle);
}
int32_t _trvtux_waitfor_event(int32_t handle) {
  return FlavourThreads<Tux>::waitfor_event(handle);
}
int32_t _trvtux_reset_event(int32_t handle) {
  return FlavourThreads<Tux>::reset_event(handle);
}

int32_t _trvtux_create_null_mutex() {
  return null_create(Tux::names.create_mutex);
}
int32_t _trvtux_delete_null_mutex(int32_t) {
  return null_operation(Tux::names.delete_mutex);
}
int32_t _trvtux_release_null_mutex(int32_t) {
  return null_operation(Tux::names.release_mutex);
}
int32_t _trvtux_take_null_mutex(int32_t) {
  return null_operation(Tux::names.take_mutex);
}
int32_t _trvtux_create_null_event() {
  return null_create(Tux::names.create_event);
}
int32_t _trvtux_delete_null_event(int32_t) {
  return null_operation(Tux::names.delete_event);
}
int32_t _trvtux_signal_null_event(int32_t) {
  return null_operation(Tux::names.signal_event);
}
int32_t _trvtux_waitfor_null_event(int32_t) {
  return null_operation(Tux::names.waitfor_event);
}
int32_t _trvtux_reset_null_event(int32_t) {
  return null_operation(Tux::names.reset_event);
}

int32_t trv_tux_xa_open(const char *info, int32_t rmid, int32_t flags) {
  return flavour_open<Tux>(info, rmid, flags);
}
int32_t trv_tux_xa_close(const char *info, int32_t rmid, int32_t flags) {
  return serialised_close(info, rmid, flags);
}
int32_t trv_tux_xa_start(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Tux, xa_start>(xid, rmid, flags);
}
int32_t trv_tux_xa_end(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Tux, xa_end>(xid, rmid, flags);
}
int32_t trv_tux_xa_rollback(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Tux, xa_rollback>(xid, rmid, flags);
}
int32_t trv_tux_xa_prepare(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Tux, xa_prepare>(xid, rmid, flags);
}
int32_t trv_tux_xa_commit(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Tux, xa_commit>(xid, rmid, flags);
}
int32_t trv_tux_xa_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags) {
  return serialised_recover(xids, count, rmid, flags);
}
int32_t trv_tux_xa_forget(const XID *xid, int32_t rmid, int32_t flags) {
  return flavour_branch_verb<Tux, xa_forget>(xid, rmid, flags);
}
int32_t trv_tux_xa_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags) {
  return serialised_complete(handle, result, rmid, flags);
}

constexpr xa_switch_t tarvex_TUX_xa_switch = {
    .name = "TARVEX_XA_SERVER",
    .flags = TMNOFLAGS,
    .version = 0,
    .xa_open_entry = trv_tux_xa_open,
    .xa_close_entry = trv_tux_xa_close,
    .xa_start_entry = trv_tux_xa_start,
    .xa_end_entry = trv_tux_xa_end,
    .xa_rollback_entry = trv_tux_xa_rollback,
    .xa_prepare_entry = trv_tux_xa_prepare,
    .xa_commit_entry = trv_tux_xa_commit,
    .xa_recover_entry = trv_tux_xa_recover,
    .xa_forget_entry = trv_tux_xa_forget,
    .xa_complete_entry = trv_tux_xa_complete,
};

}  // extern "C"

constexpr XA_PERSONALITY trvxal_tux_threaded_personality = {
    .tm_type = XATM_TUX,
    .tm_flags = 0,
    .get_thrdid = _trvtux_get_null_thrdid,
    .unlock_global = _trvtux_unlock_global,
    .lock_global = _trvtux_lock_global,
    .create_mutex = _trvtux_create_mutex,
    .delete_mutex = _trvtux_delete_mutex,
    .release_mutex = _trvtux_release_mutex,
    .take_mutex = _trvtux_take_mutex,
    .create_event = _trvtux_create_event,
    .delete_event = _trvtux_delete_event,
    .signal_event = _trvtux_signal_event,
    .waitfor_event = _trvtux_waitfor_event,
    .reset_event = _trvtux_reset_event,
    .cs_obj_insert = _trvtux_cs_obj_insert,
    .cs_obj_clear = _trvtux_cs_obj_clear,
    .cs_obj_get = _trvtux_cs_obj_get,
    .xa_conn_init = _trvtux_xa_conn_init,
    .xa_conn_free = _trvtux_xa_conn_free,
};

constexpr XA_PERSONALITY trvxal_tux_nonthreaded_personality = {
    .tm_type = XATM_TUX,
    .tm_flags = 0,
    .get_thrdid = _trvtux_get_null_thrdid,
    .unlock_global = _trvtux_unlock_global,
    .lock_global = _trvtux_lock_global,
    .create_mutex = _trvtux_create_null_mutex,
    .delete_mutex = _trvtux_delete_null_mutex,
    .release_mutex = _trvtux_release_null_mutex,
    .take_mutex = _trvtux_take_null_mutex,
    .create_event = _trvtux_create_null_event,
    .delete_event = _trvtux_delete_null_event,
    .signal_event = _trvtux_signal_null_event,
    .waitfor_event = _trvtux_waitfor_null_event,
    .reset_event = _trvtux_reset_null_event,
    .cs_obj_insert = _trvtux_cs_obj_insert,
    .cs_obj_clear = _trvtux_cs_obj_clear,
    .cs_obj_get = _trvtux_cs_obj_get,
    .xa_conn_init = _trvtux_xa_conn_init,
    .xa_conn_free = _trvtux_xa_conn_free,
};
