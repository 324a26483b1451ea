// Two-phase commit with presumed abort: only decisions to commit are recorded.
#include "coordinator.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "base/xal_xa_names.h"

namespace {

constexpr int32_t format = 0x42414E4B;
constexpr int32_t scan_size = 50;

XID branch_of(const std::string &global, int32_t rmid) {
  const std::string part = std::to_string(rmid);
  XID xid{};
  xid.formatID = format;
  xid.gtrid_length = static_cast<int32_t>(global.size());
  xid.bqual_length = static_cast<int32_t>(part.size());
  std::memcpy(xid.data, global.data(), global.size());
  std::memcpy(xid.data + global.size(), part.data(), part.size());
  return xid;
}

std::string global_of(const XID &xid) {
  return xid.formatID == format ? std::string(xid.data, static_cast<size_t>(xid.gtrid_length)) : std::string();
}

bool is_rolled_back(int32_t code) {
  return code >= XA_RBBASE && code <= XA_RBEND;
}

bool is_heuristic(int32_t code) {
  return code >= XA_HEURMIX && code <= XA_HEURHAZ;
}

Completion completion_of(bool commits, int32_t code) {
  switch (code) {
    case XA_OK:
    case XAER_NOTA:  // completed before, and the answer was lost
      return Completion::as_decided;
    case XA_HEURCOM:
      return commits ? Completion::as_decided : Completion::otherwise;
    case XA_HEURRB:
      return commits ? Completion::otherwise : Completion::as_decided;
    case XA_HEURMIX:
    case XA_HEURHAZ:
      return Completion::otherwise;
    default:
      if (is_rolled_back(code)) {
        return commits ? Completion::otherwise : Completion::as_decided;
      }
      return Completion::not_yet;
  }
}

}  // namespace

void coordinator_step() {
  static const char *const text = std::getenv("BANK_DIE_AT");
  static const unsigned long long fatal = text == nullptr ? 0 : std::strtoull(text, nullptr, 10);
  static unsigned long long steps = 0;
  if (++steps == fatal) {
    kill(getpid(), SIGKILL);
  }
}

std::string xa_code_name(int32_t code) {
  const char *name = name_of_xa_code(code);
  return name != nullptr ? name : std::to_string(code);
}

Coordinator::Coordinator(const struct xa_switch_t &xa, std::vector<ResourceManager> managers, Decisions &decisions,
                         Observer observer)
    : xa_(xa), decisions_(decisions), observer_(std::move(observer)) {
  for (ResourceManager &manager : managers) {
    managers_.push_back({std::move(manager), false, false});
  }
}

// Makes one XA call and tells of it. The library closes a resource manager whose server has gone away.
int32_t Coordinator::call_once(const std::string &text, Manager &manager, const std::function<int32_t()> &verb) {
  coordinator_step();
  const int32_t code = verb();
  observer_(text + ' ' + std::to_string(manager.about.rmid), code);
  if (code == XAER_RMFAIL) {
    manager.open = false;
  }
  coordinator_step();
  return code;
}

int32_t Coordinator::open_one(Manager &manager) {
  const ResourceManager &about = manager.about;
  const int32_t code =
      call_once("open", manager, [&] { return xa_.xa_open_entry(about.open_string.c_str(), about.rmid, TMNOFLAGS); });
  manager.open = code == XA_OK;
  return code;
}

// Makes an XA call on a resource manager, which is opened again if need be: XAER_RMFAIL when that fails.
int32_t Coordinator::call(const std::string &text, Manager &manager, const std::function<int32_t()> &verb) {
  if (!manager.open && open_one(manager) != XA_OK) {
    return XAER_RMFAIL;
  }
  return call_once(text, manager, verb);
}

void Coordinator::open() {
  for (Manager &manager : managers_) {
    const int32_t code = manager.open ? XA_OK : open_one(manager);
    if (code != XA_OK) {
      throw ResourceManagerError("resource manager " + manager.about.lrm + " cannot be opened: " + xa_code_name(code));
    }
  }
}

