// The server's log on standard error. Whoever writes a line never waits and never ends with the reader:
// a thread of the log's own does the writing, and lines that it cannot get rid of are dropped and counted.
#pragma once

#include <memory>
#include <string_view>

class ServerLog {
 public:
  // SIGPIPE and SIGXFSZ must be ignored.
  ServerLog();
  // Waits for what was written, but not for a reader who does not read.
  ~ServerLog();
  ServerLog(const ServerLog &) = delete;
  ServerLog &operator=(const ServerLog &) = delete;

  // From any thread. Control characters are shown as \xNN, and a long text is cut.
  void write(std::string_view text) noexcept;
  // Waits as the destructor does.
  void drain() noexcept;

 private:
  struct Queue;
  std::shared_ptr<Queue> queue_;  // the thread's as well, which is left behind when it hangs in a write
};

// Gives the standard streams that the process was started without to /dev/null: no file of the data gets their place.
void fill_standard_streams();
