// Tests' hook and failure counter in front of every operation; state under one mutex of its own.
#include "operation.h"

#include <mutex>

namespace quillet {
namespace {

struct Interference {
  std::mutex mutex;
  QLT_CALL_HOOK hook = nullptr;
  void *argument = nullptr;
  int32_t calls = 0;
  int32_t failing = 0;  // the call to fail, 0 for none
  bool and_all_later = false;
};

Interference &interference() {
  static auto &instance = *new Interference;
  return instance;
}

}  // namespace

std::optional<int32_t> enter(const char *operation) {
  Interference &state = interference();
  QLT_CALL_HOOK hook = nullptr;
  void *argument = nullptr;
  bool failing = false;
  {
    const std::lock_guard<std::mutex> lock(state.mutex);
    ++state.calls;
    failing = state.failing > 0 && (state.and_all_later ? state.calls >= state.failing : state.calls == state.failing);
    hook = state.hook;
    argument = state.argument;
  }
  if (hook != nullptr) {
    if (const int32_t code = hook(operation, argument); code != QLT_HOOK_PROCEED) {
      return code;
    }
  }
  if (failing) {
    return CS_FAIL;
  }
  return std::nullopt;
}

}  // namespace quillet

void qlt_set_call_hook(QLT_CALL_HOOK hook, void *argument) {
  quillet::Interference &state = quillet::interference();
  const std::lock_guard<std::mutex> lock(state.mutex);
  state.hook = hook;
  state.argument = argument;
}

void qlt_fail_call(int32_t nth, int32_t and_all_later) {
  quillet::Interference &state = quillet::interference();
  const std::lock_guard<std::mutex> lock(state.mutex);
  state.calls = 0;
  state.failing = nth;
  state.and_all_later = and_all_later != 0;
}

int32_t qlt_calls_made(void) {
  quillet::Interference &state = quillet::interference();
  const std::lock_guard<std::mutex> lock(state.mutex);
  return state.calls;
}
