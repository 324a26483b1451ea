// The context: its making, properties, date items and diagnostics. There is one context in a process; it
// is never given back.
#include <string_view>

#include "handles.h"
#include "operation.h"
#include "threads.h"

namespace {

using quillet::operation;
using quillet::Reason;

constexpr std::string_view version_text = "client library 1.0 for the embedded zdb server";

// Stores the message for cs_diag when that has been asked for; the caller holds the context's mutex.
int32_t fail(CS_CONTEXT &context, Reason reason, std::string_view text) {
  if (context.diagnosed) {
    context.stored.client.push_back(quillet::client_message(reason, text));
  }
  return CS_FAIL;
}

int32_t hand_out_thread_table(const CS_CONTEXT &context, void *buffer, int32_t length, int32_t *outlen) {
  constexpr auto size = static_cast<int32_t>(sizeof(QLT_THREAD_TABLE));
  if (buffer == nullptr || (length != QLT_UNUSED && length < size)) {
    return CS_FAIL;
  }
  *static_cast<QLT_THREAD_TABLE *>(buffer) = context.threads ? quillet::thread_table() : QLT_THREAD_TABLE{};
  if (outlen != nullptr) {
    *outlen = size;
  }
  return CS_SUCCEED;
}

}  // namespace

int32_t cs_ctx_global(int32_t version, CS_CONTEXT **context) {
  return operation("cs_ctx_global", [&]() -> int32_t {
    if (context == nullptr || version != QLT_VERSION) {
      return CS_FAIL;
    }
    *context = &quillet::the_context();
    return CS_SUCCEED;
  });
}

int32_t ct_init(CS_CONTEXT *context, int32_t version) {
  return operation("ct_init", [&]() -> int32_t {
    if (!quillet::is_context(context)) {
      return CS_FAIL;
    }
    const std::lock_guard<std::mutex> lock(context->mutex);
    if (version != QLT_VERSION) {
      return fail(*context, Reason::bad_version, "ct_init: this library only has version 1100");
    }
    context->initialised = true;
    return CS_SUCCEED;
  });
}

int32_t cs_config(CS_CONTEXT *context, int32_t action, int32_t property, void *buffer, int32_t length,
                  int32_t *outlen) {
  return operation("cs_config", [&]() -> int32_t {
    if (!quillet::is_context(context)) {
      return CS_FAIL;
    }
    const std::lock_guard<std::mutex> lock(context->mutex);
    if (property != QLT_PROP_THREAD_TABLE || action != CS_GET) {
      return fail(*context, Reason::setting_refused, "cs_config: only the thread table can be read");
    }
    return hand_out_thread_table(*context, buffer, length, outlen);
  });
}

int32_t ct_config(CS_CONTEXT *context, int32_t action, int32_t property, void *buffer, int32_t length,
                  int32_t *outlen) {
  return operation("ct_config", [&]() -> int32_t {
    if (!quillet::is_context(context)) {
      return CS_FAIL;
    }
    const std::lock_guard<std::mutex> lock(context->mutex);
    if (property == QLT_PROP_VERSION_TEXT) {
      return action == CS_GET ? quillet::copy_text(std::string(version_text), buffer, length, outlen) : CS_FAIL;
    }
    const int32_t code = context->settings.access(action, property, buffer, length, outlen, false);
    return code == CS_SUCCEED ? code
                              : fail(*context, Reason::setting_refused,
                                     "ct_config: property " + std::to_string(property) + " or its value is not valid");
  });
}

int32_t cs_dt_info(CS_CONTEXT *context, int32_t action, void *locale, int32_t code, int32_t item, void *buffer,
                   int32_t length, int32_t *outlen) {
  return operation("cs_dt_info", [&]() -> int32_t {
    if (!quillet::is_context(context)) {
      return CS_FAIL;
    }
    const std::lock_guard<std::mutex> lock(context->mutex);
    if (locale != nullptr || item != QLT_UNUSED ||
        context->dates.access(action, code, buffer, length, outlen, false) != CS_SUCCEED) {
      return fail(*context, Reason::setting_refused,
                  "cs_dt_info: item " + std::to_string(code) + " or its value is not valid");
    }
    return CS_SUCCEED;
  });
}

int32_t cs_diag(CS_CONTEXT *context, int32_t operation_code, int32_t type, int32_t index, void *buffer) {
  return operation("cs_diag", [&]() -> int32_t {
    if (!quillet::is_context(context)) {
      return CS_FAIL;
    }
    const std::lock_guard<std::mutex> lock(context->mutex);
    if (operation_code == CS_INIT) {
      context->diagnosed = true;
      return CS_SUCCEED;
    }
    return context->diagnosed ? context->stored.access(operation_code, type, index, buffer) : CS_FAIL;
  });
}
