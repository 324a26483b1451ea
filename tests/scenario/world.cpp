// See the header. The clock and the call hook are process-wide, so there is one world at a time.
#include "world.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common_control.h"
#include "dtm/xal_dtm.h"
#include "personality/xal_personality.h"
#include "personality/xal_threads.h"
#include "quillet_control.h"
#include "record/xal_record.h"

namespace {

World *the_world = nullptr;
thread_local bool held_at_gate = false;

void note_sleep(uint32_t seconds) {
  static std::mutex mutex;
  std::unique_lock<std::mutex> lock(mutex);
  the_world->slept.push_back(seconds);
  const auto found = the_world->when_asleep.find(the_world->slept.size());
  lock.unlock();
  if (found != the_world->when_asleep.end()) {
    found->second();
  }
}

int32_t watch_call(const char *operation, void *argument) {
  auto &world = *static_cast<World *>(argument);
  const int32_t mutex = _xa_txs_serialize.load();
  if (world.watch && mutex != 0) {
    const bool held = qlt_mutex_held_here(mutex) == 1;
    world.held_while_waiting += std::strcmp(operation, "ct_results") == 0 && held ? 1 : 0;
    world.free_while_sending += std::strcmp(operation, "ct_send") == 0 && !held ? 1 : 0;
  }
  world.commands_made += std::strcmp(operation, "ct_cmd_alloc") == 0 ? 1 : 0;
  world.commands_made -= std::strcmp(operation, "ct_cmd_drop") == 0 ? 1 : 0;
  world.inits += std::strcmp(operation, "ct_init") == 0 ? 1 : 0;
  if (Gate *gate = world.gate.load(); gate != nullptr) {
    gate->pass(operation);
  }
  return QLT_HOOK_PROCEED;
}

constexpr int32_t rmids[] = {1, 2, 3};

int32_t close_all(const World &world) {
  int32_t worst = XA_OK;
  for (const int32_t rmid : rmids) {
    const int32_t closed = world.close(rmid);
    // An identity that never opened anything has nothing to close; nor has a process without a flavour.
    const bool fine = closed == XA_OK || closed == XAER_RMERR || active_personality().tm_type == XATM_NONE;
    worst = fine ? worst : closed;
  }
  return worst;
}

}  // namespace

const char *flavour_name(unsigned flavour) {
  return flavour == MTS ? "mts" : flavour == TUX ? "tux" : "txs";
}

const xa_switch_t &flavour_switch(unsigned flavour) {
  return flavour == MTS ? tarvex_MTS_xa_switch : flavour == TUX ? tarvex_TUX_xa_switch : tarvex_TXS_xa_switch;
}

Worker::Worker() : thread_([this] { loop(); }) {}

Worker::~Worker() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ends_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Worker::loop() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ends_ || work_ != nullptr; });
    if (work_ == nullptr) {
      return;
    }
    const std::function<int32_t()> work = std::move(work_);
    work_ = nullptr;
    lock.unlock();
    const int32_t result = work();
    lock.lock();
    result_ = result;
    busy_ = false;
    changed_.notify_all();
  }
}

void Worker::start(std::function<int32_t()> work) {
  const std::lock_guard<std::mutex> lock(mutex_);
  work_ = std::move(work);
  busy_ = true;
  changed_.notify_all();
}

bool Worker::idle() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return !busy_;
}

int32_t Worker::result() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return !busy_; });
  return result_;
}

int32_t Worker::run(const std::function<int32_t()> &work) {
  start(work);
  return result();
}

void Gate::hold_me() {
  held_at_gate = true;
}

void Gate::wait_until_held() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return held_; });
}

void Gate::open() {
  const std::lock_guard<std::mutex> lock(mutex_);
  open_ = true;
  changed_.notify_all();
}

void Gate::pass(const char *operation) {
  if (!held_at_gate || operation_ != operation) {
    return;
  }
  held_at_gate = false;
  std::unique_lock<std::mutex> lock(mutex_);
  held_ = true;
  changed_.notify_all();
  changed_.wait(lock, [this] { return open_; });
}

World::World(unsigned of_flavour) : flavour(of_flavour) {
  std::string path = std::filesystem::temp_directory_path() / "scenario.XXXXXX";
  directory_ = mkdtemp(path.data());
  const std::string config_path = directory_ + "/xa_config";
  log_path = directory_ + "/log";
  std::ofstream(config_path) << "[all]\ntraceflags=all\n[xa]\nlrm=L1\nserver=bank1\n[xa]\nlrm=L2\nserver=bank2\n"
                                "options=CS_OPT_ISOLATION=CS_OPT_LEVEL3\n";
  setenv("XACONFIGFILE", config_path.c_str(), 1);
  setenv("XALOGFILE", log_path.c_str(), 1);
  for (const char *server : {"bank1", "bank2"}) {
    EXPECT_EQ(zdb_create_server(server), 1);
    EXPECT_EQ(zdb_add_user(server, "sa", "pw", 1), 1);
  }
  the_world = this;
  xal_sleep = note_sleep;
  qlt_set_call_hook(watch_call, this);
}

