// SIGTERM and SIGINT, which stop the server: in good order if that is soon done, else by ending the
// process, as after a crash. What was promised holds either way.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "zdbd/server_log.h"

class StopSignal {
 public:
  // To be made before any other thread than the log's, so that all of them leave the signals alone.
  explicit StopSignal(ServerLog &log);
  // The server has stopped.
  ~StopSignal();
  StopSignal(const StopSignal &) = delete;
  StopSignal &operator=(const StopSignal &) = delete;

  // Returns when a signal has come. From then on the object must be destroyed soon, or the process ends.
  void wait();

 private:
  void watch();

  ServerLog &log_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool come_ = false;
  bool stopped_ = false;
  std::thread thread_;
};

// Blocks the signals in the calling thread and those that it makes.
void block_stop_signals();
