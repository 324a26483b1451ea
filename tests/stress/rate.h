// How many durable transfers a second the banks do, next to what plain SQLite does on the same disk.
#pragma once

#include <chrono>

#include "bed.h"

// Measures and prints; each measurement takes that long.
void measure_rate(Bed &bed, std::chrono::seconds duration, int32_t accounts_a_bank);
