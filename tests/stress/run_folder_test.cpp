// That a stress run leaves everything as it was but the folder that it has made.
#include "run_folder.h"

#include <gtest/gtest.h>

#include "programs.h"

namespace {

std::string what_is_there(const std::string &folder) {
  return run_command("cd " + folder + " && find . -printf '%P %y %l\\n' -type f -exec cat {} + | LC_ALL=C sort").output;
}

TEST(RunFolder, is_a_new_one_beside_what_is_there) {
  const std::string place = scratch("place");
  ASSERT_EQ(
      run_command("mkdir -p " + place + "/mine; cd " + place + "; echo kept > mine/photo; ln -s mine link").status, 0);
  const std::string before = what_is_there(place);
  for (const char *named : {"", "/mine", "/link/"}) {
    const RunFolder first(place + named);
    const RunFolder second(place + named);
    EXPECT_NE(first.path(), second.path());
    EXPECT_EQ(what_is_there(first.path()), " d \n");
    write_text(first.path() + "/xa.log", "goes");
  }
  EXPECT_EQ(what_is_there(place), before);
  EXPECT_THROW(RunFolder(place + "/mine/photo"), std::runtime_error);
  EXPECT_EQ(what_is_there(place), before);
}

TEST(RunFolder, stays_after_a_failure) {
  std::string path;
  try {
    const RunFolder failed(scratch("deep/er"));
    path = failed.path();
    throw std::logic_error("a check failed");
  } catch (const std::logic_error &) {
    EXPECT_EQ(what_is_there(path), " d \n");
  }
}

}  // namespace
