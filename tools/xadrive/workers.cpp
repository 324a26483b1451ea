// Named threads that do jobs one after the other.
#include "workers.h"

#include <utility>

Worker::Worker() : thread_([this] { work(); }) {}

Worker::~Worker() {
  {
    const std::scoped_lock lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Worker::post(std::function<void()> job) {
  {
    const std::scoped_lock lock(mutex_);
    jobs_.push(std::move(job));
  }
  changed_.notify_all();
}

void Worker::wait_idle() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return jobs_.empty() && !busy_; });
}

void Worker::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
    if (jobs_.empty()) {
      return;
    }
    const std::function<void()> job = std::move(jobs_.front());
    jobs_.pop();
    busy_ = true;
    lock.unlock();
    job();
    lock.lock();
    busy_ = false;
    changed_.notify_all();
  }
}

void Workers::wait_all() {
  for (auto &[name, worker] : workers_) {
    worker.wait_idle();
  }
}