void Coordinator::close() {
  for (Manager &manager : managers_) {
    call_once("close", manager, [&] { return xa_.xa_close_entry("", manager.about.rmid, TMNOFLAGS); });
    manager.open = false;
  }
}

// ---- A transaction --------------------------------------------------------------------------------------------------

bool Coordinator::start_all(const std::string &global, size_t &started) {
  for (Manager &manager : managers_) {
    const XID xid = branch_of(global, manager.about.rmid);
    const int32_t code =
        call("start " + global, manager, [&] { return xa_.xa_start_entry(&xid, manager.about.rmid, TMNOFLAGS); });
    if (code != XA_OK) {
      reason_ = "start answered " + xa_code_name(code);
      return false;
    }
    ++started;
  }
  return true;
}

bool Coordinator::end_all(const std::string &global, size_t started, int32_t flags) {
  bool ended = true;
  for (size_t i = 0; i < started; ++i) {
    Manager &manager = managers_[i];
    const XID xid = branch_of(global, manager.about.rmid);
    const int32_t code =
        call("end " + global, manager, [&] { return xa_.xa_end_entry(&xid, manager.about.rmid, flags); });
    if (code != XA_OK) {
      reason_ = "end answered " + xa_code_name(code);
      ended = false;
    }
  }
  return ended;
}

bool Coordinator::prepare_all(const std::string &global) {
  for (Manager &manager : managers_) {
    const XID xid = branch_of(global, manager.about.rmid);
    const int32_t code =
        call("prepare " + global, manager, [&] { return xa_.xa_prepare_entry(&xid, manager.about.rmid, TMNOFLAGS); });
    manager.voted_read_only = code == XA_RDONLY;
    if (code != XA_OK && !manager.voted_read_only) {
      reason_ = "prepare answered " + xa_code_name(code);
      return false;
    }
  }
  return true;
}

// It is decided: what cannot be told now is told by recover().
Outcome Coordinator::commit_all(const std::string &global) {
  Outcome outcome = Outcome::committed;
  for (Manager &manager : managers_) {
    const XID xid = branch_of(global, manager.about.rmid);
    if (!manager.voted_read_only && complete(manager, xid, global, true) == Completion::otherwise) {
      outcome = Outcome::mixed;
    }
  }
  return outcome;
}

// What cannot be told now was never prepared, or is rolled back by recover().
Outcome Coordinator::roll_back_all(const std::string &global, size_t started) {
  Outcome outcome = Outcome::rolled_back;
  for (size_t i = 0; i < started; ++i) {
    Manager &manager = managers_[i];
    const XID xid = branch_of(global, manager.about.rmid);
    if (!manager.voted_read_only && complete(manager, xid, global, false) == Completion::otherwise) {
      outcome = Outcome::mixed;
    }
  }
  return outcome;
}

// Starts the branches, does the work and ends them; false when the transaction must be rolled back.
bool Coordinator::work_all(const std::string &global, const std::function<void()> &work, size_t &started) {
  if (!start_all(global, started)) {
    end_all(global, started, TMFAIL);
    return false;
  }
  try {
    work();
  } catch (const std::exception &error) {
    end_all(global, started, TMFAIL);
    reason_ = error.what();
    return false;
  }
  return end_all(global, started, TMSUCCESS);
}

// The resource manager decides, and so there is nothing to recover.
Outcome Coordinator::commit_one_phase(const std::string &global) {
  Manager &manager = managers_.front();
  const XID xid = branch_of(global, manager.about.rmid);
  const int32_t code =
      call("commit " + global, manager, [&] { return xa_.xa_commit_entry(&xid, manager.about.rmid, TMONEPHASE); });
  if (code == XA_HEURCOM || code == XA_HEURRB) {
    forget(manager, xid, global);  // nobody else had a part in it
  }
  if (code == XA_OK || code == XA_HEURCOM) {
    return Outcome::committed;
  }
  reason_ = "commit answered " + xa_code_name(code);
  if (code == XA_HEURRB || is_rolled_back(code)) {
    return Outcome::rolled_back;
  }
  return is_heuristic(code) ? Outcome::mixed : Outcome::unknown;
}

