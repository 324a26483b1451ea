// Runs as many branch cycles as its argument says, to be counted under valgrind.
#include <cstdlib>

#include "branch_cycle.h"

int main(int argc, char **argv) {
  const long cycles = argc > 1 ? strtol(argv[1], nullptr, 10) : 1;
  if (!open_for_cycles()) {
    return 1;
  }
  for (long number = 0; number < cycles; ++number) {
    if (!run_cycle(full_size_xid(static_cast<int32_t>(number)))) {
      return 1;
    }
  }
  return 0;
}
