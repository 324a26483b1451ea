/*
 * branch_rules.cpp - the table of the DTM procedures and its search.
 *
 * An operation is a procedure with its "@flags" and the state wanted in "@status". The non-negative answers are the
 * state that the branch had before. The force bits spare the attach of a branch that was ended; one that was suspended
 * with migration still has to be resumed and ended.
 */
#include "rules/branch_rules.h"

#include <algorithm>
#include <array>

#include "interface/zdb_control.h"

namespace zdb {
namespace {

constexpr int32_t new_branch = 0x10;
constexpr int32_t no_wait = 0x2;
constexpr int32_t undo_attach = 0x4;
constexpr int32_t one_phase = 0x20;
constexpr int32_t in_background = 0x100;
constexpr int32_t forced = 0x6000;

constexpr int32_t wanted_committed = 100;
constexpr int32_t wanted_rolled_back = 101;
constexpr int32_t wanted_forgotten = 102;

struct Rule {
  std::string_view procedure;
  int32_t flags;
  int32_t wanted;
  std::array<Outcome, situation_count> outcomes;
};

constexpr Outcome keep{answer_prior, stays};
constexpr Outcome drop{answer_prior, gone};
constexpr Outcome attach{answer_prior, ZDB_ATTACHED};
constexpr Outcome end{answer_prior, ZDB_ENDED};
constexpr Outcome hold{answer_prior, ZDB_SUSPENDED};
constexpr Outcome migrate{answer_prior, ZDB_MIGRATED};
constexpr Outcome doom{answer_prior, ZDB_ABORT_ONLY};
constexpr Outcome vote{answer_prior, ZDB_PREPARED};
constexpr Outcome done{0, gone};
constexpr Outcome no1{refused_forced_rollback, stays};
constexpr Outcome no2{refused_unknown, stays};
constexpr Outcome no2_drop{refused_unknown, gone};
constexpr Outcome no3{refused_duplicate, stays};
constexpr Outcome no4{refused_state, stays};
constexpr Outcome no128{refused_attached, stays};

// clang-format off
constexpr Rule rules[] = {
  // procedure            flags               wanted               unknown here   other  ended    migr.    abort     prep.  heur.
  {"$beginTrvDtmXact",    new_branch,         ZDB_ATTACHED,       {attach, no3,   no3,   no3,     no3,     no3,      no3,   no3}},
  {"$attachTrvDtmXact",   0,                  ZDB_ATTACHED,       {no2,    keep,  no4,   attach,  attach,  keep,     keep,  no2}},
  // The work of an abort-only branch is undone here, so the completion that follows leaves nothing behind.
  {"$attachTrvDtmXact",   no_wait,            ZDB_ATTACHED,       {no2,    keep,  no4,   attach,  attach,  drop,     keep,  no2}},
  {"$attachTrvDtmXact",   no_wait,            ZDB_ABORT_ONLY,     {no2,    doom,  no4,   doom,    doom,    keep,     doom,  no2}},
  {"$detachTrvDtmXact",   0,                  ZDB_ENDED,          {no2,    end,   no4,   keep,    end,     keep,     keep,  no2}},
  {"$detachTrvDtmXact",   undo_attach,        ZDB_ENDED,          {no2,    end,   no4,   keep,    end,     keep,     keep,  no2}},
  // Suspended is ended but for its name: every other row treats the two alike.
  {"$detachTrvDtmXact",   0,                  ZDB_SUSPENDED,      {no2,    hold,  no4,   keep,    keep,    keep,     keep,  no2}},
  {"$detachTrvDtmXact",   0,                  ZDB_MIGRATED,       {no2,    migrate, no4, keep,    keep,    keep,     keep,  no2}},
  {"$statusTrvDtmXact",   0,                  0,                  {no2,    keep,  keep,  keep,    keep,    keep,     keep,  no2}},
  {"$prepareTrvDtmXact",  0,                  ZDB_PREPARED,       {no2,    vote,  no4,   vote,    no4,     no2_drop, no4,   no2}},
  {"$prepareTrvDtmXact",  forced,             ZDB_PREPARED,       {no2,    vote,  no4,   vote,    no4,     no2_drop, no4,   no2}},
  {"$commitTrvDtmXact",   0,                  wanted_committed,   {no2,    no4,   no4,   no4,     no4,     no4,      drop,  no2}},
  {"$commitTrvDtmXact",   forced,             wanted_committed,   {no2,    no4,   no4,   no4,     no4,     no4,      drop,  no2}},
  {"$commitTrvDtmXact",   one_phase,          wanted_committed,   {no2,    drop,  no4,   drop,    no4,     no4,      no4,   no2}},
  {"$commitTrvDtmXact",   forced | one_phase, wanted_committed,   {no2,    drop,  no4,   drop,    no4,     no4,      no4,   no2}},
  {"$rollbackTrvDtmXact", 0,                  wanted_rolled_back, {no2,    drop,  no128, drop,    drop,    drop,     drop,  no2}},
  {"$rollbackTrvDtmXact", forced,             wanted_rolled_back, {no2,    drop,  no1,   drop,    drop,    drop,     drop,  no2}},
  {"$rollbackTrvDtmXact", in_background,      wanted_rolled_back, {no2,    drop,  drop,  drop,    drop,    drop,     drop,  no2}},
  {"$forgetTrvDtmXact",   0,                  wanted_forgotten,   {no2,    no4,   no4,   no4,     no4,     no4,      no4,   done}},
};
// clang-format on

constexpr bool same_operation(const Rule &left, const Rule &right) {
  return left.procedure == right.procedure && left.flags == right.flags && left.wanted == right.wanted;
}

constexpr bool operations_are_unique() {
  for (const auto *rule = std::begin(rules); rule != std::end(rules); ++rule) {
    if (std::any_of(rule + 1, std::end(rules), [&](const Rule &later) { return same_operation(*rule, later); })) {
      return false;
    }
  }
  return true;
}
static_assert(operations_are_unique());

}  // namespace

bool is_dtm_procedure(std::string_view procedure) {
  return std::any_of(std::begin(rules), std::end(rules), [&](const Rule &rule) { return rule.procedure == procedure; });
}

bool is_commit(std::string_view procedure) {
  return procedure == "$commitTrvDtmXact";
}

Outcome find_outcome(std::string_view procedure, int32_t flags, int32_t wanted, Situation situation) {
  const auto *rule = std::find_if(std::begin(rules), std::end(rules), [&](const Rule &candidate) {
    return candidate.procedure == procedure && candidate.flags == flags && candidate.wanted == wanted;
  });
  if (rule == std::end(rules)) {
    return {refused_request, stays};
  }
  return rule->outcomes[static_cast<std::size_t>(situation)];
}

}  // namespace zdb
