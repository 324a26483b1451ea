// A small transaction manager that knows nothing but its own XA header, and drives whatever switch record it is given;
// and the two servers that it works with.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xa_long.h"

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

  // Starts the branch, ends it and prepares it. The first code that is not XA_OK.
  int prepared(int rmid, const std::string &global) const;
  // Scans for branches in doubt by batches of this count; the code when it is negative.
  int scan(int rmid, long count, std::vector<std::string> &globals) const;

 private:
  explicit Manager(const xa_switch_t *xa) : xa_(xa) {}

  const xa_switch_t *xa_;
};

// Two servers, and a configuration that knows them as L1 and L2. The parameter is the flavour.
class Banks : public testing::TestWithParam<const char *> {
 protected:
  Banks();
  ~Banks() override;

 private:
  std::string folder_;
};

// For any flavour: the key that MTS needs is passed over by the others.
std::string open_string(int rmid);

// What the server of rmid 1 does: it ends its sessions; it refuses logins; it answers as it should again.
void break_sessions();
void refuse_logins();
void refuse_nothing();
