// The time of a whole branch cycle through the TUX switch, against a client library that answers at once, with the
// trace mask 0, and how many requests and allocations it makes.
#include <benchmark/benchmark.h>

#include "branch_cycle.h"
#include "instant_client.h"

namespace {

void branch_cycle(benchmark::State &state) {
  static const bool opened = open_for_cycles();
  if (!opened) {
    state.SkipWithError("the resource manager could not be opened");
    return;
  }
  const int64_t requests = instant_requests();
  const int64_t allocations = instant_allocations();
  int32_t number = 0;
  for (auto _ : state) {
    if (!run_cycle(full_size_xid(++number))) {
      state.SkipWithError("a verb did not answer XA_OK");
      return;
    }
  }
  const auto cycles = static_cast<double>(state.iterations());
  state.counters["requests"] = static_cast<double>(instant_requests() - requests) / cycles;
  state.counters["allocations"] = static_cast<double>(instant_allocations() - allocations) / cycles;
}

BENCHMARK(branch_cycle);

}  // namespace

BENCHMARK_MAIN();