World::~World() {
  qlt_set_call_hook(nullptr, nullptr);
  std::filesystem::remove_all(directory_);
}

std::string World::open_string(int32_t rmid) const {
  std::string text = rmid == 2 ? "-NL2 -Usa -Ppw" : "-NL1 -Usa -Ppw";
  text.append(server_option);
  return flavour == MTS ? text.append(" -KK1") : text;
}

int32_t World::open(int32_t rmid) const {
  return xa().xa_open_entry(open_string(rmid).c_str(), rmid, TMNOFLAGS);
}

int32_t World::start(int32_t rmid, const std::string &branch, int32_t flags) const {
  const XID xid = xid_of(branch);
  return xa().xa_start_entry(&xid, rmid, flags);
}

int32_t World::end(int32_t rmid, const std::string &branch, int32_t flags) const {
  const XID xid = xid_of(branch);
  return xa().xa_end_entry(&xid, rmid, flags);
}

int32_t World::prepare(int32_t rmid, const std::string &branch, int32_t flags) const {
  const XID xid = xid_of(branch);
  return xa().xa_prepare_entry(&xid, rmid, flags);
}

int32_t World::commit(int32_t rmid, const std::string &branch, int32_t flags) const {
  const XID xid = xid_of(branch);
  return xa().xa_commit_entry(&xid, rmid, flags);
}

int32_t World::rollback(int32_t rmid, const std::string &branch, int32_t flags) const {
  const XID xid = xid_of(branch);
  return xa().xa_rollback_entry(&xid, rmid, flags);
}

int32_t World::forget(int32_t rmid, const std::string &branch, int32_t flags) const {
  const XID xid = xid_of(branch);
  return xa().xa_forget_entry(&xid, rmid, flags);
}

int32_t World::prepared(int32_t rmid, const std::string &branch) const {
  const int32_t started = start(rmid, branch);
  const int32_t ended = started == XA_OK ? end(rmid, branch) : started;
  return ended == XA_OK ? prepare(rmid, branch) : ended;
}

bool World::logged(const std::string &text) const {
  std::ostringstream log;
  log << std::ifstream(log_path).rdbuf();
  return log.str().find(text) != std::string::npos;
}

int32_t World::state(const std::string &branch, const char *lrm) {
  return zdb_branch_state(std::strcmp(lrm, "L2") == 0 ? "bank2" : bank, branch_name(branch, lrm).c_str());
}

void World::expect_mutex_respected() const {
  EXPECT_EQ(held_while_waiting, 0) << "ct_results was called with the serialisation mutex held";
  EXPECT_EQ(free_while_sending, 0) << "ct_send was called without the serialisation mutex";
}

void World::expect_nothing_left() {
  zdb_clear_scripts("bank1");
  zdb_clear_scripts("bank2");
  EXPECT_EQ(close_all(*this), XA_OK);
  EXPECT_EQ(other.run([this] { return close_all(*this); }), XA_OK);
  EXPECT_EQ(qlt_live_connections(), 0);
  EXPECT_EQ(qlt_live_commands(), 0);
  EXPECT_EQ(qlt_live_objects(), 0);
  EXPECT_EQ(qlt_mutexes_held(), 0);
  EXPECT_EQ(zdb_session_count("bank1"), 0);
  EXPECT_EQ(zdb_session_count("bank2"), 0);
  EXPECT_EQ(common_readers_open(), 0);
}

XID xid_of(const std::string &label) {
  XID xid{};
  xid.formatID = 0x1234;
  const bool longest = label.starts_with('*');
  const std::string gtrid = longest ? std::string(64, static_cast<char>(0xfe)) : label;
  const std::string bqual = longest ? std::string(64, '\0') : label.starts_with('-') ? "" : "b";
  xid.gtrid_length = static_cast<int32_t>(gtrid.size());
  xid.bqual_length = static_cast<int32_t>(bqual.size());
  std::memcpy(xid.data, gtrid.data(), gtrid.size());
  std::memcpy(xid.data + gtrid.size(), bqual.data(), bqual.size());
  return xid;
}

std::string branch_name(const std::string &label, const char *lrm) {
  char name[XA_NAME_SIZE];
  const XID xid = xid_of(label);
  return xa__dtm_encode_xid(&xid, lrm, name);
}

int32_t run_forked(const std::function<int32_t()> &work) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const int32_t result = work();
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 255 : result);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) == 255) {
    return child_failed;
  }
  return WEXITSTATUS(status);
}
