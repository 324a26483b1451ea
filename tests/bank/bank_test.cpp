/* bank_test.cpp - what the example's transaction manager remembers, and the files that it reads. */
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "decisions.h"
#include "transfers.h"

namespace {

std::string scratch(const std::string &name, const std::string &text) {
  const std::string path = testing::TempDir() + "bank_test_" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

TEST(Decisions, survive_and_a_torn_last_line_was_never_made) {
  const std::string file = scratch("decisions", "");
  {
    Decisions decisions(file);
    decisions.commit("T1");
    decisions.commit("T22");
  }
  std::filesystem::resize_file(file, std::filesystem::file_size(file) - 1);
  {
    Decisions decisions(file);
    EXPECT_TRUE(decisions.is_committed("T1"));
    EXPECT_FALSE(decisions.is_committed("T22"));
    EXPECT_FALSE(decisions.is_committed("T"));
    decisions.commit("T3");
  }
  const Decisions decisions(file);
  EXPECT_TRUE(decisions.is_committed("T1"));
  EXPECT_FALSE(decisions.is_committed("T22"));
  EXPECT_TRUE(decisions.is_committed("T3"));
}

TEST(Decisions, a_file_that_cannot_be_written_is_an_error) {
  EXPECT_THROW(Decisions("/nowhere/decisions"), std::runtime_error);
  // A file that cannot be synced: the process must end, since nobody knows what the disk holds.
  EXPECT_EXIT(Decisions("/dev/null").commit("T1"), testing::ExitedWithCode(EXIT_FAILURE), "cannot record the decision");
}

TEST(Files, good_lines_are_read) {
  const auto accounts = read_accounts(scratch("accounts", "# comment\n\n1 7 Ann 100 # a note\n2 1 Ben 0"));
  ASSERT_EQ(accounts.size(), 2U);
  EXPECT_EQ(accounts[0].id.number, 7);
  EXPECT_EQ(accounts[0].owner, "Ann");
  EXPECT_EQ(accounts[1].balance, 0);
  const auto transfers = read_transfers(scratch("transfers", "T1 1 7 2 1 30\n"));
  ASSERT_EQ(transfers.size(), 1U);
  EXPECT_EQ(transfers[0].to.bank, 2);
  EXPECT_EQ(transfers[0].amount, 30);
}

TEST(Files, a_bad_line_is_named) {
  const std::pair<bool, std::string> rows[] = {
      {true, "1 7 Ann"},         {true, "3 7 Ann 100"},
      {true, "1 x Ann 100"},     {true, "1 7 Ann 100 more"},
      {true, "1 7 Ann -1"},      {false, "T1 1 7 2 1 0"},
      {false, "T1 1 7 2 1"},     {false, "T1 0 7 2 1 5"},
      {false, "T1 1 7 2 1 5 6"}, {false, std::string(41, 'T') + " 1 7 2 1 5"},
  };
  for (const auto &[is_account, line] : rows) {
    const std::string file = scratch("bad", "# first\n" + line + "\n");
    try {
      if (is_account) {
        read_accounts(file);
      } else {
        read_transfers(file);
      }
      ADD_FAILURE() << line;
    } catch (const std::runtime_error &error) {
      EXPECT_NE(std::string(error.what()).find(":2: write "), std::string::npos) << line << ": " << error.what();
    }
  }
  EXPECT_THROW(read_accounts("/nowhere/accounts"), std::runtime_error);
}

}  // namespace
