// Branches in doubt at a server: listed, committed, rolled back and forgotten.
#include <gtest/gtest.h>

#include "terminal.h"
#include "tool.h"

namespace {

// Runs a command at a terminal, types the answer, and gives back what the terminal showed.
Outcome run_at_terminal(const Site &site, const std::string &command, const std::string &answer) {
  Terminal terminal(site.there(command));
  terminal.type(answer);
  return terminal.finish();
}

TEST(Branches, are_listed_as_table_and_json) {
  const Site site;
  EXPECT_EQ(site.xadtm("branches").output, "branches in doubt: 0\n");
  EXPECT_EQ(site.xadtm("branches --json").output, "[]\n");
  site.prepare({"T1.a", "Transfer2.b"});
  const Outcome table = site.xadtm("branches");
  EXPECT_EQ(table.status, 0);
  EXPECT_EQ(table.output,
            "formatID     gtrid               bqual  branch name\n"
            "22593        5431                61     5841_l34_og_:L1\n"
            "22593        5472616e7366657232  62     5841_l79xrDdCpn8O_ow_:L1\n"
            "branches in doubt: 2\n");
  for (const char *flavour : {"tux", "txs", "mts"}) {
    EXPECT_EQ(site.xadtm("branches --flavour " + std::string(flavour)).output, table.output);
  }
  EXPECT_EQ(site.xadtm("branches --json").output,
            "[\n  {\"formatID\": 22593, \"gtrid\": \"5431\", \"bqual\": \"61\", \"name\": \"5841_l34_og_:L1\"},\n"
            "  {\"formatID\": 22593, \"gtrid\": \"5472616e7366657232\", \"bqual\": \"62\", \"name\": "
            "\"5841_l79xrDdCpn8O_ow_:L1\"}\n]\n");
}

TEST(Branches, of_a_hostile_lrm_are_listed_under_names_that_can_be_pasted) {
  const Site site;
  site.write("xa_config", "[all]\n[xa]\nlrm=L\x1b[2J\nserver=bank1\n");
  site.prepare({"T1.a"}, "L\x1b[2J");
  const std::string open_string = " -o '-NL\x1b[2J -Uteller -PtopSecret'";
  const std::string name = "5841_l34_og_:L\\x1b[2J";
  const Outcome listed = site.run(XADTM " branches" + open_string);
  EXPECT_TRUE(listed.says("  " + name + "\n") && !listed.says("\x1b")) << listed.output;
  EXPECT_TRUE(site.run(XADTM " branches --json" + open_string).says("L\\\\x1b[2J\"}"));
  const Outcome settled = site.run(XADTM " commit '" + name + "' --yes" + open_string);
  EXPECT_EQ(settled.status, 0);
  EXPECT_TRUE(settled.says("branch   " + name + "\n") && !settled.says("\x1b")) << settled.output;
}

TEST(Branches, of_an_lrm_without_a_name_are_settled_under_mts) {
  const Site site;
  site.prepare({"T3.a"});
  site.prepare({"T1.a", "T2.a"}, "");
  const Outcome named = site.xadtm("commit 5841_l34_og_: --yes --flavour mts");
  EXPECT_EQ(named.status, 3);
  EXPECT_TRUE(named.says("belongs to an LRM without a name")) << named.output;
  const std::pair<const char *, const char *> steps[] = {
      {"branches", "  5841_l34_og_:\n22593        5432   61     5841_l38_og_:\nbranches in doubt: 2\n"},
      {"branches --json", "\"name\": \"5841_l34_og_:\"}"},
      {"commit 5841_l34_og_: --yes", "xa_commit: XA_OK (0)"},
      {"rollback 5841_l38_og_: --yes", "xa_rollback: XA_OK (0)"},
      {"branches", "branches in doubt: 0\n"},
  };
  for (const auto &[words, shown] : steps) {
    const Outcome outcome =
        site.run(std::string(XADTM " ") + words + " --flavour mts -o '-Uteller -PtopSecret -Sbank1'");
    EXPECT_EQ(outcome.status, 0) << words;
    EXPECT_TRUE(outcome.says(shown)) << words << ": " << outcome.output;
  }
}

// More than two batches of a scan, one of them full to the last row.
TEST(Branches, any_number_is_listed) {
  const Site site;
  std::vector<std::string> xids;
  for (int i = 0; i < 2000; ++i) {
    xids.push_back(std::string("T").append(std::to_string(i)).append(".a"));
  }
  site.prepare(xids);
  EXPECT_TRUE(site.xadtm("branches").says("\nbranches in doubt: 2000\n"));
  site.prepare({"Last.z"});
  EXPECT_TRUE(site.xadtm("branches").says("4c617374"));
}

TEST(Settle, outcomes_reach_the_server_and_show_in_the_exit_status) {
  const Site site;
  site.prepare({"T1.a", "T2.a", "T3.a", "T4.a", "T5.a"});
  site.administer("commit 5841_l3c_og_:L1");
  site.administer("rollback 5841_l3g_og_:L1");
  struct {
    std::string words;
    int status;
    std::string message;
  } const steps[] = {
      {"commit 5841_l34_og_:L1 --yes", 0, "xa_commit: XA_OK (0)"},
      {"commit 5841_l34_og_:L1 --yes", 3, "zdbd --admin DIR rollback NAME ends it"},
      {"rollback 5841_l38_og_:L1 --yes", 0, "xa_rollback: XA_OK (0)"},
      {"commit 5841_l3c_og_:L1 --yes", 5, "XA_HEURCOM (7)\nxadtm: commit was not done: it had been committed before"},
      {"forget 5841_l3c_og_:L1 --yes", 0, "xa_forget: XA_OK (0)"},
      {"commit 5841_l3g_og_:L1 --yes", 5, "XA_HEURRB (6)\nxadtm: commit was not done: it had been rolled back before"},
      {"forget 5841_l3k_og_:L1 --yes", 1, "xa_forget: XAER_NOTA (-4)\nxadtm: forget was not done: only branches that"},
      {"commit 5841_l3o_og_:L1 --yes", 3, "no branch of this name"},
  };
  for (const auto &[words, status, message] : steps) {
    const Outcome outcome = site.xadtm(words);
    EXPECT_EQ(outcome.status, status) << words << ": " << outcome.output;
    EXPECT_TRUE(outcome.says(message)) << words << ": " << outcome.output;
    EXPECT_EQ(outcome.says("goes past the transaction manager"), status != 3) << outcome.output;
  }
  const std::string left = site.branches();
  EXPECT_EQ(left.find("l34"), std::string::npos);
  EXPECT_EQ(left.find("l38"), std::string::npos);
  EXPECT_EQ(left.find("l3c"), std::string::npos);
  EXPECT_NE(left.find("5841_l3g_og_:L1\theuristic-rollback"), std::string::npos) << left;
  EXPECT_NE(left.find("5841_l3k_og_:L1\tprepared"), std::string::npos) << left;
}

TEST(Settle, only_yes_at_a_terminal_goes_on) {
  const Site site;
  site.prepare({"T1.a"});
  const std::string command = XADTM " rollback 5841_l34_og_:L1 -o '-NL1 -Uteller -PtopSecret'";
  const Outcome unasked[] = {
      site.run("echo yes | " + command),
      run_at_terminal(site, command + " > unseen; status=$?; cat unseen; exit $status", "yes\n"),
  };
  for (const Outcome &outcome : unasked) {
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(outcome.says("no terminal")) << outcome.output;
  }
  for (const char *answer : {"no\n", "y\n", "YES\n", "yes please\n", "\n", "\x04", "yes\x04\x04"}) {
    const Outcome refused = run_at_terminal(site, command, answer);
    EXPECT_EQ(refused.status, 4) << answer << refused.output;
    EXPECT_TRUE(refused.says("Type yes to rollback it")) << refused.output;
  }
  EXPECT_TRUE(Terminal(site.there("exec " + command)).await("Type yes"));  // which hangs up, and waits for its end
  EXPECT_EQ(site.run(command + " --yes > /dev/full").status, 2);
  const std::string unread = "{ sleep 0.1; " + command + " --yes; echo $? > status; } | true; cat status";
  EXPECT_TRUE(site.run(unread).output.ends_with("\n2\n"));
  EXPECT_NE(site.branches().find("prepared"), std::string::npos);
  EXPECT_EQ(run_at_terminal(site, command, "yes\n").status, 0);
  EXPECT_EQ(site.branches().find("prepared"), std::string::npos);
}

TEST(Settle, what_cannot_be_tried_is_refused) {
  const Site site;
  const std::string good = " -o '-NL1 -Uteller -PtopSecret' --yes";
  struct {
    std::string command;
    int status;
    std::string message;
  } const rows[] = {
      {"commit" + good, 2, "write commit NAME"},
      {"forget 5841_l34_og_:L1 more" + good, 2, "write forget NAME"},
      {"rollback T1.a" + good, 2, "formatID"},
      {"rollback ''" + good, 2, "ends within its formatID"},
      {"rollback '5841_l34_og_:L1 '" + good, 2, "LRM name"},
      {"rollback ' 5841_l34_og_:L1'" + good, 2, "eight hexadecimal digits"},
      {"rollback 5841_l34_og_:L1/5841_l38_og_:L1" + good, 3, "belongs to the LRM L1/5841"},
      {"forget -- -5841_l34_og_:L1 --yes", 2, "write forget NAME"},
      {"commit 5841_l34_og_:L1 --yes", 2, "give the open string"},
      {"branches", 2, "give the open string"},
      {"branches -o '-Uteller -PtopSecret'", 2, "names no LRM"},
      {"branches more -o -NL1", 2, "no further words"},
      {"branches -o '" + std::string(256, 'x') + "'", 2, "shorten it"},
      {"commit 5841_l34_og_:L1 --yes -o '-NL1 -Uteller -Pwrong'", 1, "XAER_RMERR (-3); xadtm check"},
      {"branches -o '-NL1 -Uteller -Pwrong'", 1, "XAER_RMERR (-3); xadtm check"},
  };
  for (const auto &[command, status, message] : rows) {
    const Outcome outcome = site.run(XADTM " " + command);
    EXPECT_EQ(outcome.status, status) << command << ": " << outcome.output;
    EXPECT_TRUE(outcome.says(message)) << command << ": " << outcome.output;
  }
  const Outcome lost = site.run("XACONFIGFILE=/nowhere/xa_config " XADTM " branches -o '-NL1 -Uteller -P topSecret'");
  EXPECT_EQ(lost.status, 1);
  EXPECT_TRUE(lost.says("/nowhere/xa_config")) << lost.output;
  EXPECT_FALSE(lost.says("topSecret")) << lost.output;
}

}  // namespace
