// The table of the DTM procedures and its search.
//
// An operation is a procedure with its "@flags" and the state wanted in "@status". The non-negative answers are the
// state that the branch had before. The force bits spare the attach of a branch that was ended; one that was suspended
// with migration still has to be resumed and ended.
#include "rules/branch_rules.h"

#include <algorithm>
#include <array>

#include "dtm/dtm_protocol.h"

namespace zdb {
namespace {

struct Rule {
  std::string_view procedure;
  int32_t flags;
  int32_t wanted;
  std::array<Outcome, situation_count> outcomes;
};

constexpr Outcome keep{answer_prior, stays};
constexpr Outcome drop{answer_prior, gone};
constexpr Outcome attach{answer_prior, DTM_STATE_ATTACHED};
constexpr Outcome end{answer_prior, DTM_STATE_ENDED};
constexpr Outcome hold{answer_prior, DTM_STATE_SUSPENDED};
constexpr Outcome migrate{answer_prior, DTM_STATE_DETACHED};
constexpr Outcome doom{answer_prior, DTM_STATE_ABORTONLY};
constexpr Outcome vote{answer_prior, DTM_STATE_PREPARED};
constexpr Outcome done{0, gone};
constexpr Outcome refused{DTM_REFUSED, stays};
constexpr Outcome unknown{DTM_UNKNOWN, stays};
constexpr Outcome discard{DTM_UNKNOWN, gone};
constexpr Outcome exists{DTM_DUPLICATE, stays};
constexpr Outcome illegal{DTM_WRONG_STATE, stays};
constexpr Outcome taken{DTM_ATTACHED_ELSEWHERE, stays};

// clang-format off
constexpr Rule rules[] = {
  // procedure             options                                           wanted                 unknown   here      other     ended     migrated  abort     prepared  heur.
  {"$beginTrvDtmXact",     DTM_OPTION_NEW,                                   DTM_WANT_ATTACHED,    {attach,   exists,   exists,   exists,   exists,   exists,   exists,  exists}},
  {"$attachTrvDtmXact",    0,                                                DTM_WANT_ATTACHED,    {unknown,  keep,     illegal,  attach,   attach,   keep,     keep,    unknown}},
  // The work of an abort-only branch is undone here, so the completion that follows leaves nothing behind.
  {"$attachTrvDtmXact",    DTM_OPTION_NOWAIT,                                DTM_WANT_ATTACHED,    {unknown,  keep,     illegal,  attach,   attach,   drop,     keep,    unknown}},
  {"$attachTrvDtmXact",    DTM_OPTION_NOWAIT,                                DTM_WANT_ABORTONLY,   {unknown,  doom,     illegal,  doom,     doom,     keep,     doom,    unknown}},
  {"$detachTrvDtmXact",    0,                                                DTM_WANT_ENDED,       {unknown,  end,      illegal,  keep,     end,      keep,     keep,    unknown}},
  {"$detachTrvDtmXact",    DTM_OPTION_UNDO_ATTACH,                           DTM_WANT_ENDED,       {unknown,  end,      illegal,  keep,     end,      keep,     keep,    unknown}},
  // Suspended is ended but for its name: every other row treats the two alike.
  {"$detachTrvDtmXact",    0,                                                DTM_WANT_SUSPENDED,   {unknown,  hold,     illegal,  keep,     keep,     keep,     keep,    unknown}},
  {"$detachTrvDtmXact",    0,                                                DTM_WANT_MIGRATED,    {unknown,  migrate,  illegal,  keep,     keep,     keep,     keep,    unknown}},
  {"$statusTrvDtmXact",    0,                                                DTM_WANT_ANY,         {unknown,  keep,     keep,     keep,     keep,     keep,     keep,    unknown}},
  {"$prepareTrvDtmXact",   0,                                                DTM_WANT_PREPARED,    {unknown,  vote,     illegal,  vote,     illegal,  discard,  illegal, unknown}},
  {"$prepareTrvDtmXact",   DTM_OPTION_FORCE_ATTACH,                          DTM_WANT_PREPARED,    {unknown,  vote,     illegal,  vote,     illegal,  discard,  illegal, unknown}},
  {"$commitTrvDtmXact",    0,                                                DTM_WANT_COMMITTED,   {unknown,  illegal,  illegal,  illegal,  illegal,  illegal,  drop,    unknown}},
  {"$commitTrvDtmXact",    DTM_OPTION_FORCE_ATTACH,                          DTM_WANT_COMMITTED,   {unknown,  illegal,  illegal,  illegal,  illegal,  illegal,  drop,    unknown}},
  {"$commitTrvDtmXact",    DTM_OPTION_ONE_PHASE,                             DTM_WANT_COMMITTED,   {unknown,  drop,     illegal,  drop,     illegal,  illegal,  illegal, unknown}},
  {"$commitTrvDtmXact",    DTM_OPTION_FORCE_ATTACH | DTM_OPTION_ONE_PHASE,   DTM_WANT_COMMITTED,   {unknown,  drop,     illegal,  drop,     illegal,  illegal,  illegal, unknown}},
  {"$rollbackTrvDtmXact",  0,                                                DTM_WANT_ROLLEDBACK,  {unknown,  drop,     taken,    drop,     drop,     drop,     drop,    unknown}},
  {"$rollbackTrvDtmXact",  DTM_OPTION_FORCE_ATTACH,                          DTM_WANT_ROLLEDBACK,  {unknown,  drop,     refused,  drop,     drop,     drop,     drop,    unknown}},
  {"$rollbackTrvDtmXact",  DTM_OPTION_BACKGROUND,                            DTM_WANT_ROLLEDBACK,  {unknown,  drop,     drop,     drop,     drop,     drop,     drop,    unknown}},
  {"$forgetTrvDtmXact",    0,                                                DTM_WANT_FORGOTTEN,   {unknown,  illegal,  illegal,  illegal,  illegal,  illegal,  illegal, done}},
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
    return {DTM_BAD_REQUEST, stays};
  }
  return rule->outcomes[static_cast<std::size_t>(situation)];
}

}  // namespace zdb
