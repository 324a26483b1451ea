// What the result of a commit, rollback or forget means to the operator: the exit status, and what
// to say and to do.
//
// A connection may be lost after the server has done its part. The library then asks once more and may find the branch
// gone, so some results that look like refusals say nothing of what was done.
#pragma once

#include <cstdint>
#include <string>

struct SettleOutcome {
  int status = 0;       // the exit status
  std::string message;  // empty when all is done
};

// The verb is commit, rollback or forget.
SettleOutcome settle_outcome(const std::string &verb, int32_t code);
