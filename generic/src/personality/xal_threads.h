// The thread, lock and null operations that fill the personality records (exported), the placeholder mutexes of the
// records and lists, and the library's clock.
#pragma once

#include <cstdint>

#include "personality/xal_personality.h"

#pragma GCC visibility push(default)  // exported
extern "C" {
// One family per flavour, on the thread table that the flavour's start-up fetched. Mutex and event operations pass the
// client library's code through; the creating ones return the handle, 0 on failure.
int32_t _trvmts_get_thrdid(XA_THRDID *identity);
int32_t _trvmts_unlock_global();
int32_t _trvmts_lock_global();
int32_t _trvmts_create_mutex();
int32_t _trvmts_delete_mutex(int32_t handle);
int32_t _trvmts_release_mutex(int32_t handle);
int32_t _trvmts_take_mutex(int32_t handle);
int32_t _trvmts_create_event();
int32_t _trvmts_delete_event(int32_t handle);
int32_t _trvmts_signal_event(int32_t handle);
int32_t _trvmts_waitfor_event(int32_t handle);
int32_t _trvmts_reset_event(int32_t handle);

int32_t _trvtux_get_null_thrdid(XA_THRDID *identity);
int32_t _trvtux_unlock_global();
int32_t _trvtux_lock_global();
int32_t _trvtux_create_mutex();
int32_t _trvtux_delete_mutex(int32_t handle);
int32_t _trvtux_release_mutex(int32_t handle);
int32_t _trvtux_take_mutex(int32_t handle);
int32_t _trvtux_create_event();
int32_t _trvtux_delete_event(int32_t handle);
int32_t _trvtux_signal_event(int32_t handle);
int32_t _trvtux_waitfor_event(int32_t handle);
int32_t _trvtux_reset_event(int32_t handle);

// TUX on a client library without thread support: they do nothing and succeed; no handle is ever made.
int32_t _trvtux_create_null_mutex();
int32_t _trvtux_delete_null_mutex(int32_t handle);
int32_t _trvtux_release_null_mutex(int32_t handle);
int32_t _trvtux_take_null_mutex(int32_t handle);
int32_t _trvtux_create_null_event();
int32_t _trvtux_delete_null_event(int32_t handle);
int32_t _trvtux_signal_null_event(int32_t handle);
int32_t _trvtux_waitfor_null_event(int32_t handle);
int32_t _trvtux_reset_null_event(int32_t handle);

int32_t _trvtxs_get_thrdid(XA_THRDID *identity);
int32_t _trvtxs_unlock_global();
int32_t _trvtxs_lock_global();
int32_t _trvtxs_create_mutex();
int32_t _trvtxs_delete_mutex(int32_t handle);
int32_t _trvtxs_release_mutex(int32_t handle);
int32_t _trvtxs_take_mutex(int32_t handle);
int32_t _trvtxs_create_event();
int32_t _trvtxs_delete_event(int32_t handle);
int32_t _trvtxs_signal_event(int32_t handle);
int32_t _trvtxs_waitfor_event(int32_t handle);
int32_t _trvtxs_reset_event(int32_t handle);
}
#pragma GCC visibility pop

// Placeholder mutexes: every record and list carries a handle, -1, whose operations never block. What excludes threads
// from one another is the serialisation mutex. Taking, releasing and deleting return 1, or 0 for a bad handle.
inline constexpr int32_t XAL_PLACEHOLDER = -1;
int32_t xal_bad_mutex(const char *function, int32_t line = __builtin_LINE());
inline int32_t _trvxadummy_create_mutex() {
  return XAL_PLACEHOLDER;
}
inline int32_t _trvxadummy_take_mutex(int32_t handle) {
  return handle == XAL_PLACEHOLDER ? 1 : xal_bad_mutex("_trvxadummy_take_mutex");
}
inline int32_t _trvxadummy_release_mutex(int32_t handle) {
  return handle == XAL_PLACEHOLDER ? 1 : xal_bad_mutex("_trvxadummy_release_mutex");
}
inline int32_t _trvxadummy_delete_mutex(int32_t handle) {
  return handle == XAL_PLACEHOLDER ? 1 : xal_bad_mutex("_trvxadummy_delete_mutex");
}

// Sleeps for whole seconds. A pointer, so that tests can let the time pass without waiting.
using SleepOperation = void (*)(uint32_t seconds);
extern SleepOperation xal_sleep;
