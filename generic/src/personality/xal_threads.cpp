// The report of a bad placeholder mutex, and the library's clock, which is the operating system's unless a test has put
// its own in place. Neither keeps any other state.
#include "personality/xal_threads.h"

#include <unistd.h>

#include "log/xal_log.h"

namespace {

void sleep_whole_seconds(uint32_t seconds) {
  while (seconds > 0) {
    seconds = sleep(seconds);  // a signal cuts a sleep short; the rest is slept as well
  }
}

}  // namespace

constinit SleepOperation xal_sleep = sleep_whole_seconds;

// Reports a handle that is no placeholder; the operation's result, 0.
int32_t xal_bad_mutex(const char *function, int32_t line) {
  xalog_msg(function, "Bad mutex ID", line, XALOG_ERROR);
  return 0;
}
