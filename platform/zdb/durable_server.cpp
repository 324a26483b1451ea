/* durable_server.cpp - undoes orphaned branches once they are older than the configuration allows. */
#include "durable_server.h"

#include "disk_store.h"

namespace zdb {
namespace {

constexpr std::chrono::seconds round{1};

}  // namespace

DurableServer::DurableServer(const std::string &folder)
    : server_(std::make_shared<Server>(std::make_unique<DiskStore>(folder))), thread_([this] { look_after(); }) {}

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
    const int64_t age = server_->store().setting(orphan_age_setting).value_or(0);
    if (age > 0) {
      server_->undo_orphans(Clock::now() - std::chrono::seconds(age));
    }
  }
}

}  // namespace zdb
