// The names that every program shows and reads for the states of a branch.
#pragma once

#include <cstdint>

#include "dtm/dtm_protocol.h"

struct DtmStateName {
  const char *name;
  int32_t number;
};

// clang-format off
inline constexpr DtmStateName dtm_state_names[] = {
    // name                state
    {"unknown",            DTM_STATE_UNKNOWN},
    {"attached",           DTM_STATE_ATTACHED},
    {"ended",              DTM_STATE_ENDED},
    {"suspended",          DTM_STATE_SUSPENDED},
    {"migrated",           DTM_STATE_DETACHED},
    {"abort-only",         DTM_STATE_ABORTONLY},
    {"prepared",           DTM_STATE_PREPARED},
    {"heuristic-commit",   DTM_STATE_HEUR_COMMITTED},
    {"heuristic-rollback", DTM_STATE_HEUR_ROLLEDBACK},
};
// clang-format on

// Null for a state in which no branch stays.
constexpr const char *name_of_dtm_state(int32_t state) {
  for (const DtmStateName &row : dtm_state_names) {
    if (row.number == state) {
      return row.name;
    }
  }
  return nullptr;
}
