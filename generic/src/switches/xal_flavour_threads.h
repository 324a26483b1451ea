// The thread and lock services of a flavour, one body for all flavours: each operation calls the primitive of the same
// job in the flavour's thread table and traces under the flavour's own names. The switch files instantiate them.
//
// A flavour is a type with: names (FlavourNames), threads() (its thread table, filled at start-up).
#pragma once

#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"

// Names under which a flavour's operations write their log lines.
struct FlavourNames {
  const char *lock_global;
  const char *unlock_global;
  const char *create_mutex;
  const char *delete_mutex;
  const char *take_mutex;
  const char *release_mutex;
  const char *create_event;
  const char *delete_event;
  const char *signal_event;
  const char *waitfor_event;
  const char *reset_event;
  const char *obj_insert;
  const char *obj_clear;
  const char *obj_get;
  const char *conn_init;
  const char *conn_free;
  const char *xa_open;
};

inline constexpr int32_t event_timeout = 1000;  // in the client library's unit

template <typename Flavour>
struct FlavourThreads {
  static constexpr const FlavourNames &names = Flavour::names;

  static int32_t lock_global() {
    const TraceScope trace(names.lock_global, TRACE_MISC);
    pthread_mutex_lock(&_trv_xa_global_mutex);
    return trace.cs(CS_SUCCEED);
  }
  static int32_t unlock_global() {
    const TraceScope trace(names.unlock_global, TRACE_MISC);
    pthread_mutex_unlock(&_trv_xa_global_mutex);
    return trace.cs(CS_SUCCEED);
  }

  static int32_t create_mutex() {
    return create(names.create_mutex, Flavour::threads().create_mutex, "unable to create mutex");
  }
  static int32_t delete_mutex(int32_t handle) {
    return operate(names.delete_mutex, Flavour::threads().delete_mutex, handle);
  }
  static int32_t take_mutex(int32_t handle) { return operate(names.take_mutex, Flavour::threads().take_mutex, handle); }
  static int32_t release_mutex(int32_t handle) {
    return operate(names.release_mutex, Flavour::threads().release_mutex, handle);
  }

  static int32_t create_event() {
    return create(names.create_event, Flavour::threads().create_event, "unable to create event");
  }
  static int32_t delete_event(int32_t handle) {
    return operate(names.delete_event, Flavour::threads().delete_event, handle);
  }
  static int32_t signal_event(int32_t handle) {
    return operate(names.signal_event, Flavour::threads().signal_event, handle);
  }
  static int32_t reset_event(int32_t handle) {
    return operate(names.reset_event, Flavour::threads().reset_event, handle);
  }
  static int32_t waitfor_event(int32_t handle) {
    const TraceScope trace(names.waitfor_event, TRACE_MISC);
    const auto wait = Flavour::threads().waitfor_event;
    return trace.cs(wait != nullptr ? wait(handle, event_timeout) : CS_FAIL);
  }

 private:
  static int32_t create(const char *name, int32_t (*primitive)(int32_t *), const char *failure) {
    const TraceScope trace(name, TRACE_MISC);
    int32_t handle = 0;
    if (primitive == nullptr || primitive(&handle) != CS_SUCCEED) {
      trace.error()("%s", failure);
      handle = 0;
    }
    return trace.hex(handle);
  }
  // A client library without thread support hands out empty primitives; they fail instead of being called. Every
  // request to the server passes here several times: with the traced call inlined as well, the branch cycle takes 350
  // instructions more.
  static int32_t operate(const char *name, int32_t (*primitive)(int32_t), int32_t handle) {
    if (primitive != nullptr && !tracing(XATR_MISC)) {
      return primitive(handle);
    }
    return operate_traced(name, primitive, handle);
  }
  [[gnu::noinline]] static int32_t operate_traced(const char *name, int32_t (*primitive)(int32_t), int32_t handle) {
    const TraceScope trace(name, TRACE_MISC);
    return trace.cs(primitive != nullptr ? primitive(handle) : CS_FAIL);
  }
};

// The identity of flavours that do not tell threads apart.
inline int32_t shared_identity(XA_THRDID *identity) {
  if (identity == nullptr) {
    return 0;
  }
  identity->tid_tag = 0;
  identity->tid_len = QLT_UNUSED;
  identity->tid_bytes[0] = 0;
  return 1;
}
