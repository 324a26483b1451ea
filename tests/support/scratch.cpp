// The folder is made at its first use, and removed by the process that made it.
#include "scratch.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

// Nobody else's: only what is made here is removed.
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
