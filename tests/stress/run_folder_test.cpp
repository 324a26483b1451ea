// Which folders a stress run takes, and that all others stay as they were.
#include "run_folder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "programs.h"

namespace {

std::string what_is_there(const std::string &folder) {
  return run_command("cd " + folder + " && find . -printf '%P %y %l\\n' -type f -exec cat {} + | LC_ALL=C sort").output;
}

// Every row is a place made by shell commands, and the folder in it that the run is to be given.
TEST(RunFolder, is_emptied_of_an_earlier_run_and_of_nothing_else) {
  const struct {
    const char *made, *folder;
    const char *refusal;  // null: taken
  } rows[] = {
      {"true", "f", nullptr},
      {"true", "deep/er/f///", nullptr},
      {"mkdir f", "f", nullptr},
      {"mkdir f; touch f/made-by-stress", "f/", nullptr},
      {"mkdir -p f/bank1; cd f; touch made-by-stress xa.log decisionsw12 plain.db-wal bank1/making bank1/data.db-shm",
       "f", nullptr},
      {"mkdir f; echo kept > f/photo", "f", "was not made by stress"},
      {"mkdir f; echo kept > f/xa.log", "f", "was not made by stress"},
      {"echo kept > f", "f", "is no folder"},
      {"mkdir f; ln -s f link", "link", "is no folder"},
      {"mkdir f; ln -s f link", "link/", "is no folder"},
      {"mkdir f; ln -s ../other f/made-by-stress; touch f/xa.log", "f", "was not made by stress"},
      {"mkdir -p f/made-by-stress; touch f/xa.log", "f", "made-by-stress cannot be used"},
      {"mkdir f; cd f; touch made-by-stress xa.log; echo kept > photo", "f", "photo is not from a run"},
      {"mkdir f; cd f; touch made-by-stress xa.log; echo kept > decisions.txt", "f", "decisions.txt is not from a run"},
      {"mkdir -p f/bank1 ; cd f; touch made-by-stress bank1/lock; echo kept > bank1/photo", "f",
       "photo is not from a run"},
      {"mkdir f mine; touch f/made-by-stress mine/lock; ln -s ../mine f/bank1", "f", "bank1 is not from a run"},
      {"mkdir f; cd f; touch made-by-stress; ln -s ../mine xa.log", "f", "xa.log is not from a run"},
      {"mkdir -p f/xa.log; touch f/made-by-stress", "f", "xa.log is not from a run"},
  };
  int number = 0;
  for (const auto &[made, folder, refusal] : rows) {
    const std::string place = scratch("place" + std::to_string(++number));
    std::filesystem::create_directory(place);
    ASSERT_EQ(run_command("cd " + place + "; " + made).status, 0) << made;
    const std::string before = what_is_there(place);
    try {
      const RunFolder taken(place + '/' + folder);
      EXPECT_EQ(refusal, nullptr) << made << ": taken";
      EXPECT_EQ(what_is_there(taken.path()), " d \nmade-by-stress f \n") << made;
    } catch (const std::exception &error) {
      EXPECT_NE(std::string(error.what()).find(refusal == nullptr ? "nothing" : refusal), std::string::npos)
          << made << ": " << error.what();
      EXPECT_EQ(what_is_there(place), before) << made;
    }
  }
}

TEST(RunFolder, is_one_runs_at_a_time) {
  const std::string folder = scratch("folder");
  {
    const RunFolder first(folder);
    EXPECT_THROW(RunFolder second(folder), std::runtime_error);
  }
  EXPECT_NO_THROW(RunFolder third(folder));
}

}  // namespace
