// The memory of open resource managers. Whatever is read of a slot is read between two looks at its state.
#include "open_rms.h"

#include <cstring>

static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free);
static_assert(XADTM_LP64_INFO_SIZE % sizeof(uint64_t) == 0);

OpenString::OpenString(const char *info) {
  const size_t length = strnlen(info, sizeof text);
  const size_t copied = length < sizeof text ? length : 0;
  used = static_cast<uint32_t>(copied / sizeof(uint64_t)) + 1;
  memset(text + (used - 1) * sizeof(uint64_t), 0, sizeof(uint64_t));
  memcpy(text, info, copied);
}

OpenString::~OpenString() {
  explicit_bzero(text, used * sizeof(uint64_t));
}

void OpenString::become(const OpenString &other) {
  resize(other.used);
  memcpy(text, other.text, used * sizeof(uint64_t));
}

void OpenString::resize(uint32_t new_used) {
  if (used > new_used) {
    explicit_bzero(text + new_used * sizeof(uint64_t), (used - new_used) * sizeof(uint64_t));
  }
  used = new_used;
}

void OpenRms::remember(int32_t rmid, const OpenString &info) {
  if (!keep(rmid, info)) {
    was_full_.store(true);
  }
  forget_failure(rmid);
}

// False when there is no place.
bool OpenRms::keep(int32_t rmid, const OpenString &info) {
  for (;;) {
    const Ticket before = last_ticket_.load();
    // Another thread that writes the rmid down has opened it as well.
    if (renew(rmid, info) || is_being_written(rmid)) {
      return true;
    }
    const uint32_t slot = take(rmid);
    if (slot != none) {
      write(slot, rmid, info);
      publish(slot, rmid);
      return true;
    }
    if (is_being_written(rmid)) {
      return true;
    }
    if (last_ticket_.load() == before) {
      return false;
    }
  }
}

void OpenRms::note_failure(int32_t rmid) {
  any_failed_.store(true);
  if (has_failed(rmid)) {
    return;
  }
  for (std::atomic<uint64_t> &failure : failures_) {
    uint64_t expected = 0;
    if (failure.compare_exchange_strong(expected, failure_of(rmid))) {
      return;
    }
  }
  was_full_.store(true);
}

void OpenRms::forget_failure(int32_t rmid) {
  if (!any_failed_.load()) {
    return;
  }
  for (std::atomic<uint64_t> &failure : failures_) {
    uint64_t expected = failure_of(rmid);
    if (failure.load() == expected) {
      static_cast<void>(failure.compare_exchange_strong(expected, 0));
    }
  }
}

bool OpenRms::has_failed(int32_t rmid) const {
  if (!any_failed_.load()) {
    return false;
  }
  for (const std::atomic<uint64_t> &failure : failures_) {
    if (failure.load() == failure_of(rmid)) {
      return true;
    }
  }
  return false;
}

bool OpenRms::has_place(int32_t rmid) {
  for (const Slot &slot : slots_) {
    if (slot.state.load() == vacant) {
      return true;
    }
  }
  OpenString info;
  if (look_up(rmid, info) != Memory::nothing) {
    return true;
  }
  was_full_.store(true);
  return false;
}

Memory OpenRms::recall(int32_t rmid, OpenString &info) const {
  const Memory found = look_up(rmid, info);
  return found == Memory::nothing && (has_failed(rmid) || was_full_.load()) ? Memory::unusable : found;
}

OpenRms::Slots OpenRms::begin_close(int32_t rmid) {
  Slots slots = 0;
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    Slot &slot = slots_[i];
    State state = slot.state.load();
    // Of a slot that has another rmid by the time of the exchange, the state is another ticket.
    while (is_ticket(state) && slot.rmid.load(std::memory_order_acquire) == rmid) {
      if (slot.state.compare_exchange_strong(state, state | closing)) {
        slots |= Slots{1} << i;
        break;
      }
    }
  }
  return slots;
}

void OpenRms::end_close(int32_t rmid, Slots slots, bool closed) {
  for (uint32_t i = 0; slots != 0; ++i, slots >>= 1) {
    Slot &slot = slots_[i];
    State state = slot.state.load();
    if ((slots & 1) == 0) {
      continue;
    }
    const bool given_back =
        !closed && (state & dropped) == 0 && slot.state.compare_exchange_strong(state, state & ~closing);
    if (!given_back) {
      wipe(slot);
    }
  }
  if (closed) {
    drop(rmid);
  }
}

// What other threads are closing stays closed, whatever comes of theirs.
void OpenRms::drop(int32_t rmid) {
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    Slot &slot = slots_[i];
    State state = slot.state.load();
    // Of a slot that has another rmid by the time of the exchange, the state is another one.
    if (is_closing(state) && slot.rmid.load(std::memory_order_acquire) == rmid) {
      static_cast<void>(slot.state.compare_exchange_strong(state, state | dropped));
    }
  }
}

bool OpenRms::holds(const Slot &slot, const OpenString &info) {
  if (slot.used.load(std::memory_order_acquire) != info.used) {
    return false;
  }
  for (uint32_t word = 0; word < info.used; ++word) {
    const uint64_t bytes = slot.words[word].load(std::memory_order_acquire);
    if (memcmp(&bytes, info.text + word * sizeof bytes, sizeof bytes) != 0) {
      return false;
    }
  }
  return true;
}

void OpenRms::copy(const Slot &slot, OpenString &info) {
  info.resize(slot.used.load(std::memory_order_acquire));
  for (uint32_t word = 0; word < info.used; ++word) {
    const uint64_t bytes = slot.words[word].load(std::memory_order_acquire);
    memcpy(info.text + word * sizeof bytes, &bytes, sizeof bytes);
  }
}

