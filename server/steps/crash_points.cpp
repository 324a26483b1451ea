// Counts the steps and dies at the one that the environment names.
#include "steps/crash_points.h"

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

namespace zdb {
namespace {

std::atomic<uint64_t> passed{0};

uint64_t fatal_step() {
  const char *text = std::getenv("ZDB_CRASH_AT");
  return text == nullptr ? 0 : std::strtoull(text, nullptr, 10);
}

std::atomic<uint64_t> &fatal() {
  static std::atomic<uint64_t> step{fatal_step()};
  return step;
}

}  // namespace

void crash_in(uint64_t steps) {
  fatal() = passed + steps;
}

void crash_point() {
  if (++passed == fatal()) {
    kill(getpid(), SIGKILL);
  }
}

uint64_t crash_points_passed() {
  return passed.load();
}

}  // namespace zdb
