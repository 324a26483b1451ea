/* programs.cpp - programs run through a shell, which joins their two output streams. */
#include "programs.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

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

namespace {

/* Nobody else's: only what is made here is removed. */
struct ScratchFolder {
  ScratchFolder() {
    if (mkdtemp(path.data()) == nullptr) {
      throw std::runtime_error("cannot make " + path);
    }
  }
  ~ScratchFolder() {
    if (getpid() == maker) {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  }
  ScratchFolder(const ScratchFolder &) = delete;
  ScratchFolder &operator=(const ScratchFolder &) = delete;

  const pid_t maker = getpid();
  std::string path = testing::TempDir() + "scratch.XXXXXX";
};

}  // namespace

std::string scratch(const std::string &name) {
  static const ScratchFolder folder;
  return folder.path + '/' + name;
}

void write_text(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string text_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}
