// The memory of open resource managers. Whatever is read of a slot is read between two looks at its state.
#include "open_rms.h"

#include <cstring>

static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free);
static_assert(XADTM_LP64_INFO_SIZE % sizeof(uint64_t) == 0);

void OpenString::set(const char *info) {
  const size_t length = strnlen(info, sizeof text);
  const size_t copied = length < sizeof text ? length : 0;
  used = static_cast<uint32_t>(copied / sizeof(uint64_t)) + 1;
  memset(text + (used - 1) * sizeof(uint64_t), 0, sizeof(uint64_t));
  memcpy(text, info, copied);
}

OpenRms::Reservation OpenRms::reserve(int32_t rmid, const OpenString &info) {
  for (uint32_t i = 0; i < XADTM_LP64_OPEN_RMS; ++i) {
    Slot &slot = slots_[i];
    uint64_t expected = vacant;
    if (!slot.state.compare_exchange_strong(expected, taken)) {
      continue;
    }
    note_used(i + 1);
    slot.rmid.store(rmid, std::memory_order_release);
    slot.used.store(info.used, std::memory_order_release);
    for (uint32_t word = 0; word < info.used; ++word) {
      uint64_t bytes = 0;
      memcpy(&bytes, info.text + word * sizeof bytes, sizeof bytes);
      slot.words[word].store(bytes, std::memory_order_release);
    }
    return static_cast<Reservation>(i);
  }
  return none;
}

void OpenRms::publish(Reservation slot) {
  const int32_t rmid = slots_[slot].rmid.load(std::memory_order_relaxed);
  const Ticket ticket = next_ticket();
  slots_[slot].state.store(ticket);
  // A search that passed this slot before and comes to the older one after it is gone must look again.
  static_cast<void>(next_ticket());
  forget(rmid, ticket - 1);
}

void OpenRms::cancel(Reservation slot) {
  wipe(slots_[slot]);
}

bool OpenRms::remembers(int32_t rmid, const OpenString &info) const {
  Ticket ticket = 0;
  return find(rmid, info, ticket) != none;
}

bool OpenRms::renew(int32_t rmid, const OpenString &info) {
  Ticket ticket = 0;
  for (;;) {
    const int32_t slot = find(rmid, info, ticket);
    if (slot == none) {
      return false;
    }
    if (slots_[slot].state.compare_exchange_strong(ticket, next_ticket())) {
      return true;
    }
  }
}

bool OpenRms::recall(int32_t rmid, OpenString &info) const {
  for (;;) {
    const Ticket before = now();
    if (recall_once(rmid, info) != vacant) {
      return true;
    }
    if (now() == before) {
      return false;
    }
  }
}

void OpenRms::forget(int32_t rmid, Ticket up_to) {
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    Slot &slot = slots_[i];
    uint64_t state = slot.state.load();
    // Of a slot that has another rmid by the time of the exchange, the state is another ticket.
    if (is_ticket(state) && state <= up_to && slot.rmid.load(std::memory_order_acquire) == rmid &&
        slot.state.compare_exchange_strong(state, taken)) {
      wipe(slot);
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
  info.used = slot.used.load(std::memory_order_acquire);
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

// The slot with this rmid and string, and its ticket.
int32_t OpenRms::find(int32_t rmid, const OpenString &info, Ticket &ticket) const {
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    const Slot &slot = slots_[i];
    uint64_t state = slot.state.load();
    while (is_ticket(state)) {
      const bool found = slot.rmid.load(std::memory_order_acquire) == rmid && holds(slot, info);
      const uint64_t after = slot.state.load();
      if (after == state) {
        if (found) {
          ticket = state;
          return static_cast<int32_t>(i);
        }
        break;
      }
      state = after;
    }
  }
  return none;
}

// Copies the rmid's string with the latest ticket; that ticket, or `vacant` when nothing was found.
OpenRms::Ticket OpenRms::recall_once(int32_t rmid, OpenString &info) const {
  Ticket latest = vacant;
  OpenString read;
  const uint32_t used = slots_used_.load();
  for (uint32_t i = 0; i < used; ++i) {
    const Slot &slot = slots_[i];
    uint64_t state = slot.state.load();
    while (is_ticket(state)) {
      const bool wanted = state > latest && slot.rmid.load(std::memory_order_acquire) == rmid;
      if (wanted) {
        copy(slot, read);
      }
      const uint64_t after = slot.state.load();
      if (after == state) {
        if (wanted) {
          latest = state;
          info = read;
        }
        break;
      }
      state = after;
    }
  }
  return latest;
}

void OpenRms::note_used(uint32_t count) {
  uint32_t used = slots_used_.load();
  while (used < count && !slots_used_.compare_exchange_weak(used, count)) {
  }
}
