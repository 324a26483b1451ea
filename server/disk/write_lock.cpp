// A queue, so that a stream of short writers cannot keep a patient one waiting.
#include "disk/write_lock.h"

#include <algorithm>

namespace zdb {

WriteLock::Answer WriteLock::take(std::chrono::milliseconds limit, const std::atomic<bool> &give_up) {
  std::unique_lock<std::mutex> lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const uint64_t number = ++last_number_;
  waiting_.push_back(number);
  const auto may_go_on = [&] { return give_up.load() || (!held_ && waiting_.front() == number); };
  const bool in_time = changed_.wait_until(lock, deadline, may_go_on);
  waiting_.erase(std::find(waiting_.begin(), waiting_.end(), number));
  if (!in_time || give_up.load()) {
    changed_.notify_all();  // whoever stood behind may be the first now
    return in_time ? Answer::given_up : Answer::timed_out;
  }
  held_ = true;
  return Answer::taken;
}

void WriteLock::release() {
  const std::lock_guard<std::mutex> lock(mutex_);
  held_ = false;
  changed_.notify_all();
}

void WriteLock::wake() {
  const std::lock_guard<std::mutex> lock(mutex_);
  changed_.notify_all();
}

bool WriteLock::is_held() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return held_;
}

WriteLock::Answer WriteHold::take(std::chrono::milliseconds limit, const std::atomic<bool> &give_up) {
  const WriteLock::Answer answer = lock_.take(limit, give_up);
  held_ = answer == WriteLock::Answer::taken;
  return answer;
}

void WriteHold::release() {
  if (held_) {
    held_ = false;
    lock_.release();
  }
}

}  // namespace zdb
