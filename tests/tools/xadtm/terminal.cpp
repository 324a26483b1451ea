// The program gets the one end of a pseudo-terminal, the test holds the other.
#include "terminal.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

Terminal::Terminal(const std::string &command) {
  program_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
  if (program_ == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  EXPECT_GT(program_, 0);
}

Terminal::~Terminal() {
  hang_up();
}

void Terminal::hang_up() {
  if (terminal_ < 0) {
    return;
  }
  close(terminal_);
  terminal_ = -1;
  int ended = 0;
  waitpid(program_, &ended, 0);
  outcome_.status = exit_status(ended);
}

bool Terminal::read_on() {
  char c = 0;
  if (read(terminal_, &c, 1) != 1) {
    return false;
  }
  outcome_.output += c;
  return true;
}

bool Terminal::await(const std::string &text) {
  while (!outcome_.says(text)) {
    if (!read_on()) {
      return false;
    }
  }
  return true;
}

void Terminal::type(const std::string &text) const {
  EXPECT_EQ(write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

Outcome Terminal::finish() {
  while (read_on()) {
  }
  hang_up();
  return outcome_;
}
