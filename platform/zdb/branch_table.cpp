/* branch_table.cpp - keeps the branches of one server and applies the rules to them; see the header. */
#include "branch_table.h"

#include <algorithm>

#include "zdb_control.h"

namespace zdb {
namespace {

bool is_heuristic(int32_t state) {
  return state == ZDB_HEUR_COMMITTED || state == ZDB_HEUR_ROLLED_BACK;
}

}  // namespace

Situation BranchTable::situation(const std::string &name, int session) const {
  const auto found = branches_.find(name);
  if (found == branches_.end()) {
    return Situation::unknown;
  }
  switch (found->second.state) {
    case ZDB_ATTACHED:
      return found->second.holder == session ? Situation::attached_here : Situation::attached_elsewhere;
    case ZDB_ENDED:
    case ZDB_SUSPENDED:
      return Situation::ended;
    case ZDB_MIGRATED:
      return Situation::migrated;
    case ZDB_ABORT_ONLY:
      return Situation::abort_only;
    case ZDB_PREPARED:
      return Situation::prepared;
    default:
      return Situation::heuristic;
  }
}

void BranchTable::change(const std::string &name, int32_t next, int session) {
  if (next == stays) {
    return;
  }
  if (next == gone) {
    branches_.erase(name);
    return;
  }
  Branch &branch = branches_[name];
  branch.state = next;
  branch.holder = next == ZDB_ATTACHED ? session : 0;
  if (next == ZDB_PREPARED) {
    branch.prepared_as = ++preparations_;
  }
}

int32_t BranchTable::apply(std::string_view procedure, const std::string &name, int32_t flags, int32_t wanted,
                           int session) {
  if (name.empty()) {
    return refused_request;
  }
  const int32_t prior = state(name);
  const Outcome outcome = find_outcome(procedure, flags, wanted, situation(name, session));
  change(name, outcome.next, session);
  return outcome.answer == answer_prior ? prior : outcome.answer;
}

void BranchTable::abandon(int session) {
  for (auto &[name, branch] : branches_) {
    if (branch.state == ZDB_ATTACHED && branch.holder == session) {
      branch.state = ZDB_ABORT_ONLY;
      branch.holder = 0;
    }
  }
}

bool BranchTable::force(const std::string &name, bool commit) {
  if (state(name) != ZDB_PREPARED) {
    return false;
  }
  branches_[name].state = commit ? ZDB_HEUR_COMMITTED : ZDB_HEUR_ROLLED_BACK;
  return true;
}

bool BranchTable::plant_prepared(const std::string &name) {
  if (name.empty() || state(name) != ZDB_UNKNOWN) {
    return false;
  }
  change(name, ZDB_PREPARED, 0);
  return true;
}

int32_t BranchTable::state(const std::string &name) const {
  const auto found = branches_.find(name);
  return found == branches_.end() ? ZDB_UNKNOWN : found->second.state;
}

std::vector<std::string> BranchTable::in_doubt() const {
  std::vector<std::pair<uint64_t, std::string>> ordered;
  for (const auto &[name, branch] : branches_) {
    if (branch.state == ZDB_PREPARED || is_heuristic(branch.state)) {
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
