// The crash sweep: a process is killed at every step of a transaction, and what is left is checked.
#pragma once

#include <cstdint>
#include <string>

#include "bed.h"

// Kills the first bank's server, the second one's and the application at every stride-th step of each kind of
// transaction. Returns the number of kills; throws std::runtime_error at the first that left anything wrong.
int32_t sweep(Bed &bed, uint64_t stride);
