// A transaction manager with `long` words at the stand-ins, through the bridge's records.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "accepted_flags.h"
#include "interface/zdb_control.h"
#include "manager.h"
#include "quillet_control.h"

namespace {

// Two servers that keep their branches in folders, and a configuration that knows them as L1 and L2.
class Bridge : public testing::TestWithParam<const char *> {
 protected:
  Bridge() {
    std::string path = std::filesystem::temp_directory_path() / "bridge.XXXXXX";
    directory_ = mkdtemp(path.data());
    std::ofstream(directory_ + "/xa_config") << "[xa]\nlrm=L1\nserver=bank1\n[xa]\nlrm=L2\nserver=bank2\n";
    setenv("XACONFIGFILE", (directory_ + "/xa_config").c_str(), 1);
    setenv("XALOGFILE", (directory_ + "/log").c_str(), 1);
    raise_server("bank1");
    raise_server("bank2");
  }
  ~Bridge() override {
    zdb_drop_server("bank1");
    zdb_drop_server("bank2");
    std::filesystem::remove_all(directory_);
  }

  void raise_server(const std::string &server) const {
    ASSERT_EQ(zdb_open_folder(server.c_str(), (directory_ + '/' + server).c_str()), 1);
    ASSERT_EQ(zdb_add_user(server.c_str(), "sa", "pw", 1), 1);
  }
  static std::string open_string(int rmid) {
    const std::string string = rmid == 2 ? "-NL2 -Usa -Ppw" : "-NL1 -Usa -Ppw";
    return GetParam() == std::string("MTS") ? string + " -KK1" : string;
  }
  int open(int rmid) const { return tm.open(rmid, open_string(rmid)); }

  // The server goes away, and the library closes the resource manager over it.
  void lose_server() const {
    ASSERT_EQ(zdb_drop_server("bank1"), 1);
    ASSERT_EQ(tm.rollback(1, "nothing"), XAER_RMFAIL);
    ASSERT_EQ(qlt_live_connections(), 0);
  }

  std::string directory_;

