// Counters of the client library for measuring.
#pragma once

#include <cstdint>

extern "C" {
int64_t instant_allocations();  // comn_malloc calls so far
int64_t instant_requests();     // commands sent so far
}
