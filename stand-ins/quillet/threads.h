// The thread primitives, and the views on them for tests.
#pragma once

#include "exports.h"

namespace quillet {

QLT_THREAD_TABLE thread_table();

}  // namespace quillet
