// A server over a folder, with the thread that looks after what clients leave behind.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "sessions/server.h"

namespace zdb {

class DurableServer {
 public:
  // Throws std::runtime_error with a text that says what to do when the folder cannot be opened.
  explicit DurableServer(const std::string &folder);
  // Sessions break off; the folder is free once the last of them is gone.
  ~DurableServer();
  DurableServer(const DurableServer &) = delete;
  DurableServer &operator=(const DurableServer &) = delete;

  const std::shared_ptr<Server> &server() const { return server_; }

 private:
  void look_after();
  void do_round();

  std::shared_ptr<Server> server_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  std::thread thread_;  // last: it uses all of the above
};

}  // namespace zdb