 public:
  Manager tm{XADTM_LP64_FILE, std::string("tarvex_") + GetParam() + "_xa_switch_lp64"};
};

TEST_P(Bridge, record_describes_the_resource_manager) {
  EXPECT_STREQ(tm.xa().name, "TARVEX_XA_SERVER");
  EXPECT_EQ(tm.xa().flags, TMNOFLAGS);
  EXPECT_EQ(tm.xa().version, 0);
}

TEST_P(Bridge, transactions_end_as_decided) {
  ASSERT_EQ(open(1), XA_OK);
  ASSERT_EQ(open(2), XA_OK);
  EXPECT_EQ(tm.run({1, 2}, "two phases"), Outcome::committed);
  EXPECT_EQ(tm.run({1}, "one phase"), Outcome::committed);
  EXPECT_EQ(tm.run({1, 2}, "rolled back", false), Outcome::rolled_back);
  EXPECT_EQ(zdb_branch_count("bank1"), 0);
  EXPECT_EQ(zdb_branch_count("bank2"), 0);
  EXPECT_EQ(tm.commit(1, "two phases"), XAER_NOTA);  // it has come to its end
  EXPECT_EQ(tm.close(1), XA_OK);
  EXPECT_EQ(tm.close(2), XA_OK);
  EXPECT_EQ(qlt_live_connections(), 0);
  EXPECT_EQ(tm.start(1, "closed"), XAER_INVAL);  // the manager itself has closed it
}

TEST_P(Bridge, decided_branches_survive_a_lost_answer_and_are_recovered) {
  ASSERT_EQ(open(1), XA_OK);
  ASSERT_EQ(open(2), XA_OK);
  const ZDB_SCRIPT drops = {"$commitTrvDtmXact", 0, 2, ZDB_REPLY_DROP_BEFORE, 0, nullptr};
  ASSERT_EQ(zdb_add_script("bank2", &drops), 1);
  EXPECT_EQ(tm.run({1, 2}, "decided"), Outcome::unknown);
  ASSERT_EQ(tm.prepared(2, "undecided"), XA_OK);
  EXPECT_EQ(zdb_branch_count("bank1"), 0);
  EXPECT_EQ(zdb_branch_count("bank2"), 2);
  EXPECT_EQ(tm.recover(2, 10), 2);
  EXPECT_EQ(zdb_branch_count("bank2"), 0);
}

TEST_P(Bridge, suspended_branches_are_resumed_and_ended_ones_joined) {
  ASSERT_EQ(open(1), XA_OK);
  EXPECT_EQ(tm.start(1, "A"), XA_OK);
  EXPECT_EQ(tm.end(1, "A", TMSUSPEND), XA_OK);
  EXPECT_EQ(tm.start(1, "A"), XAER_DUPID);
  EXPECT_EQ(tm.start(1, "A", TMJOIN), XAER_PROTO);
  EXPECT_EQ(tm.start(1, "A", TMRESUME), XA_OK);
  EXPECT_EQ(tm.end(1, "A", TMSUSPEND | TMMIGRATE), XA_OK);
  EXPECT_EQ(tm.start(1, "A", TMRESUME), XA_OK);
  EXPECT_EQ(tm.end(1, "A"), XA_OK);
  EXPECT_EQ(tm.start(1, "A", TMJOIN), XA_OK);
  EXPECT_EQ(tm.end(1, "A"), XA_OK);
  EXPECT_EQ(tm.prepare(1, "A"), XA_OK);
  EXPECT_EQ(tm.commit(1, "A"), XA_OK);
}

TEST_P(Bridge, recovers_250_branches_whatever_the_batches) {
  ASSERT_EQ(open(1), XA_OK);
  std::vector<std::string> names;
  for (int number = 0; number < 250; ++number) {
    names.push_back("branch " + std::to_string(number));
    ASSERT_EQ(tm.prepared(1, names.back()), XA_OK);
    if (number % 2 == 0) {
      tm.decide(names.back());
    }
  }
  std::sort(names.begin(), names.end());
  for (const long count : {1L, 7L, 32L, 100L, 250L, 300L}) {
    std::vector<std::string> found;
    EXPECT_EQ(tm.scan(1, count, found), 250) << count;
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, names) << count;
  }
  // Scans that are left, by the standard's flag with a batch and with none.
  std::vector<XID> batch(100);
  const auto scan = [&](long flags) { return tm.xa().xa_recover_entry(batch.data(), 100, 1, flags); };
  EXPECT_EQ(tm.end_scan(1), 0);
  EXPECT_EQ(scan(TMSTARTRSCAN), 100);
  EXPECT_EQ(tm.end_scan(1), 0);
  EXPECT_EQ(scan(TMNOFLAGS), XAER_PROTO);
  EXPECT_EQ(tm.end_scan(1), 0);
  EXPECT_EQ(scan(TMSTARTRSCAN), 100);
  EXPECT_EQ(scan(TMENDRSCAN), 100);
  EXPECT_EQ(scan(TMNOFLAGS), XAER_PROTO);
  EXPECT_EQ(scan(TMSTARTRSCAN | TMENDRSCAN), 100);
  EXPECT_EQ(scan(TMNOFLAGS), XAER_PROTO);
  EXPECT_EQ(tm.recover(1, 100), 250);
  EXPECT_EQ(tm.recover(1, 100), 0);
  EXPECT_EQ(zdb_branch_count("bank1"), 0);
}

// Under the other flavours, threads share their connections and branches.
class BridgeOfThreads : public Bridge {};

TEST_P(BridgeOfThreads, run_transactions_at_the_same_time) {
  const auto work = [this](int number) {
    ASSERT_EQ(open(1), XA_OK);
    for (int round = 0; round < 20; ++round) {
      const std::string global = std::to_string(number) + '.' + std::to_string(round);
      ASSERT_EQ(tm.prepared(1, global), XA_OK);
      ASSERT_EQ(tm.commit(1, global), XA_OK);
    }
    // A thread's close is its own.
    ASSERT_EQ(tm.prepared(1, std::to_string(number)), XA_OK);
    ASSERT_EQ(tm.close(1), XA_OK);
    ASSERT_EQ(tm.commit(1, std::to_string(number)), XAER_RMFAIL);
    ASSERT_EQ(open(1), XA_OK);
    ASSERT_EQ(tm.commit(1, std::to_string(number)), XA_OK);
    ASSERT_EQ(tm.close(1), XA_OK);
  };
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back(work, number);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(zdb_branch_count("bank1"), 0);
  EXPECT_EQ(qlt_live_connections(), 0);
}

