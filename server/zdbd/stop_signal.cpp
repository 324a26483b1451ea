// A thread that takes the signals and sees to it that the process ends; see the header.
#include "zdbd/stop_signal.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <string>

namespace {

// A request may be inside a function that cannot be interrupted. Together with the log's patience under 2 seconds.
constexpr std::chrono::milliseconds stop_limit{1500};

sigset_t stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  return signals;
}

}  // namespace

void block_stop_signals() {
  const sigset_t signals = stop_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

StopSignal::StopSignal(ServerLog &log) : log_(log), thread_([this] { watch(); }) {}

StopSignal::~StopSignal() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
  pthread_kill(thread_.native_handle(), SIGINT);  // it may be waiting still, when the start has failed
  thread_.join();
}

void StopSignal::wait() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return come_; });
}

void StopSignal::watch() {
  const sigset_t signals = stop_signals();
  int signal = 0;
  sigwait(&signals, &signal);
  std::unique_lock<std::mutex> lock(mutex_);
  if (!stopped_) {
    log_.write(std::string("stopping on ") + strsignal(signal));
  }
  come_ = true;
  changed_.notify_all();
  if (!changed_.wait_for(lock, stop_limit, [this] { return stopped_; })) {
    log_.write("stopped while requests were at work; the next start finds all that was promised");
    log_.drain();
    _exit(0);
  }
}
