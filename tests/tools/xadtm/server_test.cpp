// Xadtm at servers that run elsewhere: over a socket, not there, dying, and answering wrongly.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "serving.h"
#include "sessions/durable_server.h"
#include "tool.h"

namespace {

const std::string t1 = "5841_l34_og_:L1";  // the branch "a" of "T1"

TEST(Server, all_commands_work_over_a_socket) {
  const Site site;
  ZdbdProcess zdbd(site);
  ASSERT_TRUE(zdbd.is_up());
  site.prepare({"T1.a", "T2.a", "T3.a"});
  site.administer("commit 5841_l3c_og_:L1");
  const std::pair<std::string, std::string> steps[] = {
      {"check <&- 2>&-", "  xa_recover: branches in doubt: 3\n"},
      {"branches --flavour mts <&- 2>&-", "5841_l38_og_:L1\n"},
      {"commit " + t1 + " --yes <&- 2>&-", "xa_commit: XA_OK (0)"},
      {"rollback 5841_l38_og_:L1 --yes --flavour tux", "xa_rollback: XA_OK (0)"},
      {"forget 5841_l3c_og_:L1 --yes", "xa_forget: XA_OK (0)"},
      {"branches --json", "[]\n"},
  };
  for (const auto &[words, shown] : steps) {
    const Outcome outcome = site.xadtm(words);
    EXPECT_EQ(outcome.status, 0) << words << ": " << outcome.output;
    EXPECT_TRUE(outcome.says(shown)) << words << ": " << outcome.output;
  }
  EXPECT_EQ(zdbd.stop(), 0);
}

TEST(Server, one_that_is_not_there_is_named) {
  const Site site;
  const std::string files[] = {"bank1 = unix:bank1.sock\n", "bank1 = unix:xa_config\n", "bank2 = unix:bank2.sock\n",
                               "bank1 = embedded:nowhere\n", "bank1\n"};
  for (const std::string &interfaces : files) {
    site.write("interfaces", interfaces);
    const Outcome check = site.xadtm("check");
    EXPECT_EQ(check.status, 1) << interfaces << check.output;
    EXPECT_TRUE(check.says("Error: Connect(bank1) failed, rc=0\n    -> see that the server runs")) << check.output;
    for (const std::string words : {"branches", "branches --json", "commit 5841_l34_og_:L1 --yes"}) {
      const Outcome outcome = site.xadtm(words);
      EXPECT_EQ(outcome.status, 1) << words << ": " << outcome.output;
      EXPECT_EQ(outcome.output,
                "xadtm: the resource manager cannot be opened: XAER_RMERR (-3); xadtm check with the same open string "
                "tells why\n");
    }
  }
}

// The server dies at every step in turn. What the exit status says must hold at the one that takes its place.
TEST(Server, exit_statuses_are_true_wherever_it_dies) {
  const Site site;
  site.prepare({"T1.a"});
  std::filesystem::copy(site.at("bank1"), site.at("kept"), std::filesystem::copy_options::recursive);
  std::set<std::pair<int, bool>> seen;  // exit statuses, and whether the branch was still there
  for (int step = 1; step < 200; ++step) {
    std::filesystem::remove_all(site.at("bank1"));
    std::filesystem::copy(site.at("kept"), site.at("bank1"), std::filesystem::copy_options::recursive);
    ZdbdProcess dying(site, step);
    if (!dying.is_up()) {
      continue;
    }
    const Outcome outcome = site.xadtm("commit " + t1 + " --yes");
    const bool survived = dying.stop() == 0;
    const bool still_there = site.branches().find(t1) != std::string::npos;
    seen.emplace(outcome.status, still_there);
    if (survived) {
      break;
    }
  }
  const std::set<std::pair<int, bool>> truths = {{0, false}, {1, true}, {6, false}, {6, true}};
  EXPECT_EQ(seen, truths);
}

// A client names branches as it likes; what the operator reads must be what there is, and serve to settle it.
TEST(Server, hostile_names_do_not_reach_the_operators_terminal) {
  const Site site;
  const std::string names[] = {"\x1b[2Jgone", "a\tprepared\n5841_l34_og_:L1",
                               "\xc2\x9b"
                               "31m",
                               "\xff\xfe", "b\\x1b"};
  for (const std::string &name : names) {
    ASSERT_TRUE(zdb::DurableServer(site.at("bank1")).server()->plant_prepared(name));
  }
  EXPECT_EQ(site.administer("add-user \"$(printf '\\033]0;evil\\007')\" plain").status, 0);
  const Outcome users = site.administer("users");
  EXPECT_TRUE(users.says("\\x1b]0;evil\\x07\tno\n")) << users.output;
  const std::string list = site.branches();
  const char *const shown[] = {"\\x1b[2Jgone", "a\\x09prepared\\x0a5841_l34_og_:L1", "\\xc2\\x9b31m", "\\xff\\xfe",
                               "b\\x5cx1b"};
  std::string all = users.output + list;
  for (const char *name : shown) {
    EXPECT_NE(list.find(std::string("\n") + name + "\tprepared\t"), std::string::npos) << name << " in " << list;
    const Outcome settled = site.administer(std::string("rollback '") + name + "'");
    EXPECT_EQ(settled.status, 0) << settled.output;
    all += settled.output + site.administer(std::string("rollback '") + name + "'").output;
  }
  EXPECT_EQ(site.branches().find("\tprepared\t"), std::string::npos);
  EXPECT_EQ(all.find_first_of("\x1b\x07\x9b\xff"), std::string::npos) << all;
  EXPECT_EQ(site.administer("drop-user '\\x1b]0;evil\\x07'").status, 0);
}

// What the server does with the next requests, and what the command makes of it.
struct Misdeed {
  const char *procedure;
  int32_t times;  // -1: always
  ZDB_REPLY_KIND kind;
  int32_t value;
  const char *words;
  int status;
  const char *shown;
};

TEST(Server, wrong_and_missing_replies_are_understood) {
  const Site site;
  const Misdeed rows[] = {
      {"$commitTrvDtmXact", 1, ZDB_REPLY_DROP_BEFORE, 0, "commit", 0, "xa_commit: XA_OK (0)\n"},
      {"$commitTrvDtmXact", 1, ZDB_REPLY_DROP_AFTER, 0, "commit", 6,
       "xa_commit: XAER_NOTA (-4)\nxadtm: it is not known whether commit was done: the server does not know the"},
      {"$commitTrvDtmXact", -1, ZDB_REPLY_DROP_AFTER, 0, "commit", 6, "XAER_RMFAIL (-7)\nxadtm: it is not known"},
      {"$commitTrvDtmXact", -1, ZDB_REPLY_CMD_FAIL, 0, "commit", 6, "XAER_RMFAIL (-7)\nxadtm: it is not known"},
      {"$commitTrvDtmXact", -1, ZDB_REPLY_STATUS, -4, "commit", 1, "XAER_PROTO (-6)\nxadtm: commit was not done: its"},
      {"$rollbackTrvDtmXact", 1, ZDB_REPLY_DROP_AFTER, 0, "rollback", 6, "XAER_NOTA (-4)\nxadtm: it is not known"},
      {"$forgetTrvDtmXact", 1, ZDB_REPLY_DROP_AFTER, 0, "forget", 1, "XAER_NOTA (-4)\nxadtm: forget was not done: on"},
      {"sp_transactions", 1, ZDB_REPLY_DROP_BEFORE, 0, "branches", 0, "branches in doubt: 1\n"},
      {"sp_transactions", -1, ZDB_REPLY_DROP_BEFORE, 0, "branches", 1, "xadtm: the branches in doubt cannot be read: "},
      {"sp_transactions", -1, ZDB_REPLY_SCAN_STATUS, 1, "commit", 1, "xadtm: the branches in doubt cannot be read: "},
      {"sp_transactions", -1, ZDB_REPLY_SCAN_STATUS, 1, "check", 1, "-> the server did not list its branches in full"},
      {"sp_transactions", -1, ZDB_REPLY_SCAN_NO_STATUS, 0, "check", 1, "  xa_recover: XAER_RMERR (-3)\n"},
      {"$statusTrvDtmXact", -1, ZDB_REPLY_STATUS, 0, "check", 1, "-> set traceflags=all in the [all] section"},
      {"language", -1, ZDB_REPLY_DROP_BEFORE, 0, "check", 1, "-> look after the server: it did not answer"},
  };
  for (const Misdeed &row : rows) {
    ScriptedServer scripted(site);
    if (std::string(row.words) == "forget") {
      scripted.server().force(ScriptedServer::branch, true);
    }
    scripted.server().add_script({row.procedure, 0, row.times, row.kind, row.value, nullptr});
    const std::string words = row.words;
    const bool settles = words != "check" && words != "branches";
    const Outcome outcome = site.xadtm(settles ? words + " " + ScriptedServer::branch + " --yes" : words);
    EXPECT_EQ(outcome.status, row.status) << row.procedure << ", " << row.kind << ": " << outcome.output;
    EXPECT_TRUE(outcome.says(row.shown)) << row.procedure << ", " << row.kind << ": " << outcome.output;
  }
}

}  // namespace
