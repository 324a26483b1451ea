// The transaction branches of one server: their states, the sessions that hold them, their work, and
// the order in which they were prepared. The rules of branch_rules.h decide; this only keeps. The owning server locks.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "rules/branch_rules.h"
#include "store/store.h"

namespace zdb {

// A request to a DTM procedure.
struct DtmRequest {
  std::string procedure;
  std::string branch;
  int32_t flags = -1;
  int32_t wanted = -1;
};

// What has to happen to a branch's work when a request is carried out.
enum class Effect : uint8_t { none, prepare, commit, roll_back, forget };

// What a request comes to in the branch's present situation.
struct Plan {
  int32_t answer;
  int32_t next;  // the branch's next state, `stays` or `gone`
  Effect effect;
};

struct Branch {
  int32_t state = 0;
  int holder = 0;            // the session, while attached
  uint64_t prepared_as = 0;  // grows with every preparation
  Clock::time_point since;   // when it entered its state
  std::shared_ptr<Work> work;
  bool busy = false;  // a thread is at the work, without the server's lock: nobody else may change the branch
};

class BranchTable {
 public:
  Plan plan(const DtmRequest &request, int session) const;
  // Makes the branch when there is none; the caller then gives it its work.
  Branch &change(const std::string &name, int32_t next, int session);
  void remove(const std::string &name) { branches_.erase(name); }
  void clear() { branches_.clear(); }

  // Null when there is no such branch; the pointer is good until the next removal.
  Branch *find(const std::string &name);
  // DTM_STATE_UNKNOWN when there is no such branch.
  int32_t state(const std::string &name) const;
  std::size_t count() const { return branches_.size(); }
  std::vector<BranchRow> rows() const;
  // Has the threads fail soon that are at a branch's work; needs no memory.
  void interrupt_work();
  std::vector<std::string> held_by(int session) const;
  // Branches that were ended before the time and that nobody holds, prepared or completed.
  std::vector<std::string> orphans(Clock::time_point ended_before) const;
  // Branches that have been abort-only since before the time.
  std::vector<std::string> abort_only(Clock::time_point since_before) const;
  // Names of the prepared and heuristically completed branches in the order of their preparation.
  std::vector<std::string> in_doubt() const;

 private:
  Situation situation(const std::string &name, int session) const;

  std::map<std::string, Branch> branches_;
  uint64_t preparations_ = 0;
};

}  // namespace zdb
