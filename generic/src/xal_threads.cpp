// The placeholder mutexes that every record and list carries, and the library's clock. Neither keeps any state: a
// placeholder never blocks, and the clock is the operating system's unless a test has put its own in place.
#include "xal_threads.h"

#include <unistd.h>

#include "xal_log.h"

namespace {

int32_t placeholder_operation(const char *function, int32_t handle, int32_t line = __builtin_LINE()) {
  if (handle == XAL_PLACEHOLDER) {
    return 1;
  }
  xalog_msg(function, "Bad mutex ID", line, XALOG_ERROR);
  return 0;
}

void sleep_whole_seconds(uint32_t seconds) {
  while (seconds > 0) {
    seconds = sleep(seconds);  // a signal cuts a sleep short; the rest is slept as well
  }
}

}  // namespace

constinit SleepOperation xal_sleep = sleep_whole_seconds;

int32_t _trvxadummy_create_mutex() {
  return XAL_PLACEHOLDER;
}

int32_t _trvxadummy_take_mutex(int32_t handle) {
  return placeholder_operation("_trvxadummy_take_mutex", handle);
}

int32_t _trvxadummy_release_mutex(int32_t handle) {
  return placeholder_operation("_trvxadummy_release_mutex", handle);
}

int32_t _trvxadummy_delete_mutex(int32_t handle) {
  return placeholder_operation("_trvxadummy_delete_mutex", handle);
}
