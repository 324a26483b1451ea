// The rule book of the DTM procedures: for every operation and every situation that a branch can be
// in, the status to answer and what becomes of the branch. The rules are one constant table in branch_rules.cpp.
#pragma once

#include <cstdint>
#include <string_view>

namespace zdb {

// A branch as one session sees it; the columns of the table, in its order.
enum class Situation : uint8_t {
  unknown,
  attached_here,
  attached_elsewhere,
  ended,  // ended or suspended
  migrated,
  abort_only,
  prepared,
  heuristic
};
inline constexpr int situation_count = 8;

inline constexpr int32_t answer_prior = 1 << 20;  // answer the state that the branch had
inline constexpr int32_t stays = -1;              // next state: unchanged
inline constexpr int32_t gone = 0;                // next state: the branch is removed

struct Outcome {
  int32_t answer;
  int32_t next;
};

bool is_dtm_procedure(std::string_view procedure);
// True for the procedure that commits, in one phase or two; what else removes a branch rolls it back.
bool is_commit(std::string_view procedure);
// The rule for a request; an operation that the table does not have is refused whatever the situation.
Outcome find_outcome(std::string_view procedure, int32_t flags, int32_t wanted, Situation situation);

}  // namespace zdb
