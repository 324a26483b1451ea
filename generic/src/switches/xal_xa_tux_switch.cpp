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
  static constexpr FlavourNames names =
      XAL_FLAVOUR_NAMES(trvtux, "trvtux_cs_obj_insert", "_trvtux_cs_obj_ge", "trv_tux_xa_open");
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

XAL_DEFINE_OBJECTS(trvtux, Tux)

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

XAL_EXPORT_THREADS(trvtux, Tux)

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

XAL_EXPORT_ENTRIES(trv_tux, Tux)

constexpr xa_switch_t tarvex_TUX_xa_switch = XAL_SWITCH_RECORD(trv_tux);

}  // extern "C"

constexpr XA_PERSONALITY trvxal_tux_threaded_personality = {
    XATM_TUX,
    0,
    _trvtux_get_null_thrdid,
    _trvtux_unlock_global,
    _trvtux_lock_global,
    _trvtux_create_mutex,
    _trvtux_delete_mutex,
    _trvtux_release_mutex,
    _trvtux_take_mutex,
    _trvtux_create_event,
    _trvtux_delete_event,
    _trvtux_signal_event,
    _trvtux_waitfor_event,
    _trvtux_reset_event,
    _trvtux_cs_obj_insert,
    _trvtux_cs_obj_clear,
    _trvtux_cs_obj_get,
    _trvtux_xa_conn_init,
    _trvtux_xa_conn_free,
};

constexpr XA_PERSONALITY trvxal_tux_nonthreaded_personality = {
    XATM_TUX,
    0,
    _trvtux_get_null_thrdid,
    _trvtux_unlock_global,
    _trvtux_lock_global,
    _trvtux_create_null_mutex,
    _trvtux_delete_null_mutex,
    _trvtux_release_null_mutex,
    _trvtux_take_null_mutex,
    _trvtux_create_null_event,
    _trvtux_delete_null_event,
    _trvtux_signal_null_event,
    _trvtux_waitfor_null_event,
    _trvtux_reset_null_event,
    _trvtux_cs_obj_insert,
    _trvtux_cs_obj_clear,
    _trvtux_cs_obj_get,
    _trvtux_xa_conn_init,
    _trvtux_xa_conn_free,
};
