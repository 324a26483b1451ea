// The recovery scans that go on in one thread identity. A scan is several calls of libxadtm, and between them it lies
// with the identity: a second scan of the rmid at the same time would take branches from it, and neither would know.
#pragma once

#include <atomic>
#include <cstdint>

#include "xadtm_lp64.h"

// The rmids that are being scanned, for the threads that share the identity. No locks: who is not alone gives up.
class Scans {
 public:
  // True when no other thread scans the rmid; `end` takes it back. When two begin together, both may be refused.
  bool begin(int32_t rmid, uint32_t &place);
  void end(uint32_t place) { rmids_[place].store(nothing); }

 private:
  static constexpr uint64_t nothing = 0;
  static constexpr uint64_t mark_of(int32_t rmid) { return uint64_t{1} << 32 | static_cast<uint32_t>(rmid); }

  std::atomic<uint64_t> rmids_[XADTM_LP64_OPEN_RMS];
};

// A scan from its construction to its destruction.
class ScanScope {
 public:
  ScanScope(Scans &scans, int32_t rmid) : scans_(scans), alone_(scans.begin(rmid, place_)) {}
  ~ScanScope() {
    if (alone_) {
      scans_.end(place_);
    }
  }
  ScanScope(const ScanScope &) = delete;
  ScanScope &operator=(const ScanScope &) = delete;

  bool is_alone() const { return alone_; }

 private:
  Scans &scans_;
  uint32_t place_ = 0;
  bool alone_;
};
