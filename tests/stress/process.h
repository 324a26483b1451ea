// Child processes: started with an environment of their own, waited for, killed.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

struct ExitStatus {
  bool killed = false;  // by a signal
  int code = 0;         // the exit code, or the signal
};

class Process {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;

  // Runs the program with what is added to the environment; its output goes to the file, or to ours when empty.
  Process(const std::vector<std::string> &arguments, const Environment &added, const std::string &output);
  // Kills it when it still runs.
  ~Process();
  Process(Process &&other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
  Process &operator=(Process &&) = delete;

  // Its end, when it has come.
  std::optional<ExitStatus> ended();
  ExitStatus wait();
  void signal(int number) const;

 private:
  pid_t pid_ = 0;  // 0: none, or its end was taken note of
};