Outcome Coordinator::run(const std::string &global, const std::function<void()> &work,
                         const std::function<bool()> &confirmed) {
  size_t started = 0;
  reason_.clear();
  for (Manager &manager : managers_) {
    manager.voted_read_only = false;
  }
  const bool worked = work_all(global, work, started);
  if (worked && managers_.size() == 1) {
    return commit_one_phase(global);
  }
  if (!worked || !prepare_all(global) || !confirmed()) {
    return roll_back_all(global, started);
  }
  coordinator_step();
  decisions_.commit(global);
  coordinator_step();
  return commit_all(global);
}

// ---- Recovery -------------------------------------------------------------------------------------------------------

// The resource manager keeps a branch that others have ended until it may forget that.
void Coordinator::forget(Manager &manager, const XID &xid, const std::string &global) {
  call("forget " + global, manager, [&] { return xa_.xa_forget_entry(&xid, manager.about.rmid, TMNOFLAGS); });
}

Completion Coordinator::complete(Manager &manager, const XID &xid, const std::string &global, bool commits) {
  const std::string verb = commits ? "commit" : "rollback";
  const int32_t code = call(verb + ' ' + global, manager, [&] {
    return commits ? xa_.xa_commit_entry(&xid, manager.about.rmid, TMNOFLAGS)
                   : xa_.xa_rollback_entry(&xid, manager.about.rmid, TMNOFLAGS);
  });
  const Completion completion = completion_of(commits, code);
  if (completion == Completion::as_decided && is_heuristic(code)) {
    forget(manager, xid, global);
  }
  if (completion == Completion::otherwise) {
    reason_ = verb + " of " + manager.about.lrm + " answered " + xa_code_name(code);
  }
  return completion;
}

std::vector<XID> Coordinator::branches_in_doubt(Manager &manager) {
  std::vector<XID> in_doubt;
  int32_t flags = TMSTARTRSCAN;
  for (;;) {
    XID batch[scan_size];
    const int32_t found =
        call("recover", manager, [&] { return xa_.xa_recover_entry(batch, scan_size, manager.about.rmid, flags); });
    if (found < 0) {
      throw ResourceManagerError("the scan of " + manager.about.lrm + " answered " + xa_code_name(found));
    }
    in_doubt.insert(in_doubt.end(), batch, batch + found);
    if (found < scan_size) {
      return in_doubt;
    }
    flags = TMNOFLAGS;
  }
}

int32_t Coordinator::recover_one(Manager &manager, const std::string &prefix, std::string &problems) {
  int32_t completed = 0;
  for (const XID &xid : branches_in_doubt(manager)) {
    const std::string global = global_of(xid);
    if (global.empty() || !global.starts_with(prefix)) {
      continue;
    }
    const Completion completion = complete(manager, xid, global, decisions_.is_committed(global));
    if (completion == Completion::as_decided) {
      ++completed;
      continue;
    }
    problems.append(problems.empty() ? "" : "; ").append("branch ").append(global).append(" of ");
    problems.append(manager.about.lrm)
        .append(completion == Completion::not_yet
                    ? " cannot be completed now"
                    : " ended otherwise than was decided: " + reason_ + "; put the data right, then forget the branch");
  }
  return completed;
}

int32_t Coordinator::recover(const std::string &prefix) {
  int32_t completed = 0;
  std::string problems;
  for (Manager &manager : managers_) {
    completed += recover_one(manager, prefix, problems);
  }
  if (!problems.empty()) {
    throw ResourceManagerError(problems);
  }
  return completed;
}
