// A disk and a memory that fail when told to: the program that links this has the C library's calls
// on files, C++'s allocation and SQLite's looked at before they are made. Nothing of the server is changed for it.
#pragma once

#include <cstdint>
#include <string>

enum class Fault : uint8_t {
  none,
  write,      // fails
  sync,       // fails, what was written is there all the same
  lost_sync,  // fails, what was not synced before is gone when the process has ended
  open,
  truncate,
  memory,
  kill,  // -9, before a write, sync, truncation or removal
  cut,   // the power goes before a write, sync, truncation or removal, and takes along what was not synced
  torn,  // the same, but some of it has reached the disk
};

struct Plan {
  Fault fault = Fault::none;
  uint64_t at = 0;        // the call that fails, from 1
  bool for_good = false;  // and all later ones
};

// To be called once, before anything uses SQLite.
void watch_memory();
// From now on, for files in the folder.
void arm(const Plan &plan, const std::string &folder);
bool has_failed();

// While one is there calls fail; whatever a test does for itself lies outside.
class Watched {
 public:
  Watched();
  ~Watched();
  Watched(const Watched &) = delete;
  Watched &operator=(const Watched &) = delete;
};

// The process ends as by kill -9, and what the plan takes along is gone.
[[noreturn]] void end_process();
