// The personality record: which thread and lock services, which client-object registry and which behavioural variants
// belong to a transaction manager's flavour. Generic code asks the active record's fields and operations; where a
// flavour's rules differ in a verb's own steps, it asks for tm_type.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "quillet.h"

struct xa_connection;

// A thread's identity as the active flavour sees it. tid_len is 1 to 16, or QLT_UNUSED when threads are not told apart.
struct XA_THRDID {
  int32_t tid_tag;  // compared first
  int32_t tid_len;
  unsigned char tid_bytes[16];
};

// TM types.
inline constexpr int32_t XATM_NONE = -1;
inline constexpr int32_t XATM_TUX = 1;
inline constexpr int32_t XATM_TXS = 2;
inline constexpr int32_t XATM_MTS = 10;

// Behaviour bits of tm_flags.
inline constexpr uint32_t XAPF_LOOKUP_KEY = 0x002;    // the open string must carry a lookup key (-K)
inline constexpr uint32_t XAPF_FORCE_ATTACH = 0x004;  // completing requests attach the branch themselves
inline constexpr uint32_t XAPF_CLOSE_ENDS = 0x008;    // xa_close and xa_start end leftover branches with TMSUCCESS
inline constexpr uint32_t XAPF_CFG_OPTIONAL = 0x100;  // no configuration file is needed

extern "C" {
struct xa_personality {
  int32_t tm_type;
  uint32_t tm_flags;
  int32_t (*get_thrdid)(XA_THRDID *identity);
  int32_t (*unlock_global)();
  int32_t (*lock_global)();
  int32_t (*create_mutex)();
  int32_t (*delete_mutex)(int32_t handle);
  int32_t (*release_mutex)(int32_t handle);
  int32_t (*take_mutex)(int32_t handle);
  int32_t (*create_event)();
  int32_t (*delete_event)(int32_t handle);
  int32_t (*signal_event)(int32_t handle);
  int32_t (*waitfor_event)(int32_t handle);
  int32_t (*reset_event)(int32_t handle);
  int32_t (*cs_obj_insert)(xa_connection *conn);
  int32_t (*cs_obj_clear)(xa_connection *conn);
  int32_t (*cs_obj_get)();
  int32_t (*xa_conn_init)(xa_connection *conn);
  int32_t (*xa_conn_free)(xa_connection *conn);
};
}
using XA_PERSONALITY = xa_personality;
static_assert(__builtin_offsetof(XA_PERSONALITY, get_thrdid) == 8);
static_assert(sizeof(XA_PERSONALITY) == 8 + 17 * sizeof(void *));

extern const XA_PERSONALITY trvxal_nil_personality;
extern const XA_PERSONALITY trvxal_mts_personality;
extern const XA_PERSONALITY trvxal_tux_threaded_personality;
extern const XA_PERSONALITY trvxal_tux_nonthreaded_personality;
extern const XA_PERSONALITY trvxal_txs_personality;

// The active personality; written by xa_open under the global lock, read anywhere.
extern std::atomic<const XA_PERSONALITY *> trvxal_tm_personality;

// The global lock: guards the start-up states, the creation of mutexes and the selection of the personality.
extern pthread_mutex_t _trv_xa_global_mutex;

// The serialisation mutex that orders all XA calls of all flavours; written under the global lock.
extern std::atomic<int32_t> _xa_txs_serialize;

// Start-up state of a flavour, guarded by the global lock.
inline constexpr int32_t XAST_NONE = -1;    // no first xa_open yet, or the last one failed
inline constexpr int32_t XAST_OPENING = 0;  // the first xa_open runs; its thread holds the initialisation mutex
inline constexpr int32_t XAST_READY = 1;
extern int32_t _xa_mts_init_state;
extern int32_t _xa_tux_init_state;
extern int32_t _xa_txs_init_state;

// The personality in force for the calling thread's present call.
inline const XA_PERSONALITY &active_personality() {
  return *trvxal_tm_personality.load(std::memory_order_acquire);
}

inline bool personality_has(uint32_t flag) {
  return (active_personality().tm_flags & flag) != 0;
}

// DTM mode sent with the begin request, by TM type; the row whose type is 0 ends the table.
struct TmTypeMode {
  int32_t tm_type;
  int32_t mode;
};
extern const TmTypeMode tm_type_to_mode[];

// Gives up the serialisation mutex for as long as the scope lives. The caller holds it; it is held again afterwards.
// After a pause, whatever this call does not hold is stale: look it up again.
class SerialisePause {
 public:
  SerialisePause() : personality_(active_personality()) { personality_.release_mutex(_xa_txs_serialize.load()); }
  ~SerialisePause() { personality_.take_mutex(_xa_txs_serialize.load()); }
  SerialisePause(const SerialisePause &) = delete;
  SerialisePause &operator=(const SerialisePause &) = delete;

 private:
  const XA_PERSONALITY &personality_;
};
