// Who may change the data: one branch or statement at a time, the others in the order in which they
// came.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

namespace zdb {

class WriteLock {
 public:
  enum class Answer { taken, timed_out, given_up };

  // Waits for the lock; gives up when the flag is set, which wake() makes it look at. Not for one that holds it.
  Answer take(std::chrono::milliseconds limit, const std::atomic<bool> &give_up);
  void release();
  void wake();
  bool is_held() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool held_ = false;
  std::deque<uint64_t> waiting_;  // the waiters' numbers, first come first
  uint64_t last_number_ = 0;
};

// The lock held, or not; released at the end of life. Any thread may ask whether it is.
class WriteHold {
 public:
  explicit WriteHold(WriteLock &lock) : lock_(lock) {}
  ~WriteHold() { release(); }
  WriteHold(const WriteHold &) = delete;
  WriteHold &operator=(const WriteHold &) = delete;

  bool held() const { return held_; }
  WriteLock::Answer take(std::chrono::milliseconds limit, const std::atomic<bool> &give_up);
  void release();

 private:
  WriteLock &lock_;
  std::atomic<bool> held_{false};
};

}  // namespace zdb
