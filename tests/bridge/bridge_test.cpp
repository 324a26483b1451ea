// A transaction manager with `long` words at the stand-ins, through the bridge's records: that libxadtm really answers
// as the bridge takes it to answer. What the bridge makes of each answer is shown in entries_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "accepted_flags.h"
#include "interface/zdb_control.h"
#include "manager.h"

namespace {

class Bridge : public Banks {
 protected:
  int open(int rmid) const { return tm.open(rmid, open_string(rmid)); }

  // The server goes away, and the library closes the resource manager over it.
  void lose_server() const {
    refuse_logins();
    break_sessions();
    ASSERT_EQ(tm.rollback(1, "nothing"), XAER_RMFAIL);
  }
  void prepare_many(int count) const {
    ASSERT_EQ(open(1), XA_OK);
    for (int number = 0; number < count; ++number) {
      ASSERT_EQ(tm.prepared(1, std::to_string(number)), XA_OK);
    }
  }
  int scan(std::vector<XID> &batch, long flags) const {
    return tm.xa().xa_recover_entry(batch.data(), static_cast<long>(batch.size()), 1, flags);
  }

 public:
  Manager tm{XADTM_LP64_FILE, std::string("tarvex_") + GetParam() + "_xa_switch_lp64"};
};

TEST_P(Bridge, record_describes_the_resource_manager) {
  EXPECT_STREQ(tm.xa().name, "TARVEX_XA_SERVER");
  EXPECT_EQ(tm.xa().flags, TMNOFLAGS);
  EXPECT_EQ(tm.xa().version, 0);
}

TEST_P(Bridge, scans_250_branches_whatever_the_batches) {
  prepare_many(250);
  for (const long count : {1L, 7L, 32L, 100L, 250L, 300L}) {
    std::vector<std::string> found;
    EXPECT_EQ(tm.scan(1, count, found), 250) << count;
    std::sort(found.begin(), found.end());
    EXPECT_EQ(std::unique(found.begin(), found.end()), found.end()) << count;
    EXPECT_FALSE(std::binary_search(found.begin(), found.end(), "stranger")) << count;
  }
  // Scans that are left, by the standard's flag with a batch and with none.
  std::vector<XID> batch(100);
  EXPECT_EQ(tm.end_scan(1), 0);
  EXPECT_EQ(scan(batch, TMSTARTRSCAN), 100);
  EXPECT_EQ(tm.end_scan(1), 0);
  EXPECT_EQ(scan(batch, TMNOFLAGS), XAER_PROTO);
  EXPECT_EQ(tm.end_scan(1), 0);
  EXPECT_EQ(scan(batch, TMSTARTRSCAN), 100);
  EXPECT_EQ(scan(batch, TMENDRSCAN), 100);
  EXPECT_EQ(scan(batch, TMNOFLAGS), XAER_PROTO);
  EXPECT_EQ(scan(batch, TMSTARTRSCAN | TMENDRSCAN), 100);
  EXPECT_EQ(scan(batch, TMNOFLAGS), XAER_PROTO);
}

// Scans that are interrupted begin again, or say that they are lost; they never come out short.
TEST_P(Bridge, scans_survive_a_broken_session) {
  prepare_many(100);
  std::vector<XID> batch(100);
  std::atomic<bool> ends{false};
  std::thread breaker([&] {
    while (!ends) {
      break_sessions();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  for (int round = 0; round < 300; ++round) {
    const int found = scan(batch, TMSTARTRSCAN | TMENDRSCAN);
    EXPECT_TRUE(found == 100 || found == XAER_RMFAIL || found == XAER_RMERR) << found;
  }
  ends = true;
  breaker.join();
}

TEST_P(Bridge, threads_open_and_close_while_others_work) {
  ASSERT_EQ(open(1), XA_OK);
  std::thread other([this] {
    for (int round = 0; round < 50; ++round) {
      ASSERT_EQ(open(2), XA_OK);
      ASSERT_EQ(tm.close(2), XA_OK);
    }
  });
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(tm.prepared(1, "A"), XA_OK);
    ASSERT_EQ(tm.commit(1, "A"), XA_OK);
  }
  other.join();
}

// ---- A server that goes away and comes back -------------------------------------------------------------------------

// A verb on the prepared branch "A", or on "new", and its answer once the server is back.
struct Verb {
  const char *name;
  std::function<int(Manager &)> call;
  int answer;
  bool needs_server = true;
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
    {"end_scan", [](Manager &tm) { return tm.end_scan(1); }, 0, false},
};

// A server that does DTM work no more is another thing that libxadtm answers XAER_INVAL for.
TEST_P(Bridge, verbs_open_what_the_library_has_closed) {
  for (const bool lost : {true, false}) {
    for (const Verb &verb : verbs) {
      SCOPED_TRACE(verb.name);
      ASSERT_EQ(open(1), XA_OK);
      ASSERT_EQ(tm.prepared(1, "A"), XA_OK);
      if (lost) {
        lose_server();
        EXPECT_EQ(verb.call(tm), verb.needs_server ? XAER_RMFAIL : XA_OK);
        EXPECT_EQ(open(1), XAER_RMERR);
      } else {
        zdb_set_dtm("bank1", 0);
        break_sessions();
        EXPECT_NE(verb.call(tm), XAER_INVAL);
        EXPECT_NE(verb.call(tm), XAER_INVAL);
      }
      refuse_nothing();
      const int answer = verb.call(tm);
      // libxadtm asks for the state of a branch that it has not associated once, on whatever connection it has.
      const bool asked_in_vain = !lost && verb.name == std::string("end") && answer == XAER_RMFAIL;
      EXPECT_TRUE(answer == verb.answer || asked_in_vain) << answer;
      ASSERT_EQ(open(1), XA_OK);
      tm.end(1, "new", TMFAIL);
      tm.rollback(1, "new");
      tm.rollback(1, "A");
      ASSERT_EQ(zdb_branch_count("bank1"), 0);
    }
  }
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

INSTANTIATE_TEST_SUITE_P(, Bridge, testing::Values("MTS", "TUX", "TXS"),
                         [](const auto &about) { return std::string(about.param); });

}  // namespace
