// The steps at which a crash is tried out. A server passes one before and after everything that a
// crash could tear apart: a write, a sync, a reply.
#pragma once

#include <cstdint>

namespace zdb {

// Counts one step of the process. When the step's number is that of the environment variable "ZDB_CRASH_AT" (from 1;
// read once), the process dies on the spot as by kill -9.
void crash_point();

// Has the process die at the step that many steps from now, whatever the environment says.
void crash_in(uint64_t steps);

// The steps passed so far; a run without a crash tells by it how many there are to try.
uint64_t crash_points_passed();

}  // namespace zdb
