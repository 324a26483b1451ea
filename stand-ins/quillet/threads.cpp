// Mutexes, events and thread identities.
//
// A handle names a slot of a table that grows by chunks and never shrinks: its low half is the slot's place, its high
// half counts how often the slot has been used, so that a deleted handle is recognised. Finding a slot takes no lock.
// The mutexes are the system's error-checking ones: taking one twice or releasing another thread's fails.
#include "threads.h"

#include <pthread.h>
#include <time.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include "exports.h"
#include "operation.h"

namespace {

enum class Kind : uint8_t { none, mutex, event };

struct Slot {
  std::atomic<int32_t> handle{0};  // 0: free
  Kind kind = Kind::none;
  int32_t uses = 0;
  pthread_mutex_t mutex;
  pthread_cond_t condition;
  bool signalled = false;           // guarded by mutex
  std::atomic<uint64_t> holder{0};  // the number of the thread that holds it
};

constexpr int32_t chunk_size = 256;
constexpr int32_t chunk_count = 256;
constexpr int32_t place_bits = 16;
constexpr int32_t uses_mask = 0x7fff;

struct SlotTable {
  std::array<std::atomic<Slot *>, chunk_count> chunks{};
  std::mutex mutex;  // guards what follows
  std::vector<int32_t> free_places;
  int32_t next_place = 1;
};

SlotTable &table() {
  static auto &instance = *new SlotTable;
  return instance;
}

std::atomic<int32_t> mutexes_held{0};
std::atomic<uint64_t> last_thread{0};
std::atomic<int32_t> identity_length{8};

uint64_t thread_number() {
  thread_local const uint64_t number = ++last_thread;
  return number;
}

Slot *slot_at(int32_t place) {
  Slot *chunk = table().chunks[static_cast<std::size_t>(place / chunk_size)].load(std::memory_order_acquire);
  return chunk == nullptr ? nullptr : chunk + place % chunk_size;
}

Slot *find_slot(int32_t handle, Kind kind) {
  if (handle <= 0) {
    return nullptr;
  }
  Slot *slot = slot_at(handle & ((1 << place_bits) - 1));
  if (slot == nullptr || slot->handle.load(std::memory_order_acquire) != handle || slot->kind != kind) {
    return nullptr;
  }
  return slot;
}

// A free place, its chunk made; 0 when the table is full. The caller holds the table's mutex.
int32_t free_place(SlotTable &slots) {
  if (!slots.free_places.empty()) {
    const int32_t place = slots.free_places.back();
    slots.free_places.pop_back();
    return place;
  }
  if (slots.next_place == chunk_size * chunk_count) {
    return 0;
  }
  const int32_t place = slots.next_place++;
  auto &chunk = slots.chunks[static_cast<std::size_t>(place / chunk_size)];
  if (chunk.load(std::memory_order_relaxed) == nullptr) {
    chunk.store(new Slot[chunk_size], std::memory_order_release);
  }
  return place;
}

void start_slot(Slot &slot, Kind kind) {
  pthread_mutexattr_t mutex_kind;
  pthread_mutexattr_init(&mutex_kind);
  pthread_mutexattr_settype(&mutex_kind, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_init(&slot.mutex, &mutex_kind);
  pthread_mutexattr_destroy(&mutex_kind);
  if (kind == Kind::event) {
    pthread_condattr_t clock;
    pthread_condattr_init(&clock);
    pthread_condattr_setclock(&clock, CLOCK_MONOTONIC);
    pthread_cond_init(&slot.condition, &clock);
    pthread_condattr_destroy(&clock);
  }
  slot.kind = kind;
  slot.signalled = false;
  slot.holder.store(0);
}

int32_t create(int32_t *handle, Kind kind) {
  return quillet::guarded([&]() -> int32_t {
    if (handle == nullptr) {
      return CS_FAIL;
    }
    SlotTable &slots = table();
    const std::lock_guard<std::mutex> lock(slots.mutex);
    const int32_t place = free_place(slots);
    if (place == 0) {
      return CS_ERESOURC;
    }
    Slot &slot = *slot_at(place);
    start_slot(slot, kind);
    slot.uses = (slot.uses + 1) & uses_mask;
    *handle = slot.uses << place_bits | place;
    slot.handle.store(*handle, std::memory_order_release);
    return CS_SUCCEED;
  });
}

int32_t remove(int32_t handle, Kind kind) {
  return quillet::guarded([&]() -> int32_t {
    SlotTable &slots = table();
    const std::lock_guard<std::mutex> lock(slots.mutex);
    Slot *slot = find_slot(handle, kind);
    if (slot == nullptr || slot->holder.load() != 0) {
      return CS_FAIL;
    }
    slots.free_places.push_back(handle & ((1 << place_bits) - 1));
    slot->handle.store(0, std::memory_order_release);
    if (kind == Kind::event) {
      pthread_cond_destroy(&slot->condition);
    }
    pthread_mutex_destroy(&slot->mutex);
    return CS_SUCCEED;
  });
}

int32_t create_mutex(int32_t *handle) {
  return create(handle, Kind::mutex);
}
int32_t delete_mutex(int32_t handle) {
  return remove(handle, Kind::mutex);
}
int32_t create_event(int32_t *handle) {
  return create(handle, Kind::event);
}
int32_t delete_event(int32_t handle) {
  return remove(handle, Kind::event);
}

int32_t take_mutex(int32_t handle) {
  Slot *slot = find_slot(handle, Kind::mutex);
  if (slot == nullptr) {
    return CS_FAIL;
  }
  // A free mutex is taken without a wait, so that taking one that nobody else can know yet orders it behind no other.
  if (pthread_mutex_trylock(&slot->mutex) != 0 && pthread_mutex_lock(&slot->mutex) != 0) {
    return CS_FAIL;
  }
  slot->holder.store(thread_number(), std::memory_order_relaxed);
  mutexes_held.fetch_add(1, std::memory_order_relaxed);
  return CS_SUCCEED;
}

int32_t release_mutex(int32_t handle) {
  Slot *slot = find_slot(handle, Kind::mutex);
  if (slot == nullptr || slot->holder.load(std::memory_order_relaxed) != thread_number()) {
    return CS_FAIL;
  }
  slot->holder.store(0, std::memory_order_relaxed);
  mutexes_held.fetch_sub(1, std::memory_order_relaxed);
  return pthread_mutex_unlock(&slot->mutex) == 0 ? CS_SUCCEED : CS_FAIL;
}

int32_t change_event(int32_t handle, bool signalled) {
  Slot *slot = find_slot(handle, Kind::event);
  if (slot == nullptr || pthread_mutex_lock(&slot->mutex) != 0) {
    return CS_FAIL;
  }
  slot->signalled = signalled;
  if (signalled) {
    pthread_cond_broadcast(&slot->condition);
  }
  pthread_mutex_unlock(&slot->mutex);
  return CS_SUCCEED;
}

int32_t signal_event(int32_t handle) {
  return change_event(handle, true);
}
int32_t reset_event(int32_t handle) {
  return change_event(handle, false);
}

timespec milliseconds_from_now(int32_t milliseconds) {
  constexpr long nanoseconds_per_second = 1'000'000'000;
  timespec when{};
  clock_gettime(CLOCK_MONOTONIC, &when);
  when.tv_sec += milliseconds / 1000;
  when.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
  if (when.tv_nsec >= nanoseconds_per_second) {
    when.tv_nsec -= nanoseconds_per_second;
    ++when.tv_sec;
  }
  return when;
}

// Waits until the event is signalled, at most timeout milliseconds; a negative timeout waits without an end.
int32_t waitfor_event(int32_t handle, int32_t timeout) {
  Slot *slot = find_slot(handle, Kind::event);
  if (slot == nullptr) {
    return CS_FAIL;
  }
  const timespec end = milliseconds_from_now(timeout < 0 ? 0 : timeout);
  if (pthread_mutex_lock(&slot->mutex) != 0) {
    return CS_FAIL;
  }
  int error = 0;
  while (!slot->signalled && error == 0) {
    error = timeout < 0 ? pthread_cond_wait(&slot->condition, &slot->mutex)
                        : pthread_cond_timedwait(&slot->condition, &slot->mutex, &end);
  }
  const bool signalled = slot->signalled;
  pthread_mutex_unlock(&slot->mutex);
  if (signalled) {
    return CS_SUCCEED;
  }
  return error == ETIMEDOUT ? CS_TIMED_OUT : CS_FAIL;
}

// The thread's number, its most significant byte first, behind or cut off by as many bytes as asked for.
int32_t thread_identity(void *buffer, int32_t size, int32_t *length) {
  constexpr int32_t longest = 16;
  if (buffer == nullptr || length == nullptr) {
    return CS_FAIL;
  }
  const int32_t wanted = identity_length.load();
  *length = wanted;
  if (wanted < 1 || wanted > longest) {
    return CS_SUCCEED;
  }
  if (wanted > size) {
    return CS_FAIL;
  }
  auto *bytes = static_cast<unsigned char *>(buffer);
  uint64_t number = thread_number();
  for (int32_t place = wanted - 1; place >= 0; --place) {
    bytes[place] = static_cast<unsigned char>(number & 0xff);
    number >>= 8;
  }
  return CS_SUCCEED;
}

}  // namespace

QLT_THREAD_TABLE quillet::thread_table() {
  return {create_mutex, delete_mutex, take_mutex,  release_mutex, create_event,
          delete_event, signal_event, reset_event, waitfor_event, thread_identity};
}

void qlt_set_identity_length(int32_t length) {
  identity_length.store(length);
}

int32_t qlt_mutexes_held(void) {
  return mutexes_held.load();
}

int32_t qlt_mutex_held_here(int32_t handle) {
  const Slot *slot = find_slot(handle, Kind::mutex);
  return slot != nullptr && slot->holder.load() == thread_number() ? 1 : 0;
}
