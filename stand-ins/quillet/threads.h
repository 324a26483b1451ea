/* threads.h - the thread primitives, and the views on them for tests. */
#ifndef QUILLET_THREADS_H
#define QUILLET_THREADS_H

#include "exports.h"

namespace quillet {

QLT_THREAD_TABLE thread_table();

}  // namespace quillet

#endif /* QUILLET_THREADS_H */
