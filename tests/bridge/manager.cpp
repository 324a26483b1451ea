// Presumed abort: what was not decided to be committed is rolled back.
#include "manager.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>

namespace {

constexpr long format = 0x4C4F4E47;
constexpr const char *qualifier = "b";

XID branch_of(const std::string &global) {
  XID xid;
  std::memset(&xid, 0xee, sizeof xid);  // a manager need not clear what it does not use
  xid.formatID = format;
  xid.gtrid_length = static_cast<long>(global.size());
  xid.bqual_length = 1;
  std::memcpy(xid.data, global.data(), global.size());
  xid.data[global.size()] = *qualifier;
  return xid;
}

void *load(const std::string &library, const std::string &name) {
  void *loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  void *found = loaded == nullptr ? nullptr : dlsym(loaded, name.c_str());
  if (found == nullptr) {
    throw std::runtime_error(dlerror());
  }
  return found;
}

}  // namespace

Manager::Manager(const std::string &library, const std::string &record)
    : xa_(static_cast<const xa_switch_t *>(load(library, record))) {}

Manager Manager::of_module(const std::string &library, const std::string &function) {
  return Manager(reinterpret_cast<const xa_switch_t *(*)()>(load(library, function))());
}

int Manager::open(int rmid, const std::string &info, long flags) const {
  std::string copy = info;
  const int code = xa_->xa_open_entry(copy.data(), rmid, flags);
  copy.assign(copy.size(), '?');  // the manager's string lasts no longer than the call
  return code;
}

int Manager::close(int rmid) const {
  char info[] = "";
  return xa_->xa_close_entry(info, rmid, TMNOFLAGS);
}

int Manager::start(int rmid, const std::string &global, long flags) const {
  XID xid = branch_of(global);
  return xa_->xa_start_entry(&xid, rmid, flags);
}

int Manager::end(int rmid, const std::string &global, long flags) const {
  XID xid = branch_of(global);
  return xa_->xa_end_entry(&xid, rmid, flags);
}

int Manager::prepare(int rmid, const std::string &global) const {
  XID xid = branch_of(global);
  return xa_->xa_prepare_entry(&xid, rmid, TMNOFLAGS);
}

int Manager::commit(int rmid, const std::string &global, long flags) const {
  XID xid = branch_of(global);
  return xa_->xa_commit_entry(&xid, rmid, flags);
}

int Manager::rollback(int rmid, const std::string &global) const {
  XID xid = branch_of(global);
  return xa_->xa_rollback_entry(&xid, rmid, TMNOFLAGS);
}

int Manager::forget(int rmid, const std::string &global) const {
  XID xid = branch_of(global);
  return xa_->xa_forget_entry(&xid, rmid, TMNOFLAGS);
}

int Manager::worked(int rmid, const std::string &global) const {
  const int started = start(rmid, global);
  return started == XA_OK ? end(rmid, global) : started;
}

int Manager::prepared(int rmid, const std::string &global) const {
  const int ended = worked(rmid, global);
  return ended == XA_OK ? prepare(rmid, global) : ended;
}

Outcome Manager::run(const std::vector<int> &rmids, const std::string &global, bool commits) {
  if (rmids.size() > 1 || !commits) {
    return run_two_phases(rmids, global, commits);
  }
  const int worked_code = worked(rmids.front(), global);
  const int code = worked_code == XA_OK ? commit(rmids.front(), global, TMONEPHASE) : rollback(rmids.front(), global);
  const bool rolled_back = worked_code != XA_OK || (code >= XA_RBBASE && code <= XA_RBEND);
  return rolled_back ? Outcome::rolled_back : code == XA_OK ? Outcome::committed : Outcome::unknown;
}

Outcome Manager::run_two_phases(const std::vector<int> &rmids, const std::string &global, bool commits) {
  for (const int rmid : rmids) {
    commits = prepared(rmid, global) == XA_OK && commits;
  }
  if (commits) {
    decide(global);
  }
  bool all_told = true;
  for (const int rmid : rmids) {
    all_told = complete(rmid, global) == XA_OK && all_told;
  }
  if (!all_told) {
    return Outcome::unknown;
  }
  return commits ? Outcome::committed : Outcome::rolled_back;
}

int Manager::complete(int rmid, const std::string &global) const {
  return decided_.contains(global) ? commit(rmid, global) : rollback(rmid, global);
}

int Manager::scan(int rmid, long count, std::vector<std::string> &globals) const {
  std::vector<XID> batch(static_cast<size_t>(count));
  long flags = TMSTARTRSCAN;
  for (;;) {
    const int found = xa_->xa_recover_entry(batch.data(), count, rmid, flags);
    if (found < 0) {
      return found;
    }
    for (int i = 0; i < found; ++i) {
      const XID &xid = batch[static_cast<size_t>(i)];
      const auto length = static_cast<size_t>(xid.gtrid_length);
      const bool own = xid.formatID == format && xid.bqual_length == 1 && xid.data[length] == *qualifier;
      globals.push_back(own ? std::string(xid.data, length) : "stranger");
    }
    if (found < count) {
      return static_cast<int>(globals.size());
    }
    flags = TMNOFLAGS;
  }
}

int Manager::recover(int rmid, long count) {
  std::vector<std::string> globals;
  const int found = scan(rmid, count, globals);
  for (const std::string &global : globals) {
    if (const int code = complete(rmid, global); code != XA_OK) {
      return code;
    }
  }
  return found;
}
