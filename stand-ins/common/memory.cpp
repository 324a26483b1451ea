// Comn_malloc and comn_free over the C heap, counted so that a test can see what was not given back.
//
// Owns the allocation fault plan and the count of live blocks. Called from any thread, no lock.
#include <atomic>
#include <cstdlib>

#include "common_control.h"
#include "common_routines.h"
#include "fault_plan.h"

namespace {

constinit FaultPlan allocation_faults;
constinit std::atomic<int64_t> live_blocks{0};

}  // namespace

void *comn_malloc(size_t size) {
  if (allocation_faults.strikes()) {
    return nullptr;
  }
  // A request for nothing still gets a block of its own, so that null always means that memory is short.
  void *block = std::malloc(size == 0 ? 1 : size);
  if (block != nullptr) {
    ++live_blocks;
  }
  return block;
}

void comn_free(void *block) {
  if (block == nullptr) {
    return;
  }
  --live_blocks;
  std::free(block);
}

void common_fail_allocation(int32_t nth, int32_t and_all_later) {
  allocation_faults.arm(nth, and_all_later != 0);
}

int32_t common_allocations_made(void) {
  return allocation_faults.calls();
}

int64_t common_blocks_outstanding(void) {
  return live_blocks;
}
