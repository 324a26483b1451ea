// What is behind the entry functions of a flavour's switch record, one body for all flavours: the start-up that the
// first xa_open runs, and the serialisation mutex around every generic entry point.
//
// The start-up states, the creation of mutexes and the selection of the personality are guarded by the global lock. A
// mutex is made once and kept, whatever becomes of the start-up that made it: the client library has only so many, and
// a transaction manager may repeat an open that fails for as long as it lives.
#pragma once

#include <cstring>

#include "base/xal_xid.h"
#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "switches/xal_flavour_threads.h"
#include "xadtm.h"

// Whether a start-up may make the serialisation mutex: there is none, and nobody goes without one, as TUX does on a
// client library without thread support. The caller holds the global lock.
inline bool serialise_mutex_is_missing() {
  return _xa_txs_serialize.load() == 0 && active_personality().tm_type == XATM_NONE &&
         _xa_mts_init_state != XAST_OPENING && _xa_tux_init_state != XAST_OPENING && _xa_txs_init_state != XAST_OPENING;
}

inline void store_thread_table(QLT_THREAD_TABLE &table, const QLT_THREAD_TABLE &fetched) {
  if (memcmp(&table, &fetched, sizeof table) != 0) {
    table = fetched;
  }
}

// Holds the global lock.
class GlobalLock {
 public:
  GlobalLock() { pthread_mutex_lock(&_trv_xa_global_mutex); }
  ~GlobalLock() { pthread_mutex_unlock(&_trv_xa_global_mutex); }
  GlobalLock(const GlobalLock &) = delete;
  GlobalLock &operator=(const GlobalLock &) = delete;
};

template <typename Flavour>
class FlavourStart {
 public:
  // What the start-up settled for the call that ran it or waited for it.
  struct Outcome {
    int32_t code;  // XA_OK: go on with xa_open
    bool initialiser;
    const XA_PERSONALITY *own;
    int32_t serialise;
  };

  static Outcome run(const TraceScope &trace) {
    pthread_mutex_lock(&_trv_xa_global_mutex);
    while (Flavour::init_state() == XAST_OPENING) {
      wait_for_first_open();
    }
    Outcome outcome{XA_OK, false, nullptr, 0};
    if (Flavour::init_state() == XAST_NONE) {
      outcome.code = initialise(trace);
      outcome.initialiser = outcome.code == XA_OK;
    }
    outcome.own = &Flavour::personality();
    outcome.serialise = _xa_txs_serialize.load();
    pthread_mutex_unlock(&_trv_xa_global_mutex);
    return outcome;
  }

  static void finish(const Outcome &outcome, int32_t opened) {
    outcome.own->release_mutex(Flavour::init_mutex());
    const GlobalLock lock;
    Flavour::init_state() = opened == XA_OK ? XAST_READY : XAST_NONE;
  }

 private:
  // Entered and left with the global lock held; blocks on the initialisation mutex without it.
  static void wait_for_first_open() {
    const XA_PERSONALITY &own = Flavour::personality();
    const int32_t mutex = Flavour::init_mutex();
    pthread_mutex_unlock(&_trv_xa_global_mutex);
    own.take_mutex(mutex);
    own.release_mutex(mutex);
    pthread_mutex_lock(&_trv_xa_global_mutex);
  }

  // A repeated start-up of the active flavour keeps the thread table and record that other threads may be using. One
  // of a flavour that failed before may meet threads that still wait by way of its table: it is written only when the
  // client library's has really changed.
  static int32_t initialise(const TraceScope &trace) {
    CS_CONTEXT *context = nullptr;
    if (cs_ctx_global(QLT_VERSION, &context) != CS_SUCCEED) {
      trace.error()("unable to get CS_CONTEXT");
      return XAER_RMFAIL;
    }
    QLT_THREAD_TABLE table{};
    if (cs_config(context, CS_GET, QLT_PROP_THREAD_TABLE, &table, QLT_UNUSED, nullptr) != CS_SUCCEED) {
      Flavour::report_no_threads(trace);
      return XAER_RMFAIL;
    }
    if (active_personality().tm_type != Flavour::personality().tm_type) {
      store_thread_table(Flavour::threads(), table);
      Flavour::choose_personality();
    }
    return create_mutexes(trace);
  }

