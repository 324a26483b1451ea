// A transaction manager with `long` words at the stand-ins, through the bridge's records. What the bridge makes of each
// answer of libxadtm is shown in entries_test.cpp, and what managers make of the bridge's in managers_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "accepted_flags.h"
#include "manager.h"

namespace {

class Bridge : public Banks {
 protected:
  int open(int rmid) const { return tm.open(rmid, open_string(rmid)); }

 public:
  Manager tm{XADTM_LP64_FILE, std::string("tarvex_") + GetParam() + "_xa_switch_lp64"};
};

TEST_P(Bridge, record_describes_the_resource_manager) {
  EXPECT_STREQ(tm.xa().name, "TARVEX_XA_SERVER");
  EXPECT_EQ(tm.xa().flags, TMNOFLAGS);
  EXPECT_EQ(tm.xa().version, 0);
}

TEST_P(Bridge, scans_250_branches_whatever_the_batches) {
  ASSERT_EQ(open(1), XA_OK);
  for (int number = 0; number < 250; ++number) {
    ASSERT_EQ(tm.prepared(1, std::to_string(number)), XA_OK);
  }
  for (const long count : {1L, 7L, 32L, 100L, 250L, 300L}) {
    std::vector<std::string> found;
    EXPECT_EQ(tm.scan(1, count, found), 250) << count;
    std::sort(found.begin(), found.end());
    EXPECT_EQ(std::unique(found.begin(), found.end()), found.end()) << count;
    EXPECT_FALSE(std::binary_search(found.begin(), found.end(), "stranger")) << count;
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

// Whatever flags libxadtm accepts, the bridge knows that XAER_INVAL is not their fault.
TEST_P(Bridge, no_flags_that_are_good_are_called_invalid) {
  ASSERT_EQ(open(1), XA_OK);
  refuse_logins();
  break_sessions();
  ASSERT_EQ(tm.rollback(1, "nothing"), XAER_RMFAIL) << "the library closes the resource manager over it";
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
