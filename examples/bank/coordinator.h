// A small transaction manager: global transactions over the branches of several resource managers, by
// two-phase commit through a switch record, and their recovery.
//
// A branch's XID has the global transaction's name as gtrid and the resource manager's number as bqual. One thread uses
// a coordinator.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "decisions.h"
#include "xa.h"

struct ResourceManager {
  int32_t rmid = 0;
  std::string lrm;  // its name in the open string
  std::string open_string;
};

// A resource manager cannot be used now.
struct ResourceManagerError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// mixed: somebody else has ended a branch, or a part of one, otherwise than was decided.
// unknown: of a transaction with one branch, whose commit was asked for and not answered.
enum class Outcome { committed, rolled_back, mixed, unknown };

// What an answer says of a branch that was to be completed.
enum class Completion { as_decided, otherwise, not_yet };

class Coordinator {
 public:
  // Is told every XA call and its result.
  using Observer = std::function<void(const std::string &call, int32_t code)>;

  Coordinator(const struct xa_switch_t &xa, std::vector<ResourceManager> managers, Decisions &decisions,
              Observer observer);

  // Opens what is not open. Throws ResourceManagerError.
  void open();
  void close();

  // Runs the work in a new global transaction and commits it: in one phase when there is one resource manager, else in
  // two. What the work throws rolls it back, as does a "no" to the question that is asked once all are prepared. A
  // transaction counts as committed once that is decided: branches that cannot be told now are left to recover().
  // A branch that ended otherwise stays listed at its resource manager: it is forgotten by whoever has put that right.
  Outcome run(
      const std::string &global, const std::function<void()> &work,
      const std::function<bool()> &confirmed = [] { return true; });

  // Completes the branches in doubt whose global names begin with the prefix, by what was decided, and returns their
  // number. Throws ResourceManagerError when not all could be completed as decided, after it has tried each of them.
  int32_t recover(const std::string &prefix);

  // Why the last transaction was not committed, or is not whole.
  const std::string &reason() const { return reason_; }

 private:
  struct Manager {
    ResourceManager about;
    bool open = false;
    bool voted_read_only = false;  // its branch of this transaction ended with the prepare
  };

  int32_t open_one(Manager &manager);
  int32_t call_once(const std::string &text, Manager &manager, const std::function<int32_t()> &verb);
  int32_t call(const std::string &text, Manager &manager, const std::function<int32_t()> &verb);
  bool start_all(const std::string &global, size_t &started);
  bool end_all(const std::string &global, size_t started, int32_t flags);
  bool prepare_all(const std::string &global);
  bool work_all(const std::string &global, const std::function<void()> &work, size_t &started);
  Outcome commit_one_phase(const std::string &global);
  Outcome commit_all(const std::string &global);
  Outcome roll_back_all(const std::string &global, size_t started);
  std::vector<XID> branches_in_doubt(Manager &manager);
  int32_t recover_one(Manager &manager, const std::string &prefix, std::string &problems);
  Completion complete(Manager &manager, const XID &xid, const std::string &global, bool commits);
  void forget(Manager &manager, const XID &xid, const std::string &global);

  const struct xa_switch_t &xa_;
  std::vector<Manager> managers_;
  Decisions &decisions_;
  Observer observer_;
  std::string reason_;
};

// The name of an XA result code.
std::string xa_code_name(int32_t code);

// Counts the steps of this process (each XA call and each decision, before and after) and dies by kill -9 at the one
// that the environment variable "BANK_DIE_AT" names.
void coordinator_step();
