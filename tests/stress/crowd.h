// Many processes at once on the same two banks, some of them killed.
#pragma once

#include <chrono>
#include <cstdint>

#include "bed.h"

struct CrowdResult {
  int32_t kills = 0;
  int64_t transfers = 0;  // noted at the banks
};

// Lets the workers transfer money at random for that long, kills one of them now and then and starts it again; then
// recovers what is left. Throws std::runtime_error when anything is wrong in the end.
CrowdResult crowd(Bed &bed, int32_t workers, std::chrono::seconds duration, int32_t accounts_a_bank);
