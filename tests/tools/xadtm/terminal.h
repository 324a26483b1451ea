// A program at a terminal of its own, as a person has it in front of him.
#pragma once

#include <sys/types.h>

#include <string>

#include "programs.h"

class Terminal {
 public:
  // Runs the shell command.
  explicit Terminal(const std::string &command);
  // Hangs up, if the program has not been waited for, and waits for it.
  ~Terminal();
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  // Reads until the terminal shows the text; false when the program ends before that.
  bool await(const std::string &text);
  void type(const std::string &text) const;
  // Reads on until the program ends.
  Outcome finish();

 private:
  // Reads one character; false when there will be none any more.
  bool read_on();
  void hang_up();

  int terminal_ = -1;
  pid_t program_ = -1;
  Outcome outcome_;
};
