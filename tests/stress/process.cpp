// Fork and exec. The program has one thread when it starts a process, so the child may still set its environment.
#include "process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

Process::Process(const std::vector<std::string> &arguments, const Environment &added, const std::string &output) {
  std::vector<std::string> words = arguments;
  std::vector<char *> argv(words.size() + 1);
  std::transform(words.begin(), words.end(), argv.begin(), [](std::string &word) { return word.data(); });
  pid_ = fork();
  if (pid_ < 0) {
    throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (pid_ == 0) {
    for (const auto &[name, value] : added) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    if (!output.empty()) {
      const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
      dup2(file, STDOUT_FILENO);
      dup2(file, STDERR_FILENO);
    }
    execv(argv[0], argv.data());
    _exit(127);
  }
}

Process::~Process() {
  if (pid_ != 0) {
    signal(SIGKILL);
    wait();
  }
}

namespace {

ExitStatus status_of(int status) {
  if (WIFSIGNALED(status)) {
    return {true, WTERMSIG(status)};
  }
  return {false, WEXITSTATUS(status)};
}

}  // namespace

std::optional<ExitStatus> Process::ended() {
  int status = 0;
  if (pid_ == 0 || waitpid(pid_, &status, WNOHANG) != pid_) {
    return std::nullopt;
  }
  pid_ = 0;
  return status_of(status);
}

ExitStatus Process::wait() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = 0;
  return status_of(status);
}

void Process::signal(int number) const {
  if (pid_ != 0) {
    kill(pid_, number);
  }
}
