// Fork and exec; everything the child needs is made ready before the fork.
#include "process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace {

std::vector<std::string> environment_with(const Process::Environment &added) {
  std::vector<std::string> all;
  for (char **entry = environ; *entry != nullptr; ++entry) {
    all.emplace_back(*entry);
  }
  for (const auto &variable : added) {
    const std::string start = variable.first + '=';
    std::erase_if(all, [&](const std::string &other) { return other.starts_with(start); });
    all.push_back(start + variable.second);
  }
  return all;
}

std::vector<char *> pointers_to(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string &text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Process::Process(const std::vector<std::string> &arguments, const Environment &added, const std::string &output) {
  std::vector<std::string> words = arguments;
  std::vector<std::string> variables = environment_with(added);
  const std::vector<char *> argv = pointers_to(words);
  const std::vector<char *> envp = pointers_to(variables);
  pid_ = fork();
  if (pid_ < 0) {
    throw std::runtime_error(std::string("cannot start a process: ") + std::strerror(errno));
  }
  if (pid_ == 0) {
    if (!output.empty()) {
      const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
      dup2(file, STDOUT_FILENO);
      dup2(file, STDERR_FILENO);
    }
    execve(argv[0], argv.data(), envp.data());
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
