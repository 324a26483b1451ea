// Undoes orphaned branches once they are older than the configuration allows, and forgets those
// that were undone long ago.
#include "sessions/durable_server.h"

#include <algorithm>
#include <new>

#include "disk/store_opening.h"

namespace zdb {
namespace {

constexpr std::chrono::seconds round{1};

// An abort-only branch holds nothing; its entry only lets a manager that comes late learn that it was rolled back.
constexpr std::chrono::seconds abort_only_kept{600};

}  // namespace

DurableServer::DurableServer(const std::string &folder)
    : server_(std::make_shared<Server>(open_store(folder))), thread_([this] { look_after(); }) {}

DurableServer::~DurableServer() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
  server_->shut_down();
}

void DurableServer::look_after() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!changed_.wait_for(lock, round, [this] { return stopping_; })) {
    try {
      do_round();
    } catch (const std::bad_alloc &) {
      continue;  // the next time will do
    }
  }
}

void DurableServer::do_round() {
  const std::chrono::seconds age(server_->store().setting(orphan_age_setting).value_or(0));
  if (age.count() > 0) {
    server_->undo_orphans(Clock::now() - age);
  }
  server_->forget_abort_only(Clock::now() - std::max(age, abort_only_kept));
}

}  // namespace zdb
