/* programs.h - runs programs as their users do, and keeps the files that such a test needs. */
#ifndef TESTS_SUPPORT_PROGRAMS_H
#define TESTS_SUPPORT_PROGRAMS_H

#include <string>

struct Outcome {
  int status = -1;    /* -1 when the program was ended by a signal */
  std::string output; /* of both streams */

  bool says(const std::string &text) const { return output.find(text) != std::string::npos; }
};

/* Runs a shell command. */
Outcome run_command(const std::string &command);
/* What became of a process, as waitpid tells it. */
int exit_status(int wait_status);

/* A path in a folder of this process only, which is removed at its end. */
std::string scratch(const std::string &name);
void write_text(const std::string &path, const std::string &text);
std::string text_of(const std::string &path);

#endif /* TESTS_SUPPORT_PROGRAMS_H */