TEST_P(Bridge, threads_open_and_close_while_others_work) {
  ASSERT_EQ(open(1), XA_OK);
  const auto open_and_close = [this] {
    for (int round = 0; round < 50; ++round) {
      ASSERT_EQ(open(2), XA_OK);
      ASSERT_EQ(tm.close(2), XA_OK);
    }
  };
  std::thread other(open_and_close);
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(tm.run({1}, std::to_string(round)), Outcome::committed);
  }
  other.join();
}

// Why threads want TXS: where they share an identity, a start ends what another thread works on. Under MTS it would
// first wait for minutes.
class BridgeStart : public Bridge {};

TEST_P(BridgeStart, ends_what_the_identity_still_works_on) {
  const bool shared = GetParam() == std::string("TUX");
  ASSERT_EQ(open(1), XA_OK);
  ASSERT_EQ(tm.start(1, "first"), XA_OK);
  std::thread([&] {
    ASSERT_EQ(open(1), XA_OK);
    EXPECT_EQ(tm.start(1, "second"), shared ? XAER_PROTO : XA_OK);
  }).join();
  EXPECT_EQ(tm.end(1, "first"), shared ? XAER_PROTO : XA_OK);
}

// What docs/transaction-managers.md says of identities that share a branch. Threads stand for processes.
TEST_P(BridgeOfThreads, a_plain_suspend_keeps_others_from_joining) {
  ASSERT_EQ(open(1), XA_OK);
  const auto elsewhere = [this](const std::function<int()> &work) {
    int code = 0;
    std::thread([&] {
      ASSERT_EQ(open(1), XA_OK);
      code = work();
      ASSERT_EQ(tm.close(1), XA_OK);
    }).join();
    return code;
  };
  const auto joined = [&] { return tm.start(1, "A", TMJOIN); };
  const auto worked = [&] { return joined() == XA_OK ? tm.end(1, "A") : 1; };
  ASSERT_EQ(tm.start(1, "A"), XA_OK);
  ASSERT_EQ(tm.end(1, "A", TMSUSPEND), XA_OK);
  EXPECT_EQ(elsewhere(joined), XAER_RMERR);
  EXPECT_EQ(elsewhere([&] { return tm.start(1, "A", TMJOIN | TMNOWAIT); }), XA_RETRY);
  EXPECT_EQ(elsewhere([&] { return tm.start(1, "A", TMRESUME); }), XAER_RMERR);
  EXPECT_EQ(tm.start(1, "A", TMRESUME), XA_OK);
  EXPECT_EQ(tm.end(1, "A"), XA_OK);
  EXPECT_EQ(elsewhere(worked), XA_OK);
  EXPECT_EQ(tm.commit(1, "A", TMONEPHASE), XA_OK);
}

// ---- A server that goes away and comes back -------------------------------------------------------------------------

// A verb on the prepared branch "A", or on "new", and its answer once the server is back.
struct Verb {
  const char *name;
  std::function<int(Manager &)> call;
  int answer;
};

int first_batch(const Manager &tm, long flags) {
  XID xids[4];
  return tm.xa().xa_recover_entry(xids, 4, 1, flags);
}

