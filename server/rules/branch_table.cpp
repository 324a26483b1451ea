// Keeps the branches of one server and applies the rules to them; see the header.
#include "rules/branch_table.h"

#include <algorithm>

#include "dtm/dtm_protocol.h"

namespace zdb {
namespace {

bool is_heuristic(int32_t state) {
  return state == DTM_STATE_HEUR_COMMITTED || state == DTM_STATE_HEUR_ROLLEDBACK;
}

}  // namespace

Situation BranchTable::situation(const std::string &name, int session) const {
  const auto found = branches_.find(name);
  if (found == branches_.end()) {
    return Situation::unknown;
  }
  switch (found->second.state) {
    case DTM_STATE_ATTACHED:
      return found->second.holder == session ? Situation::attached_here : Situation::attached_elsewhere;
    case DTM_STATE_ENDED:
    case DTM_STATE_SUSPENDED:
      return Situation::ended;
    case DTM_STATE_DETACHED:
      return Situation::migrated;
    case DTM_STATE_ABORTONLY:
      return Situation::abort_only;
    case DTM_STATE_PREPARED:
      return Situation::prepared;
    default:
      return Situation::heuristic;
  }
}

Plan BranchTable::plan(const DtmRequest &request, int session) const {
  if (request.branch.empty()) {
    return {DTM_BAD_REQUEST, stays, Effect::none};
  }
  const Situation now = situation(request.branch, session);
  const Outcome outcome = find_outcome(request.procedure, request.flags, request.wanted, now);
  const int32_t answer = outcome.answer == answer_prior ? state(request.branch) : outcome.answer;
  Effect effect = Effect::none;
  if (outcome.next == DTM_STATE_PREPARED) {
    effect = Effect::prepare;
  } else if (outcome.next == DTM_STATE_ABORTONLY) {
    effect = Effect::roll_back;
  } else if (outcome.next == gone && now == Situation::heuristic) {
    effect = Effect::forget;
  } else if (outcome.next == gone) {
    effect = is_commit(request.procedure) ? Effect::commit : Effect::roll_back;
  }
  return {answer, outcome.next, effect};
}

Branch &BranchTable::change(const std::string &name, int32_t next, int session) {
  Branch &branch = branches_[name];
  branch.state = next;
  branch.holder = next == DTM_STATE_ATTACHED ? session : 0;
  branch.since = Clock::now();
  if (next == DTM_STATE_PREPARED) {
    branch.prepared_as = ++preparations_;
  }
  return branch;
}

Branch *BranchTable::find(const std::string &name) {
  const auto found = branches_.find(name);
  return found == branches_.end() ? nullptr : &found->second;
}

void BranchTable::interrupt_work() {
  for (auto &[name, branch] : branches_) {
    if (branch.busy) {
      branch.work->interrupt();
    }
  }
}

std::vector<BranchRow> BranchTable::rows() const {
  std::vector<BranchRow> all;
  all.reserve(branches_.size());
  for (const auto &[name, branch] : branches_) {
    const bool locks_data = branch.work != nullptr && branch.work->locks_data();
    all.push_back({name, branch.state, branch.since, branch.holder != 0, locks_data});
  }
  return all;
}

std::vector<std::string> BranchTable::held_by(int session) const {
  std::vector<std::string> names;
  for (const auto &[name, branch] : branches_) {
    if (branch.state == DTM_STATE_ATTACHED && branch.holder == session) {
      names.push_back(name);
    }
  }
  return names;
}

std::vector<std::string> BranchTable::orphans(Clock::time_point ended_before) const {
  std::vector<std::string> names;
  for (const auto &[name, branch] : branches_) {
    const bool ended =
        branch.state == DTM_STATE_ENDED || branch.state == DTM_STATE_SUSPENDED || branch.state == DTM_STATE_DETACHED;
    if (ended && !branch.busy && branch.since < ended_before) {
      names.push_back(name);
    }
  }
  return names;
}

std::vector<std::string> BranchTable::abort_only(Clock::time_point since_before) const {
  std::vector<std::string> names;
  for (const auto &[name, branch] : branches_) {
    if (branch.state == DTM_STATE_ABORTONLY && !branch.busy && branch.since < since_before) {
      names.push_back(name);
    }
  }
  return names;
}

int32_t BranchTable::state(const std::string &name) const {
  const auto found = branches_.find(name);
  return found == branches_.end() ? DTM_STATE_UNKNOWN : found->second.state;
}

std::vector<std::string> BranchTable::in_doubt() const {
  std::vector<std::pair<uint64_t, std::string>> ordered;
  for (const auto &[name, branch] : branches_) {
    if (branch.state == DTM_STATE_PREPARED || is_heuristic(branch.state)) {
      ordered.emplace_back(branch.prepared_as, name);
    }
  }
  std::sort(ordered.begin(), ordered.end());
  std::vector<std::string> names;
  names.reserve(ordered.size());
  for (auto &[order, name] : ordered) {
    names.push_back(std::move(name));
  }
  return names;
}

}  // namespace zdb
