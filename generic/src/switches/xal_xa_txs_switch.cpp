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
  static constexpr FlavourNames names =
      XAL_FLAVOUR_NAMES(trvtxs, "trvtxs_cs_obj_insert", "_trvtxs_cs_obj_get", "trv_txs_xa_open");
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

XAL_DEFINE_OBJECTS(trvtxs, Txs)

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

XAL_EXPORT_THREADS(trvtxs, Txs)
XAL_EXPORT_ENTRIES(trv_txs, Txs)

constexpr xa_switch_t tarvex_TXS_xa_switch = XAL_SWITCH_RECORD(trv_txs);

}  // extern "C"

constexpr XA_PERSONALITY trvxal_txs_personality = {
    XATM_TXS,
    txs_unread_flag,
    _trvtxs_get_thrdid,
    _trvtxs_unlock_global,
    _trvtxs_lock_global,
    _trvtxs_create_mutex,
    _trvtxs_delete_mutex,
    _trvtxs_release_mutex,
    _trvtxs_take_mutex,
    _trvtxs_create_event,
    _trvtxs_delete_event,
    _trvtxs_signal_event,
    _trvtxs_waitfor_event,
    _trvtxs_reset_event,
    _trvtxs_cs_obj_insert,
    _trvtxs_cs_obj_clear,
    _trvtxs_cs_obj_get,
    _trvtxs_xa_conn_init,
    _trvtxs_xa_conn_free,
};