const Verb verbs[] = {
    {"start", [](Manager &tm) { return tm.start(1, "new"); }, XA_OK},
    {"start_join", [](Manager &tm) { return tm.start(1, "new", TMJOIN); }, XAER_NOTA},
    {"start_resume", [](Manager &tm) { return tm.start(1, "new", TMRESUME); }, XAER_NOTA},
    {"end", [](Manager &tm) { return tm.end(1, "new"); }, XAER_NOTA},
    {"end_prepared", [](Manager &tm) { return tm.end(1, "A", TMFAIL); }, XAER_PROTO},
    {"suspend", [](Manager &tm) { return tm.end(1, "new", TMSUSPEND); }, XAER_NOTA},
    {"prepare", [](Manager &tm) { return tm.prepare(1, "new"); }, XAER_NOTA},
    {"prepare_again", [](Manager &tm) { return tm.prepare(1, "A"); }, XAER_PROTO},
    {"commit", [](Manager &tm) { return tm.commit(1, "A"); }, XA_OK},
    {"commit_one_phase", [](Manager &tm) { return tm.commit(1, "new", TMONEPHASE); }, XAER_NOTA},
    {"rollback", [](Manager &tm) { return tm.rollback(1, "A"); }, XA_OK},
    {"forget", [](Manager &tm) { return tm.forget(1, "new"); }, XAER_NOTA},
    {"recover", [](Manager &tm) { return first_batch(tm, TMSTARTRSCAN | TMENDRSCAN); }, 1},
    {"recover_on", [](Manager &tm) { return first_batch(tm, TMNOFLAGS); }, XAER_RMFAIL},
    {"end_scan", [](Manager &tm) { return tm.end_scan(1); }, 0},
    {"open", [](Manager &tm) { return tm.open(1, "-NL1 -Usa -Ppw -KK1"); }, XA_OK},
    {"close", [](Manager &tm) { return tm.close(1); }, XA_OK},
};

TEST_P(Bridge, verbs_open_what_the_library_has_closed) {
  for (const Verb &verb : verbs) {
    SCOPED_TRACE(verb.name);
    ASSERT_EQ(tm.open(1, "-NL1 -Usa -Ppw -KK1"), XA_OK);
    ASSERT_EQ(tm.prepared(1, "A"), XA_OK);
    lose_server();
    const int without_server = verb.call(tm);
    const std::string name = verb.name;
    const bool needs_none = name == "close" || name == "end_scan";
    EXPECT_EQ(without_server, name == "open" ? XAER_RMERR : needs_none ? XA_OK : XAER_RMFAIL);
    raise_server("bank1");
    EXPECT_EQ(zdb_branch_count("bank1"), 1) << "the prepared branch is lost";
    if (name == "close") {
      ASSERT_EQ(tm.open(1, "-NL1 -Usa -Ppw -KK1"), XA_OK);
    }
    EXPECT_EQ(verb.call(tm), verb.answer);
    ASSERT_EQ(tm.open(1, "-NL1 -Usa -Ppw -KK1"), XA_OK);
    tm.end(1, "new", TMFAIL);
    tm.rollback(1, "new");
    tm.rollback(1, "A");
    ASSERT_EQ(zdb_branch_count("bank1"), 0);
  }
}

// A manager that closes and opens to get its connection back is not told that its prepared branch is nothing.
TEST_P(Bridge, reconnecting_by_close_and_open_loses_no_branch) {
  ASSERT_EQ(open(1), XA_OK);
  ASSERT_EQ(tm.prepared(1, "A"), XA_OK);
  lose_server();
  EXPECT_EQ(tm.close(1), XA_OK);
  EXPECT_EQ(open(1), XAER_RMERR);
  EXPECT_EQ(tm.commit(1, "A"), XAER_RMFAIL);
  raise_server("bank1");
  EXPECT_EQ(tm.commit(1, "A"), XAER_RMFAIL);  // still not opened
  EXPECT_EQ(open(1), XA_OK);
  EXPECT_EQ(tm.commit(1, "A"), XA_OK);
}

// Whatever flags libxadtm accepts, the bridge knows that XAER_INVAL is not their fault.
TEST_P(Bridge, no_flags_that_are_good_are_called_invalid) {
  ASSERT_EQ(open(1), XA_OK);
  lose_server();
  for (const AcceptedWords &accepted : accepted_words()) {
    for (const long word : accepted.words) {
      const std::string &verb = accepted.verb;
      const int answer = verb == "start"      ? tm.start(1, "A", word)
                         : verb == "end"      ? tm.end(1, "A", word)
                         : verb == "commit"   ? tm.commit(1, "A", word)
                         : verb == "prepare"  ? tm.prepare(1, "A")
                         : verb == "rollback" ? tm.rollback(1, "A")
                                              : tm.forget(1, "A");
      EXPECT_EQ(answer, XAER_RMFAIL) << verb << ' ' << word;
    }
  }
}

