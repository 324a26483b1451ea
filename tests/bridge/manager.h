// A small transaction manager that knows nothing but its own XA header, and drives whatever switch record it is given.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "xa_long.h"

// How a transaction came out; unknown: it is decided, but not every branch could be told.
enum class Outcome { committed, rolled_back, unknown };

class Manager {
 public:
  // Loads the library and takes the record of that name from it; throws std::runtime_error.
  Manager(const std::string &library, const std::string &record);
  // Asks the library's function of that name for the record.
  static Manager of_module(const std::string &library, const std::string &function);

  const xa_switch_t &xa() const { return *xa_; }

  int open(int rmid, const std::string &info, long flags = TMNOFLAGS) const;
  int close(int rmid) const;
  int start(int rmid, const std::string &global, long flags = TMNOFLAGS) const;
  int end(int rmid, const std::string &global, long flags = TMSUCCESS) const;
  int prepare(int rmid, const std::string &global) const;
  int commit(int rmid, const std::string &global, long flags = TMNOFLAGS) const;
  int rollback(int rmid, const std::string &global) const;
  int forget(int rmid, const std::string &global) const;
  int end_scan(int rmid) const { return xa_->xa_recover_entry(nullptr, 0, rmid, TMENDRSCAN); }

  // Starts the branch and ends it; with the rest, prepares it. The first code that is not XA_OK.
  int worked(int rmid, const std::string &global) const;
  int prepared(int rmid, const std::string &global) const;

  // A global transaction with a branch in every resource manager: one phase when there is one, else two.
  Outcome run(const std::vector<int> &rmids, const std::string &global, bool commits = true);
  // Scans for branches in doubt by batches of this count; the code when it is negative.
  int scan(int rmid, long count, std::vector<std::string> &globals) const;
  // Notes the decision that a transaction is committed, as a crash before the second phase leaves it.
  void decide(const std::string &global) { decided_.insert(global); }
  // Completes what a scan by batches of this count finds, as was decided; the number of branches, or a negative code.
  int recover(int rmid, long count);

 private:
  explicit Manager(const xa_switch_t *xa) : xa_(xa) {}
  int complete(int rmid, const std::string &global) const;
  Outcome run_two_phases(const std::vector<int> &rmids, const std::string &global, bool commits);

  const xa_switch_t *xa_;
  std::set<std::string> decided_;
};
