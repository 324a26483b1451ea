// The client library's context: set up with the first open that comes so far, used by every connection, never released.
// Runs under the serialisation mutex.
#include "connections/xal_context.h"

#include "config/xal_settings.h"
#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "quillet.h"

constinit CS_CONTEXT *xl_context = nullptr;

namespace {

constexpr int32_t version_size = 1024;

void log_version(const TraceScope &trace) {
  char text[version_size] = "";
  int32_t length = 0;
  if (ct_config(xl_context, CS_GET, QLT_PROP_VERSION_TEXT, text, version_size - 1, &length) != CS_SUCCEED) {
    trace.note()("Unable to get Quillet version string");
    return;
  }
  text[length < 0 ? 0 : (length >= version_size ? version_size - 1 : length)] = '\0';
  trace.message()("Quillet %s", text);
}

bool apply_context_settings(const XA_SETTING *settings) {
  return xc_set_values(nullptr, dtm_set_list, XS_CTX | XS_DEFAULT) == 1 &&
         xc_set_values(nullptr, settings, XS_CTX | XS_USER) == 1 &&
         xc_set_values(nullptr, dtm_set_list, XS_CTX | XS_FORCED) == 1;
}

}  // namespace

int32_t xl_init(const XA_SETTING *settings) {
  const TraceScope trace("xl_init", TRACE_RM);
  CS_CONTEXT *context = nullptr;
  if (cs_ctx_global(QLT_VERSION, &context) != CS_SUCCEED) {
    trace.error()("Failed to get the global context!");
    return trace.cs(CS_FAIL);
  }
  trace.event()("Initializing");
  if (ct_init(context, QLT_VERSION) != CS_SUCCEED) {
    trace.error()("ct_init() failed!");
    return trace.cs(CS_FAIL);
  }
  xl_context = context;
  log_version(trace);
  if (cs_diag(xl_context, CS_INIT, QLT_UNUSED, QLT_UNUSED, nullptr) != CS_SUCCEED) {
    trace.error()("cs_diag(CS_INIT) failed!");
    return trace.cs(CS_FAIL);
  }
  if (!apply_context_settings(settings)) {
    return trace.cs(CS_FAIL);
  }
  return trace.cs(CS_SUCCEED);
}