// Makes a slot vacant that belongs to the caller. Open strings hold passwords.
void OpenRms::wipe(Slot &slot) {
  const uint32_t used = slot.used.load(std::memory_order_relaxed);
  for (uint32_t word = 0; word < used; ++word) {
    slot.words[word].store(0, std::memory_order_release);
  }
  slot.state.store(vacant);
}

// A published slot of this rmid that is wanted, and its ticket.
template <typename Wanted>
uint32_t OpenRms::find(int32_t rmid, const Wanted &wanted, State &state) const {
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    const Slot &slot = slots_[i];
    state = slot.state.load();
    while (is_ticket(state)) {
      const bool found = slot.rmid.load(std::memory_order_acquire) == rmid && wanted(slot);
      const State after = slot.state.load();
      if (after == state) {
        if (found) {
          return i;
        }
        break;
      }
      state = after;
    }
  }
  return none;
}

// Gives the rmid, when it is there with this string, a new ticket.
bool OpenRms::renew(int32_t rmid, const OpenString &info) {
  for (;;) {
    State state = vacant;
    const uint32_t slot = find(
        rmid, [&](const Slot &candidate) { return holds(candidate, info); }, state);
    if (slot == none) {
      return false;
    }
    if (slots_[slot].state.compare_exchange_strong(state, next_ticket())) {
      return true;
    }
  }
}

bool OpenRms::is_being_written(int32_t rmid) const {
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    if (slots_[i].state.load() == taken_for(rmid)) {
      return true;
    }
  }
  return false;
}

// A vacant slot, or one that the rmid has with another string; it belongs to the caller then.
uint32_t OpenRms::take(int32_t rmid) {
  for (uint32_t i = 0; i < XADTM_LP64_OPEN_RMS; ++i) {
    State expected = vacant;
    if (slots_[i].state.compare_exchange_strong(expected, taken_for(rmid))) {
      note_used(i + 1);
      return i;
    }
  }
  for (;;) {
    State state = vacant;
    const uint32_t own = find(
        rmid, [](const Slot &) { return true; }, state);
    if (own == none || slots_[own].state.compare_exchange_strong(state, taken_for(rmid))) {
      return own;
    }
  }
}

void OpenRms::write(uint32_t index, int32_t rmid, const OpenString &info) {
  Slot &slot = slots_[index];
  slot.rmid.store(rmid, std::memory_order_release);
  const uint32_t before = slot.used.load(std::memory_order_relaxed);
  slot.used.store(info.used, std::memory_order_release);
  for (uint32_t word = 0; word < info.used; ++word) {
    uint64_t bytes = 0;
    memcpy(&bytes, info.text + word * sizeof bytes, sizeof bytes);
    slot.words[word].store(bytes, std::memory_order_release);
  }
  for (uint32_t word = info.used; word < before; ++word) {
    slot.words[word].store(0, std::memory_order_release);
  }
}

// What was published of the rmid before, by a string that is not good any more, is forgotten; this one, too, when a
// later one is there already, whose own search came too early to find it.
void OpenRms::publish(uint32_t slot, int32_t rmid) {
  const Ticket ticket = next_ticket();
  slots_[slot].state.store(ticket);
  // A search that passed this slot before and comes to the older one after it is gone must look again.
  static_cast<void>(next_ticket());
  forget(rmid, ticket - 1);
  State state = vacant;
  const auto is_later = [&](const Slot &other) {
    const State seen = other.state.load();
    return is_ticket(seen) && seen > ticket;
  };
  if (find(rmid, is_later, state) != none) {
    forget(rmid, ticket);
  }
}

void OpenRms::forget(int32_t rmid, Ticket up_to) {
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    Slot &slot = slots_[i];
    State state = slot.state.load();
    if (is_ticket(state) && state <= up_to && slot.rmid.load(std::memory_order_acquire) == rmid &&
        slot.state.compare_exchange_strong(state, forgotten)) {
      wipe(slot);
    }
  }
}

// What is written of the rmid.
Memory OpenRms::look_up(int32_t rmid, OpenString &info) const {
  for (;;) {
    const Ticket before = last_ticket_.load();
    const Memory found = look_once(rmid, info);
    if (found != Memory::nothing) {
      return found == Memory::open && !info.kept() ? Memory::unusable : found;
    }
    if (last_ticket_.load() == before) {
      return Memory::nothing;
    }
  }
}

// Copies the rmid's string with the latest ticket. What is being written or closed counts when there is none.
Memory OpenRms::look_once(int32_t rmid, OpenString &info) const {
  State latest = vacant;
  bool is_closed = false;
  bool is_written = false;
  OpenString read;
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    const Slot &slot = slots_[i];
    State state = slot.state.load();
    while (is_ticket(state) || is_closing(state)) {
      const bool of_rmid = slot.rmid.load(std::memory_order_acquire) == rmid;
      const bool wanted = of_rmid && is_ticket(state) && state > latest;
      if (wanted) {
        copy(slot, read);
      }
      const State after = slot.state.load();
      if (after == state) {
        is_closed = is_closed || (of_rmid && is_closing(state));
        if (wanted) {
          latest = state;
          info.become(read);
        }
        break;
      }
      state = after;
    }
    is_written = is_written || state == taken_for(rmid);
  }
  if (latest != vacant) {
    return Memory::open;
  }
  if (is_written) {
    return Memory::unusable;
  }
  return is_closed ? Memory::closing : Memory::nothing;
}

void OpenRms::note_used(uint32_t count) {
  uint32_t used = slots_used_.load();
  while (used < count && !slots_used_.compare_exchange_weak(used, count)) {
  }
}
