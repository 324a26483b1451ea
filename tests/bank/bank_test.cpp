// What the example's transaction manager remembers, and the files that it reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "coordinator.h"
#include "decisions.h"
#include "scratch.h"
#include "transfers.h"

namespace {

std::string file_of(const std::string &name, const std::string &text) {
  write_text(scratch(name), text);
  return scratch(name);
}

// Resource managers that answer OK, but where an answer is given for a verb and rmid, as in "commit 2".
std::map<std::string, int32_t> answers;
std::vector<std::string> calls;
XID listed{};

int32_t answer(const char *verb, int32_t rmid) {
  calls.push_back(std::string(verb).append(" ").append(std::to_string(rmid)));
  const auto found = answers.find(calls.back());
  return found == answers.end() ? XA_OK : found->second;
}

const xa_switch_t scripted = {
    "scripted",
    TMNOFLAGS,
    0,
    [](const char *, int32_t, int32_t) { return XA_OK; },
    [](const char *, int32_t, int32_t) { return XA_OK; },
    [](const XID *xid, int32_t rmid, int32_t) {
      listed = *xid;
      return answer("start", rmid);
    },
    [](const XID *, int32_t, int32_t) { return XA_OK; },
    [](const XID *, int32_t rmid, int32_t) { return answer("rollback", rmid); },
    [](const XID *, int32_t rmid, int32_t) { return answer("prepare", rmid); },
    [](const XID *, int32_t rmid, int32_t) { return answer("commit", rmid); },
    [](XID *xids, int32_t, int32_t, int32_t) {
      xids[0] = listed;
      return int32_t{1};
    },
    [](const XID *, int32_t rmid, int32_t) { return answer("forget", rmid); },
    nullptr,
};

bool has_called(const std::string &call) {
  return std::find(calls.begin(), calls.end(), call) != calls.end();
}

// What others have done to branches is said, and stays listed where it is not what was decided.
TEST(Coordinator, tells_the_truth_of_outcomes_that_others_decided) {
  struct {
    int32_t managers;
    std::map<std::string, int32_t> answers;
    Outcome outcome;
    const char *call;  // that was made; none behind '!'
    const char *reason;
  } const rows[] = {
      {2, {{"commit 2", XA_HEURCOM}}, Outcome::committed, "forget 2", ""},
      {2, {{"commit 1", XA_HEURRB}}, Outcome::mixed, "!forget 1", "commit of L1 answered XA_HEURRB"},
      {2, {{"commit 1", XA_HEURRB}}, Outcome::mixed, "commit 2", "commit of L1 answered XA_HEURRB"},
      {2, {{"commit 2", XA_HEURMIX}}, Outcome::mixed, "!forget 2", "commit of L2 answered XA_HEURMIX"},
      {2, {{"commit 2", XA_HEURHAZ}}, Outcome::mixed, "!forget 2", "commit of L2 answered XA_HEURHAZ"},
      {2, {{"commit 2", XA_RBROLLBACK}}, Outcome::mixed, "commit 2", "commit of L2 answered XA_RBROLLBACK"},
      {2, {{"commit 2", XAER_RMFAIL}}, Outcome::committed, "!rollback 1", ""},
      {2, {{"prepare 2", XA_RDONLY}}, Outcome::committed, "!commit 2", ""},
      {2, {{"prepare 2", XA_RBROLLBACK}, {"rollback 1", XA_HEURRB}}, Outcome::rolled_back, "forget 1", "prepare answ"},
      {2, {{"prepare 2", XAER_RMFAIL}, {"rollback 1", XA_HEURCOM}}, Outcome::mixed, "!forget 1", "rollback of L1 answ"},
      {1, {{"commit 1", XA_HEURCOM}}, Outcome::committed, "forget 1", ""},
      {1, {{"commit 1", XA_HEURRB}}, Outcome::rolled_back, "forget 1", "commit answered XA_HEURRB"},
      {1, {{"commit 1", XA_HEURHAZ}}, Outcome::mixed, "!forget 1", "commit answered XA_HEURHAZ"},
      {1, {{"commit 1", XAER_RMFAIL}}, Outcome::unknown, "!forget 1", "commit answered XAER_RMFAIL"},
  };
  for (const auto &row : rows) {
    Decisions decisions(file_of("decided", ""));
    calls.clear();
    answers = row.answers;
    std::vector<ResourceManager> managers = {{1, "L1", ""}, {2, "L2", ""}};
    managers.resize(static_cast<size_t>(row.managers));
    Coordinator coordinator(scripted, managers, decisions, [](const std::string &, int32_t) {});
    SCOPED_TRACE(row.answers.begin()->first + ' ' + xa_code_name(row.answers.begin()->second));
    EXPECT_EQ(coordinator.run("T", [] {}), row.outcome);
    EXPECT_TRUE(coordinator.reason().starts_with(row.reason)) << coordinator.reason();
    const std::string call = row.call;
    EXPECT_EQ(has_called(call.substr(call.find_first_not_of('!'))), call[0] != '!');
  }
}

TEST(Coordinator, recovery_tries_every_branch_before_it_complains) {
  Decisions decisions(file_of("decided", ""));
  answers = {{"commit 1", XA_HEURRB}, {"commit 2", XAER_RMFAIL}};
  Coordinator coordinator(scripted, {{1, "L1", ""}, {2, "L2", ""}}, decisions, [](const std::string &, int32_t) {});
  EXPECT_EQ(coordinator.run("T", [] {}), Outcome::mixed);
  calls.clear();
  answers.erase("commit 2");
  EXPECT_THROW(coordinator.recover(""), ResourceManagerError);
  EXPECT_EQ(calls, (std::vector<std::string>{"commit 1", "commit 2"}));
}

TEST(Decisions, survive_and_a_torn_last_line_was_never_made) {
  const std::string file = file_of("decisions", "");
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
  const auto accounts = read_accounts(file_of("accounts", "# comment\n\n1 7 Ann 100 # a note\n2 1 Ben 0"));
  ASSERT_EQ(accounts.size(), 2U);
  EXPECT_EQ(accounts[0].id.number, 7);
  EXPECT_EQ(accounts[0].owner, "Ann");
  EXPECT_EQ(accounts[1].balance, 0);
  const auto transfers = read_transfers(file_of("transfers", "T1 1 7 2 1 30\n"));
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
    const std::string file = file_of("bad", "# first\n" + line + "\n");
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
