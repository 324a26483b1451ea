/*
 * branch_table.h - the transaction branches of one server: their states, the sessions that hold them and the order in
 * which they were prepared. The rules of branch_rules.h decide; this only keeps. The owning server locks.
 */
#ifndef ZDB_BRANCH_TABLE_H
#define ZDB_BRANCH_TABLE_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "branch_rules.h"

namespace zdb {

class BranchTable {
 public:
  /* Carries one DTM request of a session out and returns the status to answer. */
  int32_t apply(std::string_view procedure, const std::string &name, int32_t flags, int32_t wanted, int session);
  /* A session ended while branches were attached to it: their work cannot be told apart from lost work. */
  void abandon(int session);
  bool force(const std::string &name, bool commit);
  bool plant_prepared(const std::string &name);
  void clear() { branches_.clear(); }

  /* ZDB_UNKNOWN when there is no such branch. */
  int32_t state(const std::string &name) const;
  std::size_t count() const { return branches_.size(); }
  /* Names of the prepared and heuristically completed branches in the order of their preparation. */
  std::vector<std::string> in_doubt() const;

 private:
  struct Branch {
    int32_t state = 0;
    int holder = 0;           /* the session, while attached */
    uint64_t prepared_as = 0; /* grows with every preparation */
  };

  Situation situation(const std::string &name, int session) const;
  void change(const std::string &name, int32_t next, int session);

  std::map<std::string, Branch> branches_;
  uint64_t preparations_ = 0;
};

}  // namespace zdb

#endif /* ZDB_BRANCH_TABLE_H */