TEST_P(Bridge, scans_at_the_same_time_are_whole_or_refused) {
  ASSERT_EQ(open(1), XA_OK);
  for (int number = 0; number < 100; ++number) {
    ASSERT_EQ(tm.prepared(1, std::to_string(number)), XA_OK);
  }
  const auto scan = [this] {
    ASSERT_EQ(open(1), XA_OK);
    std::vector<XID> batch(200);
    for (int round = 0; round < 100; ++round) {
      const int found = tm.xa().xa_recover_entry(batch.data(), 200, 1, TMSTARTRSCAN | TMENDRSCAN);
      EXPECT_TRUE(found == 100 || found == XAER_RMERR) << found;
    }
  };
  std::thread other(scan);
  scan();
  other.join();
}

// Scans that are interrupted begin anew, or say that they are lost; they never come out short.
TEST_P(Bridge, scans_survive_a_broken_session) {
  ASSERT_EQ(open(1), XA_OK);
  for (int number = 0; number < 100; ++number) {
    ASSERT_EQ(tm.prepared(1, std::to_string(number)), XA_OK);
  }
  std::vector<XID> batch(100);
  const auto scan = [&](long count, long flags) { return tm.xa().xa_recover_entry(batch.data(), count, 1, flags); };
  std::atomic<bool> ends{false};
  std::thread breaker([&] {
    while (!ends) {
      zdb_break_sessions("bank1", nullptr);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  for (int round = 0; round < 300; ++round) {
    const int found = scan(100, TMSTARTRSCAN | TMENDRSCAN);
    EXPECT_TRUE(found == 100 || found == XAER_RMFAIL || found == XAER_RMERR) << found;
  }
  ends = true;
  breaker.join();
  EXPECT_EQ(scan(40, TMSTARTRSCAN), 40);
  ASSERT_GE(zdb_break_sessions("bank1", nullptr), 1);
  EXPECT_LT(scan(100, TMNOFLAGS), 0);
  EXPECT_EQ(scan(100, TMSTARTRSCAN | TMENDRSCAN), 100);
}

// A server that does DTM work no more is another thing that libxadtm answers XAER_INVAL for.
TEST_P(Bridge, server_that_is_not_ready_is_no_invalid_argument) {
  for (const Verb &verb : verbs) {
    const std::string name = verb.name;
    if (name == "open" || name == "close" || name == "recover_on") {
      continue;
    }
    SCOPED_TRACE(verb.name);
    ASSERT_EQ(open(1), XA_OK);
    ASSERT_EQ(tm.prepared(1, "A"), XA_OK);
    ASSERT_EQ(zdb_set_dtm("bank1", 0), 1);
    ASSERT_GE(zdb_break_sessions("bank1", nullptr), 1);
    for (int repeats = 0; repeats < 2; ++repeats) {
      EXPECT_NE(verb.call(tm), XAER_INVAL);
    }
    ASSERT_EQ(zdb_set_dtm("bank1", 1), 1);
    const int answer = verb.call(tm);
    // libxadtm asks for the state of a branch that it has not associated once, on whatever connection it has.
    EXPECT_TRUE(answer == verb.answer || (name == "end" && answer == XAER_RMFAIL)) << answer;
    tm.end(1, "new", TMFAIL);
    tm.rollback(1, "new");
    tm.rollback(1, "A");
    ASSERT_EQ(zdb_branch_count("bank1"), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(, BridgeStart, testing::Values("TUX", "TXS"),
                         [](const auto &about) { return std::string(about.param); });
INSTANTIATE_TEST_SUITE_P(, BridgeOfThreads, testing::Values("TXS"),
                         [](const auto &about) { return std::string(about.param); });
INSTANTIATE_TEST_SUITE_P(, Bridge, testing::Values("MTS", "TUX", "TXS"),
                         [](const auto &about) { return std::string(about.param); });

}  // namespace
