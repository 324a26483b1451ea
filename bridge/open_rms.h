// The resource managers that a transaction manager has open in one thread identity, with their open strings.
//
// Under MTS and TUX all threads share one memory, which has no locks. A slot's state says who may touch it:
//   vacant -> taken             by compare-and-swap; from then on the slot belongs to the thread that took it
//   taken -> a ticket           publishes what that thread wrote before; nobody writes rmid or string after that
//   a ticket -> a later ticket  by compare-and-swap: opened again with the same string
//   a ticket -> taken           by compare-and-swap: forgotten; the string is wiped, then the slot is vacant
// Tickets are handed out once, so a state that is the same ticket before and after reading means that what was read in
// between is what was published with it. The words of a string are atomic, stored with release and loaded with acquire:
// a reader that meets a word of a later use of the slot sees the later state, too, and looks again. Nobody waits for
// anybody: a look is repeated only when another thread's change came to its end meanwhile.
#pragma once

#include <atomic>
#include <cstdint>

#include "xadtm_lp64.h"

// An open string in the words it is kept in, the last byte zero. Empty when it was too long to keep.
struct OpenString {
  static constexpr uint32_t words = XADTM_LP64_INFO_SIZE / sizeof(uint64_t);
  alignas(uint64_t) char text[XADTM_LP64_INFO_SIZE];
  uint32_t used;  // words, the one with the terminating zero included

  void set(const char *info);
  bool kept() const { return text[0] != '\0'; }
};

class OpenRms {
 public:
  using Ticket = uint64_t;
  using Reservation = int32_t;  // a slot's index
  static constexpr Reservation none = -1;

  // Takes a vacant slot and writes into it; none when there is none. Publish or cancel it.
  Reservation reserve(int32_t rmid, const OpenString &info);
  // Publishes the slot; what was published of the rmid before, by a string that is not good any more, is forgotten.
  void publish(Reservation slot);
  void cancel(Reservation slot);

  // True when the rmid is remembered with this string.
  bool remembers(int32_t rmid, const OpenString &info) const;
  // Gives it a new ticket, so that a close that began before does not make it forgotten. False when it is not there.
  bool renew(int32_t rmid, const OpenString &info);

  // The string that the rmid was opened with last; false when it is not open.
  bool recall(int32_t rmid, OpenString &info) const;

  // The last ticket handed out. A close notes it before it closes, and then forgets what was opened up to it.
  Ticket now() const { return last_ticket_.load(); }
  void forget(int32_t rmid, Ticket up_to);

 private:
  static constexpr uint64_t vacant = 0;
  static constexpr uint64_t taken = UINT64_MAX;

  struct Slot {
    std::atomic<uint64_t> state;
    std::atomic<int32_t> rmid;
    std::atomic<uint32_t> used;
    std::atomic<uint64_t> words[OpenString::words];
  };

  static constexpr bool is_ticket(uint64_t state) { return state != vacant && state != taken; }
  static bool holds(const Slot &slot, const OpenString &info);
  static void copy(const Slot &slot, OpenString &info);
  static void wipe(Slot &slot);
  int32_t find(int32_t rmid, const OpenString &info, Ticket &ticket) const;
  Ticket recall_once(int32_t rmid, OpenString &info) const;
  Ticket next_ticket() { return last_ticket_.fetch_add(1) + 1; }
  void note_used(uint32_t count);

  std::atomic<Ticket> last_ticket_;
  std::atomic<uint32_t> slots_used_;  // slots, from the first, that have ever been taken
  Slot slots_[XADTM_LP64_OPEN_RMS];
};
