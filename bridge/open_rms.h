// The resource managers that a transaction manager has open in one thread identity, with their open strings.
//
// Under MTS and TUX all threads share one memory, which has no locks. A slot's state says who may touch it:
// clang-format off
//   vacant -> taken, with the rmid    by compare-and-swap; from then on the slot belongs to the thread that took it
//   a ticket -> taken, with the rmid  the same, to write another string for an rmid when no slot is vacant
//   taken -> a ticket                 publishes what that thread wrote before; nobody writes rmid or string after that
//   a ticket -> a later ticket        by compare-and-swap: opened again with the same string
//   a ticket -> the same, closing     by compare-and-swap: belongs to the thread that closes the rmid
//   closing -> closing, dropped       by compare-and-swap: a second close has succeeded meanwhile
//   closing -> the ticket             the close failed, and no other one succeeded
//   a ticket -> forgotten             by compare-and-swap: replaced by a later one
//   closing, forgotten -> vacant      once the string is wiped
// clang-format on
// Tickets are handed out once, so a state that is the same ticket before and after reading means that what was read in
// between is what was published with it. The words of a string are atomic, stored with release and loaded with acquire:
// a reader that meets a word of a later use of the slot sees the later state, too, and looks again. Nobody waits for
// anybody: a look is repeated only when another thread's change came to its end meanwhile.
#pragma once

#include <atomic>
#include <cstdint>

#include "xadtm_lp64.h"

// An open string in the words it is kept in, the last byte zero. Empty when it was too long to keep. Open strings hold
// passwords, so nothing is left of it.
struct OpenString {
  static constexpr uint32_t words = XADTM_LP64_INFO_SIZE / sizeof(uint64_t);
  alignas(uint64_t) char text[XADTM_LP64_INFO_SIZE];
  uint32_t used = 0;  // words, the one with the terminating zero included

  OpenString() { text[0] = '\0'; }
  explicit OpenString(const char *info);
  ~OpenString();
  OpenString(const OpenString &) = delete;
  OpenString &operator=(const OpenString &) = delete;

  void become(const OpenString &other);
  void resize(uint32_t new_used);  // the words that are new are still to be written
  bool kept() const { return text[0] != '\0'; }
};

// What is known of an rmid.
enum class Memory {
  nothing,  // the manager has it not open
  open,     // it has, and the string is there
  closing,  // it is closing it now
  unusable  // it has, or could not open it, and there is no string; or something may have been forgotten
};

class OpenRms {
 public:
  // Remembers that the rmid is open, with this string instead of an older one. Without a place for it, it is remembered
  // that something is missing.
  void remember(int32_t rmid, const OpenString &info);
  // Remembers that the rmid should be open: the manager could not open it. Forgotten by remember and by
  // forget_failure, which every close calls that was no mistake.
  void note_failure(int32_t rmid);
  // False when there is neither a place for the rmid nor the rmid itself.
  bool has_place(int32_t rmid);

  // The string that the rmid was opened with last, when it is open.
  Memory recall(int32_t rmid, OpenString &info) const;

  // A close puts aside what is known of the rmid when it begins, and at its end forgets it or, when it failed, gives it
  // back. What is opened meanwhile stays.
  using Slots = uint32_t;  // a bit a slot
  Slots begin_close(int32_t rmid);
  void end_close(int32_t rmid, Slots slots, bool closed);
  void forget_failure(int32_t rmid);

 private:
  using State = uint64_t;
  using Ticket = uint64_t;
  static constexpr State vacant = 0;
  static constexpr State taken = State{1} << 63;              // and the rmid
  static constexpr State closing = State{1} << 62;            // and the ticket
  static constexpr State dropped = State{1} << 61;            // with closing
  static constexpr State forgotten = taken | State{1} << 32;  // to be wiped
  static constexpr uint32_t none = UINT32_MAX;                // no slot
  static_assert(XADTM_LP64_OPEN_RMS <= 32, "Slots has a bit for each");

  struct Slot {
    std::atomic<State> state;
    std::atomic<int32_t> rmid;
    std::atomic<uint32_t> used;
    std::atomic<uint64_t> words[OpenString::words];
  };

  static constexpr bool is_ticket(State state) { return state != vacant && (state & (taken | closing)) == 0; }
  static constexpr uint64_t failure_of(int32_t rmid) { return uint64_t{1} << 32 | static_cast<uint32_t>(rmid); }
  static constexpr bool is_closing(State state) { return (state & closing) != 0; }
  static constexpr State taken_for(int32_t rmid) { return taken | static_cast<uint32_t>(rmid); }

  static bool holds(const Slot &slot, const OpenString &info);
  static void copy(const Slot &slot, OpenString &info);
  static void wipe(Slot &slot);
  template <typename Wanted>
  uint32_t find(int32_t rmid, const Wanted &wanted, State &state) const;
  bool keep(int32_t rmid, const OpenString &info);
  bool renew(int32_t rmid, const OpenString &info);
  bool is_being_written(int32_t rmid) const;
  uint32_t take(int32_t rmid);
  void write(uint32_t slot, int32_t rmid, const OpenString &info);
  void publish(uint32_t slot, int32_t rmid);
  void forget(int32_t rmid, Ticket up_to);
  void drop(int32_t rmid);
  bool has_failed(int32_t rmid) const;
  Memory look_up(int32_t rmid, OpenString &info) const;
  Memory look_once(int32_t rmid, OpenString &info) const;
  Ticket next_ticket() { return last_ticket_.fetch_add(1) + 1; }
  void note_used(uint32_t count);

  std::atomic<Ticket> last_ticket_;
  std::atomic<uint32_t> slots_used_;  // slots, from the first, that have ever been taken
  std::atomic<bool> was_full_;        // there may be more open than is remembered
  Slot slots_[XADTM_LP64_OPEN_RMS];
  std::atomic<uint64_t> failures_[XADTM_LP64_OPEN_RMS];  // rmids that the manager could not open
  std::atomic<bool> any_failed_;                         // ever, so that they need not be searched
};
