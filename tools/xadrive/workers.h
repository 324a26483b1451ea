// Named threads that do jobs one after the other.
//
// A thread is made when its name is first used and lives as long as its pool, so that all jobs of one name see the same
// thread identity. One thread owns a pool and calls it; only the jobs run elsewhere.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <queue>
#include <string>
#include <thread>

class Worker {
 public:
  Worker();
  // Does what is queued and ends the thread.
  ~Worker();
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  void post(std::function<void()> job);
  // Waits until nothing is queued or running.
  void wait_idle();

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::queue<std::function<void()>> jobs_;
  bool busy_ = false;
  bool stopping_ = false;
  std::thread thread_;  // last: it uses all of the above
};

class Workers {
 public:
  Worker &named(const std::string &name) { return workers_[name]; }
  void wait_all();

 private:
  std::map<std::string, Worker> workers_;
};
