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
  static constexpr FlavourNames names =
      XAL_FLAVOUR_NAMES(trvmts, "trvmts_cs_obj_insert", "_trvmts_cs_obj_get", "trv_mts_xa_open");
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

XAL_DEFINE_OBJECTS(trvmts, Mts)

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

XAL_EXPORT_THREADS(trvmts, Mts)
XAL_EXPORT_ENTRIES(trv_mts, Mts)

constexpr xa_switch_t tarvex_MTS_xa_switch = XAL_SWITCH_RECORD(trv_mts);

int32_t TrvXA_GetStatementNr(int32_t rmid) {
  const TraceScope trace("TrvXA_GetStatementNr", TRACE_XA);
  const int32_t number = next_statement(rmid);
  return number > 0 ? trace.hex(number) : trace.xa(number);
}

}  // extern "C"

constexpr XA_PERSONALITY trvxal_mts_personality = {
    XATM_MTS,
    XAPF_CFG_OPTIONAL | XAPF_CLOSE_ENDS | XAPF_FORCE_ATTACH | XAPF_LOOKUP_KEY,
    _trvmts_get_thrdid,
    _trvmts_unlock_global,
    _trvmts_lock_global,
    _trvmts_create_mutex,
    _trvmts_delete_mutex,
    _trvmts_release_mutex,
    _trvmts_take_mutex,
    _trvmts_create_event,
    _trvmts_delete_event,
    _trvmts_signal_event,
    _trvmts_waitfor_event,
    _trvmts_reset_event,
    _trvmts_cs_obj_insert,
    _trvmts_cs_obj_clear,
    _trvmts_cs_obj_get,
    _trvmts_xa_conn_init,
    _trvmts_xa_conn_free,
};
static_assert(trvxal_mts_personality.tm_flags == 0x10E);
