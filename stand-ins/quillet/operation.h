// The way into every operation of quillet.h: tests' hook and failure counter first, then the body, and
// no exception out.
#pragma once

#include <exception>
#include <new>
#include <optional>

#include "exports.h"

namespace quillet {

// The code that the hook or the failure counter forces on this call, none when it may go on.
std::optional<int32_t> enter(const char *operation);

template <typename Body>
int32_t guarded(Body body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc &) {
    return CS_MEM_ERROR;
  } catch (const std::exception &) {
    return CS_FAIL;
  }
}

template <typename Body>
int32_t operation(const char *name, Body body) noexcept {
  return guarded([&] {
    if (const auto forced = enter(name)) {
      return *forced;
    }
    return body();
  });
}

// An operation that gives a handle back does so even when a failure is forced on it, so that nothing stays behind.
template <typename Body>
int32_t releasing_operation(const char *name, Body body) noexcept {
  return guarded([&] {
    const auto forced = enter(name);
    const int32_t code = body();
    return forced.value_or(code);
  });
}

}  // namespace quillet
