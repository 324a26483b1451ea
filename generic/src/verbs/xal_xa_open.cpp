// xa_open: opens a resource manager for the calling thread identity. The first one in the process installs its
// flavour's personality, reads the configuration and sets up the client-library context.
//
// Runs under the serialisation mutex; the installation and the flavour check are bracketed by the given personality's
// global lock as well.
#include "config/xal_config.h"
#include "config/xal_settings.h"
#include "connections/xal_conn.h"
#include "connections/xal_context.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"
#include "verbs/xal_verbs.h"

namespace {

constexpr int32_t validflags[] = {TMNOFLAGS, -1};
constexpr int32_t context_rows = 9;

// Holds the given personality's global lock.
class GlobalLockScope {
 public:
  explicit GlobalLockScope(const XA_PERSONALITY &personality) : personality_(personality) {
    personality_.lock_global();
  }
  ~GlobalLockScope() { personality_.unlock_global(); }
  GlobalLockScope(const GlobalLockScope &) = delete;
  GlobalLockScope &operator=(const GlobalLockScope &) = delete;

 private:
  const XA_PERSONALITY &personality_;
};

// The configured context settings, kept from the configuration until the context is made. Guarded by the global lock.
constinit XA_SETTING context_settings[context_rows + 1] = {};

// Makes the personality the active one and configures the process; on failure none is active again.
int32_t install(const char *info, const XA_PERSONALITY &personality) {
  trvxal_tm_personality.store(&personality, std::memory_order_release);
  context_settings[context_rows].xs_flags = XS_END;
  xacmn_clean_val(context_settings, 1);
  if (xal_configure(info, context_settings) == 0) {
    xacmn_clean_val(context_settings, 0);
    trvxal_tm_personality.store(&trvxal_nil_personality, std::memory_order_release);
    return XAER_INVAL;
  }
  return XA_OK;
}

// Sets the context up; one that cannot be had shows at the first connection, and the next open tries again.
void make_context() {
  static_cast<void>(xl_init(context_settings));
  if (xl_context != nullptr) {
    xacmn_clean_val(context_settings, 0);
  }
}

// Installs the personality when none is, and refuses it when another flavour's is.
int32_t select_personality(const TraceScope &trace, const char *info, const XA_PERSONALITY &personality) {
  const GlobalLockScope lock(personality);
  if (active_personality().tm_type == XATM_NONE) {
    const int32_t installed = install(info, personality);
    if (installed != XA_OK) {
      return installed;
    }
  }
  const int32_t active_type = active_personality().tm_type;
  if (active_type != personality.tm_type) {
    trace.error()("Only one type of Transaction Manager can be used");
    trace.message()("Previous TM type %d, new TM type %d\n", active_type, personality.tm_type);
    return XAER_INVAL;
  }
  if (xl_context == nullptr) {
    make_context();
  }
  return XA_OK;
}

// Whether the resource manager is open. While another thread makes its first connection that is not decided yet, since
// it is removed again when the connection fails; so that is waited for.
bool already_open(int32_t rmid) {
  for (;;) {
    const XA_LRMINFO *lrm = xal_getlrm(rmid);
    if (lrm == nullptr) {
      return false;
    }
    const bool undecided = lrm->lrm_opens > 0 && lrm->lrm_conns.xc_next == &lrm->lrm_conns;
    _trvxadummy_release_mutex(lrm->lrm_mutex);
    if (!undecided) {
      return true;
    }
    xc_wait_briefly();
  }
}

// Makes the first connection of a new resource manager, which is removed again when that fails.
int32_t first_connection(int32_t rmid, XA_LRMINFO *lrm) {
  XA_CONNECTION *conn = nullptr;
  const int32_t ret = xc_open(lrm, &conn);
  if (ret != XA_OK) {
    _trvxadummy_release_mutex(lrm->lrm_mutex);
    // It stays only while another thread is making a connection of its own for it.
    static_cast<void>(xal_freelrm(rmid));
    return ret == XAER_RMFAIL ? XAER_RMERR : ret;
  }
  conn->xc_state = XCS_UNUSED;
  xc_release(conn);
  return XA_OK;
}

}  // namespace

extern "C" int32_t xa_open(const char *info, int32_t rmid, int32_t flags, const XA_PERSONALITY *personality) {
  const VerbScope scope("xa_open", EntryLine::info(rmid, flags, info));
  if (!flags_accepted(validflags, flags)) {
    return scope.traced(XAER_INVAL);
  }
  if (personality == nullptr || personality->lock_global == nullptr) {
    return scope.reported(XAER_INVAL);
  }
  const int32_t selected = select_personality(scope.trace(), info, *personality);
  if (selected != XA_OK) {
    return scope.reported(selected);
  }
  if (info == nullptr) {
    return scope.reported(XAER_INVAL);
  }
  const bool was_open = already_open(rmid);
  XA_LRMINFO *lrm = xal_addlrm(rmid, info);
  if (lrm == nullptr) {
    return scope.reported(XAER_RMERR);
  }
  if (was_open) {
    _trvxadummy_release_mutex(lrm->lrm_mutex);
    return scope.traced(XA_OK);
  }
  return scope.reported(first_connection(rmid, lrm));
}
