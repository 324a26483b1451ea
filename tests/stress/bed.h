// What a stress run lies on: a folder with two banks, their server processes, and the checks of the money.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "process.h"
#include "run_folder.h"
#include "transfers.h"

class Bed {
 public:
  // Makes a folder in this one (see RunFolder), with loaded accounts; the server program and this program run from
  // PROGRAMS.
  Bed(const std::string &folder, const std::string &programs, int32_t accounts_a_bank);

  const std::string &folder() const { return folder_; }
  // Starts a bank's server, to die at a step when one is given, and waits until it can be reached or is dead.
  void start_server(int32_t bank, uint64_t fatal_step = 0);
  // Stops it cleanly; true when it had died before.
  bool stop_server(int32_t bank);
  // Syncs that the bank's server made in its last life; known once it has been stopped cleanly.
  int64_t syncs_of_last_life(int32_t bank) const;
  // Starts the servers again that have died; their number.
  int32_t revive_servers();

  // Runs this program with the words, as a worker.
  Process worker(const std::vector<std::string> &words, uint64_t fatal_step = 0) const;

  // Waits until the servers have undone the branches that dead applications left behind unprepared.
  void wait_for_orphans() const;
  // Throws std::runtime_error when money was lost or made, or the banks do not agree on the transfers between them.
  void check_money() const;
  // Throws std::runtime_error when a branch is left at a bank.
  void check_nothing_in_doubt() const;
  // The number of branches that are prepared, or have a heuristic outcome, at the bank.
  static size_t in_doubt(int32_t bank);
  // Whether the transfer is noted at the bank.
  static bool is_noted(int32_t bank, const std::string &global);

 private:
  std::string at(const std::string &name) const { return folder_ + "/" + name; }
  void administer(int32_t bank, const std::string &words) const;

  const RunFolder own_folder_;
  const std::string &folder_;
  const std::string programs_;
  int64_t sum_ = 0;
  std::array<std::optional<Process>, bank_count> servers_;
};

// Names of transfers within one bank begin with this; the other bank knows nothing of them.
inline constexpr char local_mark = 'L';
