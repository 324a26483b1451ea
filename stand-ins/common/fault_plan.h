// Counts the calls of a group of routines and says which of them is to fail.
//
// Tests arm a plan through common_control.h; the routines ask it once per call. Nothing locks: arming while other
// threads call only blurs which call is hit.
#pragma once

#include <atomic>
#include <cstdint>

class FaultPlan {
 public:
  void arm(int32_t nth, bool and_all_later) {
    nth_ = 0;
    and_all_later_ = and_all_later;
    calls_ = 0;
    nth_ = nth;
  }

  // Counts one call; true when that call is to fail.
  bool strikes() {
    const int32_t call = ++calls_;
    const int32_t nth = nth_;
    if (nth <= 0) {
      return false;
    }
    return and_all_later_ ? call >= nth : call == nth;
  }

  int32_t calls() const { return calls_; }

 private:
  std::atomic<int32_t> calls_{0};
  std::atomic<int32_t> nth_{0};
  std::atomic<bool> and_all_later_{false};
};
