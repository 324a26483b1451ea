// Runs the files under corpus through the fuzzers' entries, so that every build keeps what fuzzing
// has once found, and the entries stay in order where there is no libFuzzer.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz.h"

namespace {

std::string content(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

void run_corpus(const std::string &name, void (*entry)(std::string_view)) {
  int files = 0;
  for (const auto &file : std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPUS) / name)) {
    EXPECT_NO_THROW(entry(content(file.path()))) << file.path();
    ++files;
  }
  EXPECT_GT(files, 0) << name;
  EXPECT_NO_THROW(entry({}));
}

}  // namespace

TEST(Corpus, frame) {
  run_corpus("frame_fuzz", fuzz::frame);
}
TEST(Corpus, open_string) {
  run_corpus("open_string_fuzz", fuzz::open_string);
}
TEST(Corpus, scan_row) {
  run_corpus("scan_row_fuzz", fuzz::scan_row);
}