  static int32_t create_mutexes(const TraceScope &trace) {
    const XA_PERSONALITY &own = Flavour::personality();
    if (Flavour::init_mutex() == 0) {
      Flavour::init_mutex() = own.create_mutex();
    }
    if (Flavour::init_mutex() == 0 && Flavour::has_threads()) {
      // This spelling, and the one below, stays: operators and scripts search for it.
      trace.error()("unable to creat initialization mutex");
      return XAER_RMFAIL;
    }
    if (serialise_mutex_is_missing()) {
      _xa_txs_serialize.store(own.create_mutex());
      if (_xa_txs_serialize.load() == 0 && Flavour::has_threads()) {
        trace.error()("unable to creat serialization mutex");
        return XAER_RMFAIL;
      }
    }
    own.take_mutex(Flavour::init_mutex());
    Flavour::init_state() = XAST_OPENING;
    return XA_OK;
  }
};

template <typename Flavour>
int32_t flavour_open(const char *info, int32_t rmid, int32_t flags) {
  const TraceScope trace(Flavour::names.xa_open, Flavour::open_trace);
  const auto start = FlavourStart<Flavour>::run(trace);
  if (start.code != XA_OK) {
    return trace.xa(start.code);
  }
  start.own->take_mutex(start.serialise);
  const int32_t opened = xa_open(info, rmid, flags, start.own);
  xc_assert_settled(rmid);
  start.own->release_mutex(start.serialise);
  if (start.initialiser) {
    FlavourStart<Flavour>::finish(start, opened);
  }
  return trace.xa(opened);
}

// Holds the serialisation mutex through the personality that is active at its construction. Not entered while none is,
// nor when the first xa_open, under whose configuration the call waited for the mutex, failed meanwhile.
class SerialisedCall {
 public:
  SerialisedCall() : personality_(active_personality()), mutex_(_xa_txs_serialize.load()) {
    if (personality_.take_mutex == nullptr) {
      return;
    }
    personality_.take_mutex(mutex_);
    entered_ = &active_personality() == &personality_;
    if (!entered_) {
      personality_.release_mutex(mutex_);
    }
  }
  ~SerialisedCall() {
    if (entered_) {
      personality_.release_mutex(mutex_);
    }
  }
  SerialisedCall(const SerialisedCall &) = delete;
  SerialisedCall &operator=(const SerialisedCall &) = delete;

  bool entered() const { return entered_; }
  const XA_PERSONALITY &personality() const { return personality_; }

 private:
  const XA_PERSONALITY &personality_;
  const int32_t mutex_;
  bool entered_ = false;
};

template <typename Flavour, auto Verb>
int32_t flavour_branch_verb(const XID *xid, int32_t rmid, int32_t flags) {
  const SerialisedCall call;
  if (!call.entered()) {
    return XAER_PROTO;
  }
  int32_t ret;
  if constexpr (Flavour::copies_xid) {
    XID copy{};
    if (xid != nullptr) {
      xid_copy(copy, *xid);
    }
    ret = Verb(xid != nullptr ? &copy : nullptr, rmid, flags);
  } else {
    ret = Verb(xid, rmid, flags);
  }
  xc_assert_settled(rmid);
  return ret;
}

inline int32_t serialised_close(const char *info, int32_t rmid, int32_t flags) {
  const SerialisedCall call;
  if (!call.entered()) {
    return XAER_PROTO;
  }
  const int32_t ret = xa_close(info, rmid, flags);
  xc_assert_settled(rmid);
  return ret;
}

inline int32_t serialised_recover(XID *xids, int32_t count, int32_t rmid, int32_t flags) {
  const SerialisedCall call;
  if (!call.entered()) {
    return XAER_PROTO;
  }
  const int32_t ret = xa_recover(xids, count, rmid, flags);
  xc_assert_settled(rmid);
  return ret;
}

inline int32_t serialised_complete(int32_t *handle, int32_t *result, int32_t rmid, int32_t flags) {
  const SerialisedCall call;
  return call.entered() ? xa_complete(handle, result, rmid, flags) : XAER_PROTO;
}
