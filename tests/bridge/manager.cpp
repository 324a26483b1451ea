// See the header. Every branch of a global transaction has the same qualifier.
#include "manager.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "interface/zdb_control.h"

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

int Manager::prepared(int rmid, const std::string &global) const {
  const int started = start(rmid, global);
  const int ended = started == XA_OK ? end(rmid, global) : started;
  return ended == XA_OK ? prepare(rmid, global) : ended;
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

Banks::Banks() {
  std::string path = std::filesystem::temp_directory_path() / "bridge.XXXXXX";
  folder_ = mkdtemp(path.data());
  std::ofstream(folder_ + "/xa_config") << "[xa]\nlrm=L1\nserver=bank1\n[xa]\nlrm=L2\nserver=bank2\n";
  setenv("XACONFIGFILE", (folder_ + "/xa_config").c_str(), 1);
  setenv("XALOGFILE", (folder_ + "/log").c_str(), 1);
  setenv("XADTM_FLAVOUR", GetParam(), 1);
  for (const char *server : {"bank1", "bank2"}) {
    EXPECT_EQ(zdb_create_server(server), 1);
    EXPECT_EQ(zdb_add_user(server, "sa", "pw", 1), 1);
  }
}

Banks::~Banks() {
  zdb_drop_server("bank1");
  zdb_drop_server("bank2");
  std::filesystem::remove_all(folder_);
}

std::string open_string(int rmid) {
  return rmid == 2 ? "-NL2 -Usa -Ppw -KK1" : "-NL1 -Usa -Ppw -KK1";
}

void break_sessions() {
  zdb_break_sessions("bank1", nullptr);
}

void refuse_logins() {
  zdb_add_user("bank1", "sa", "other", 1);
}

void refuse_nothing() {
  zdb_add_user("bank1", "sa", "pw", 1);
  zdb_set_dtm("bank1", 1);
  zdb_clear_scripts("bank1");
}
