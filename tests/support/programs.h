// Runs programs as their users do.
#pragma once

#include <string>

#include "scratch.h"

struct Outcome {
  int status = -1;     // -1 when the program was ended by a signal
  std::string output;  // of both streams

  bool says(const std::string &text) const { return output.find(text) != std::string::npos; }
};

// Runs a shell command.
Outcome run_command(const std::string &command);
// What became of a process, as waitpid tells it.
int exit_status(int wait_status);
