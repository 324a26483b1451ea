// Programs run through a shell, which joins their two output streams.
#include "programs.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>

Outcome run_command(const std::string &command) {
  Outcome run;
  std::FILE *pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  std::array<char, 4096> buffer{};
  while (const size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    run.output.append(buffer.data(), got);
  }
  run.status = exit_status(pclose(pipe));
  return run;
}

int exit_status(int wait_status) {
  return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
}
