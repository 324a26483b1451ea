// Entry functions of libxadtm that record how they are called and answer as told, to link the bridge's objects with.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "xa.h"

struct NarrowCall {
  std::string entry;  // "tux_commit"
  int32_t rmid = 0;
  int32_t flags = 0;
  std::string info;   // of open and close
  XID xid{};          // of verbs on a branch
  int32_t count = 0;  // of recover

  std::string text() const { return entry + ' ' + std::to_string(rmid); }
};

struct FakeEntries {
  std::vector<NarrowCall> calls;
  std::vector<std::string> log;  // what the bridge wrote
  std::deque<int32_t> answers;   // of the next calls in turn; then recover gives branches and all else answers XA_OK
  std::function<void(const NarrowCall &)> meanwhile;  // what happens elsewhere while libxadtm is in a call
  int32_t in_doubt = 0;  // branches that recover still has to give; the gtrid is the number left

  std::vector<std::string> called() const;
  void forget_calls() { calls.clear(); }
};

extern thread_local FakeEntries narrow;  // the calling thread's
