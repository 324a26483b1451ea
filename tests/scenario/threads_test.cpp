// Several threads inside the library: one shared identity under MTS and TUX, a thread held in the middle of a verb
// while another one comes, and first opens side by side. Threads with identities of their own: the bridge's managers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>
#include <ostream>

#include "common_control.h"
#include "dtm/dtm_protocol.h"
#include "personality/xal_personality.h"
#include "quillet_control.h"
#include "scenario.h"
#include "world.h"

namespace {

constexpr int crowd = 4;
constexpr int rounds = 15;

void in_crowd(const std::function<void(int)> &work) {
  std::vector<std::thread> threads;
  for (int number = 0; number < crowd; ++number) {
    threads.emplace_back(work, number);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
}

std::string label_of(int thread, int round) {
  std::string label("T");
  return label.append(std::to_string(thread)).append(".").append(std::to_string(round));
}

// Lets other threads run for a while; whoever is not done then was held up.
void give_way() {
  for (int turn = 0; turn < 2000; ++turn) {
    std::this_thread::yield();
  }
}

std::string flavour_case(const testing::TestParamInfo<unsigned> &info) {
  return flavour_name(info.param);
}

// ---- A shared identity ----------------------------------------------------------------------------------------------

class SharedIdentity : public testing::TestWithParam<unsigned> {};

// Start and end of a thread's branch, which the XA standard has the transaction manager keep apart from the others'.
class Turns {
 public:
  int32_t start_and_end(const World &world, const std::string &branch) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int32_t started = world.start(1, branch);
    return started == XA_OK ? world.end(1, branch) : started;
  }

 private:
  std::mutex mutex_;
};

// What a thread believes of its branch must be what the server has, however often the resource manager is closed.
void complete_while_it_may_close(const World &world, Turns &turns, const std::string &branch) {
  turns.start_and_end(world, branch);
  if (world.prepare(1, branch) != XA_OK) {
    return;
  }
  EXPECT_EQ(World::state(branch), DTM_STATE_PREPARED);
  const int32_t committed = world.commit(1, branch);
  if (committed == XA_OK) {
    EXPECT_EQ(World::state(branch), DTM_STATE_UNKNOWN);
  } else {
    EXPECT_EQ(committed, XAER_INVAL);  // not open at this moment
    EXPECT_EQ(World::state(branch), DTM_STATE_PREPARED);
  }
}

TEST_P(SharedIdentity, close_comes_between_the_verbs_of_other_threads) {
  World world(GetParam());
  ASSERT_EQ(world.open(1), XA_OK);
  Turns turns;
  std::atomic<int> working{crowd};
  std::thread closer([&] {
    while (working > 0) {
      const int32_t closed = world.close(1);
      EXPECT_TRUE(closed == XA_OK || closed == XAER_PROTO) << closed;
      EXPECT_EQ(world.open(1), XA_OK);
      XID xids[2];
      EXPECT_GE(world.xa().xa_recover_entry(xids, 2, 1, TMSTARTRSCAN | TMENDRSCAN), 0);
      EXPECT_EQ(world.open(2), XA_OK);
      EXPECT_EQ(world.close(2), XA_OK);
    }
  });
  in_crowd([&](int thread) {
    for (int round = 0; round < rounds; ++round) {
      complete_while_it_may_close(world, turns, label_of(thread, round));
    }
    --working;
  });
  closer.join();
  EXPECT_EQ(world.prepared(1, "Z"), XA_OK);
  EXPECT_EQ(world.commit(1, "Z"), XA_OK);
  world.expect_nothing_left();
  world.expect_mutex_respected();
  EXPECT_LE(common_blocks_outstanding(), 1);
}

// A verb that is held in the client library, and one of another thread for the same branch that has to wait for it.
struct Meeting {
  const char *name;
  std::vector<scenario::Action> before;
  scenario::Action held;
  scenario::Action then;
};

// Only counts: which thread's comparison of XIDs comes first is open.
scenario::Action scan_one(int32_t flags) {
  return {"recover one", [flags](World &world) {
            XID xid;
            return world.xa().xa_recover_entry(&xid, 1, 1, flags);
          }};
}

const std::vector<Meeting> &meetings() {
  using namespace scenario;
  // clang-format off
  static const std::vector<Meeting> all = {
    {"start_then_end",        {},                                   start(1, "A"),               end(1, "A")},
    {"end_then_rollback",     {start(1, "A")},                      end(1, "A"),                 rollback(1, "A")},
    {"prepare_then_commit",   {start(1, "A"), end(1, "A")},         prepare(1, "A"),             commit(1, "A")},
    {"prepare_then_rollback", {start(1, "A"), end(1, "A")},         prepare(1, "A"),             rollback(1, "A")},
    {"recover_then_recover",  {plant(2)},                           scan_one(TMSTARTRSCAN),      scan_one(TMNOFLAGS)},
  };
  // clang-format on
  return all;
}

struct MeetingCase {
  const Meeting *meeting;
  unsigned flavour;
};

std::ostream &operator<<(std::ostream &out, const MeetingCase &what) {
  return out << what.meeting->name << ", " << flavour_name(what.flavour);
}

std::vector<MeetingCase> meeting_cases() {
  std::vector<MeetingCase> cases;
  for (const Meeting &meeting : meetings()) {
    cases.push_back({&meeting, MTS});
    cases.push_back({&meeting, TUX});
  }
  return cases;
}

class HeldVerb : public testing::TestWithParam<MeetingCase> {
 protected:
  HeldVerb() : world(GetParam().flavour), gate("ct_results") {
    EXPECT_EQ(world.open(1), XA_OK);
    for (const scenario::Action &step : GetParam().meeting->before) {
      EXPECT_GE(step.act(world), 0);
    }
    world.gate = &gate;
    world.other.start([this] {
      gate.hold_me();
      return GetParam().meeting->held.act(world);
    });
    gate.wait_until_held();
  }

  // A recovery tells one branch, every other verb gives XA_OK.
  int32_t what_succeeds() const { return world.planted.empty() ? XA_OK : 1; }

  World world;
  Gate gate;
};

TEST_P(HeldVerb, close_meanwhile_is_refused_and_the_verb_finishes) {
  EXPECT_EQ(world.close(1), XAER_PROTO);
  EXPECT_EQ(world.close(1), XAER_PROTO);
  EXPECT_FALSE(world.other.idle());
  EXPECT_EQ(qlt_live_connections(), 1);
  gate.open();
  EXPECT_EQ(world.other.result(), what_succeeds());
  EXPECT_EQ(GetParam().meeting->then.act(world), what_succeeds());
  EXPECT_EQ(qlt_live_connections(), 1);
  world.rollback(1, "A");
  world.expect_nothing_left();
}

TEST_P(HeldVerb, next_verb_for_the_branch_waits_and_finds_the_connection) {
  Worker next;
  next.start([this] { return GetParam().meeting->then.act(world); });
  // Verbs for other branches go on, on connections of their own.
  EXPECT_EQ(world.prepared(1, "B"), XA_OK);
  EXPECT_EQ(world.commit(1, "B"), XA_OK);
  give_way();
  EXPECT_FALSE(next.idle());
  gate.open();
  EXPECT_EQ(world.other.result(), what_succeeds());
  EXPECT_EQ(next.result(), what_succeeds());
  EXPECT_EQ(qlt_live_connections(), 2);
  world.rollback(1, "A");
  world.expect_nothing_left();
  world.expect_mutex_respected();
}

INSTANTIATE_TEST_SUITE_P(, HeldVerb, testing::ValuesIn(meeting_cases()), [](const auto &row) {
  return std::string(row.param.meeting->name).append("_").append(flavour_name(row.param.flavour));
});

TEST_P(SharedIdentity, two_closes_at_once_close_once) {
  World world(GetParam());
  ASSERT_EQ(world.open(1), XA_OK);
  Gate gate("ct_close");
  world.gate = &gate;
  world.other.start([&] {
    gate.hold_me();
    return world.close(1);
  });
  gate.wait_until_held();
  EXPECT_EQ(world.close(1), XAER_PROTO);
  EXPECT_EQ(world.commit(2, "A"), XAER_INVAL);
  gate.open();
  EXPECT_EQ(world.other.result(), XA_OK);
  EXPECT_EQ(world.start(1, "A"), XAER_INVAL);
  world.expect_nothing_left();
}

INSTANTIATE_TEST_SUITE_P(, SharedIdentity, testing::Values(MTS, TUX), flavour_case);

// ---- A join that waits ----------------------------------------------------------------------------------------------

// While a join of a migrated branch sleeps (or is at a gate), other threads' verbs get through. A thread that is stuck
// ends the process.
class WaitingJoin : public testing::TestWithParam<unsigned> {
 protected:
  WaitingJoin() : world(GetParam()) {
    alarm(60);
    EXPECT_EQ(world.open(1), XA_OK);
    EXPECT_EQ(world.other.run([this] { return world.open(1); }), XA_OK);
    EXPECT_EQ(world.start(1, "A"), XA_OK);
    EXPECT_EQ(world.end(1, "A", TMSUSPEND | TMMIGRATE), XA_OK);
  }
  ~WaitingJoin() override {
    world.expect_nothing_left();
    world.expect_mutex_respected();
    alarm(0);
  }

  // Lets the join sleep at its nth sleep until wake().
  void sleep_at(size_t nth) {
    world.when_asleep[nth] = [this] {
      asleep = true;
      while (asleep) {
        std::this_thread::yield();
      }
    };
  }
  void join_elsewhere() {
    world.other.start([this] { return world.start(1, "A", TMJOIN); });
    wait_until_asleep();
  }
  void wait_until_asleep() const {
    while (!asleep) {
      std::this_thread::yield();
    }
  }
  int32_t joined() {
    asleep = false;
    return world.other.result();
  }

  World world;
  std::atomic<bool> asleep{false};
};

TEST_P(WaitingJoin, others_get_through_and_the_join_ends) {
  const struct {
    const char *name;
    std::vector<scenario::Step> meanwhile;
    int32_t joined;
    scenario::Action after;
  } cases[] = {
      {"resumed", {{scenario::start(1, "A", TMRESUME), XA_OK}}, XAER_RMERR, scenario::end(1, "A")},
      {"resumed and ended",
       {{scenario::start(1, "A", TMRESUME), XA_OK}, {scenario::end(1, "A"), XA_OK}},
       XA_OK,
       scenario::other(scenario::end(1, "A"))},
      {"rolled back", {{scenario::rollback(1, "A"), XA_OK}}, XAER_NOTA, scenario::start(1, "A")},
      {"other work",
       {{scenario::start(1, "B"), XA_OK},
        {scenario::rollback(1, "B"), XA_OK},
        {scenario::close(1), {XAER_PROTO, XAER_PROTO, XA_OK}},
        {scenario::open(1), XA_OK},
        {scenario::rollback(1, "A"), XA_OK}},
       XAER_NOTA,
       scenario::start(1, "A")},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    sleep_at(world.slept.size() + 1);
    join_elsewhere();
    for (const scenario::Step &step : one.meanwhile) {
      EXPECT_EQ(step.action.act(world), step.expected.of(GetParam())) << step.action.text;
    }
    EXPECT_EQ(joined(), one.joined);
    EXPECT_EQ(one.after.act(world), XA_OK);
    EXPECT_EQ(world.rollback(1, "A"), XA_OK);
    EXPECT_EQ(world.start(1, "A"), XA_OK);
    EXPECT_EQ(world.end(1, "A", TMSUSPEND | TMMIGRATE), XA_OK);
  }
  EXPECT_EQ(world.rollback(1, "A"), XA_OK);
}

INSTANTIATE_TEST_SUITE_P(, WaitingJoin, testing::Values(MTS, TUX, TXS), flavour_case);

class WaitingJoinHere : public WaitingJoin {};

TEST_P(WaitingJoinHere, a_resume_waits_for_the_request_of_a_join_but_not_for_its_sleep) {
  Gate gate("ct_results");
  world.gate = &gate;
  world.when_asleep[1] = [&] { gate.hold_me(); };
  sleep_at(2);
  world.other.start([this] { return world.start(1, "A", TMJOIN); });
  gate.wait_until_held();
  Worker resumer;
  resumer.start([this] { return world.start(1, "A", TMRESUME); });
  give_way();
  EXPECT_FALSE(resumer.idle());
  gate.open();
  EXPECT_EQ(resumer.result(), XA_OK);
  EXPECT_EQ(joined(), XAER_RMERR);
  EXPECT_EQ(world.rollback(1, "A"), XA_OK);
}

TEST_P(WaitingJoinHere, a_join_that_wakes_waits_for_a_resume_that_has_begun) {
  Gate gate("ct_results");
  world.gate = &gate;
  sleep_at(1);
  join_elsewhere();
  EXPECT_EQ(world.rollback(1, "unknown"), XAER_NOTA);  // makes the connection that the resume takes
  Worker resumer;
  resumer.start([&] {
    gate.hold_me();
    return world.start(1, "A", TMRESUME);
  });
  gate.wait_until_held();
  asleep = false;
  give_way();
  EXPECT_FALSE(world.other.idle());
  gate.open();
  EXPECT_EQ(resumer.result(), XA_OK);
  EXPECT_EQ(joined(), XAER_RMERR);
  EXPECT_EQ(world.rollback(1, "A"), XA_OK);
}

INSTANTIATE_TEST_SUITE_P(, WaitingJoinHere, testing::Values(MTS, TUX), flavour_case);

// ---- First opens ----------------------------------------------------------------------------------------------------

class FirstOpen : public testing::TestWithParam<unsigned> {
 protected:
  FirstOpen() : world(GetParam()), gate("ct_connect") {
    world.gate = &gate;
    world.other.start([this] {
      gate.hold_me();
      return world.open(1);
    });
    gate.wait_until_held();
    serialise = _xa_txs_serialize.load();
  }

  // The result of the work once the first open has gone on; it must not be done before.
  int32_t beside_the_first(const std::function<int32_t()> &work) {
    Worker second;
    second.start(work);
    give_way();
    EXPECT_FALSE(second.idle());
    gate.open();
    return second.result();
  }

  World world;
  Gate gate;
  int32_t serialise = 0;
};

TEST_P(FirstOpen, second_open_waits_and_starts_nothing) {
  EXPECT_EQ(beside_the_first([this] {
              const int32_t opened = world.open(1);
              EXPECT_EQ(zdb_session_count(bank), GetParam() == TXS ? 2 : 1);
              EXPECT_EQ(world.close(1), XA_OK);
              return opened;
            }),
            XA_OK);
  EXPECT_EQ(world.other.result(), XA_OK);
  EXPECT_EQ(world.inits, 1);
  EXPECT_EQ(_xa_txs_serialize.load(), serialise);
  world.expect_nothing_left();
}

TEST_P(FirstOpen, second_open_starts_again_when_the_first_fails) {
  const ZDB_SCRIPT refusal{"language", 0, 1, ZDB_REPLY_DROP_BEFORE, 0, nullptr};
  zdb_add_script(bank, &refusal);
  EXPECT_EQ(beside_the_first([this] {
              const int32_t opened = world.open(1);
              EXPECT_EQ(world.prepared(1, "A"), XA_OK);
              EXPECT_EQ(world.commit(1, "A"), XA_OK);
              EXPECT_EQ(world.close(1), XA_OK);
              return opened;
            }),
            XA_OK);
  EXPECT_EQ(world.other.result(), XAER_INVAL);
  EXPECT_EQ(_xa_txs_serialize.load(), serialise);
  world.expect_nothing_left();
}

TEST_P(FirstOpen, other_flavours_wait_and_are_refused) {
  const unsigned next = GetParam() == TXS ? MTS : GetParam() << 1;
  EXPECT_EQ(beside_the_first([&] { return flavour_switch(next).xa_open_entry("-NL1 -Usa -Ppw -KK1", 1, TMNOFLAGS); }),
            XAER_INVAL);
  EXPECT_EQ(world.other.result(), XA_OK);
  EXPECT_EQ(_xa_txs_serialize.load(), serialise);
  EXPECT_EQ(world.inits, 1);
  EXPECT_EQ(world.other.run([this] { return world.prepared(1, "A"); }), XA_OK);
  EXPECT_EQ(world.other.run([this] { return world.commit(1, "A"); }), XA_OK);
  world.expect_nothing_left();
}

TEST_P(FirstOpen, other_verbs_wait_for_it) {
  const int32_t started = beside_the_first([this] { return world.start(1, "A"); });
  EXPECT_EQ(started, GetParam() == TXS ? XAER_INVAL : XA_OK);
  EXPECT_EQ(world.other.result(), XA_OK);
  world.rollback(1, "A");
  world.expect_nothing_left();
}

INSTANTIATE_TEST_SUITE_P(, FirstOpen, testing::Values(MTS, TUX, TXS), flavour_case);

// Opens under all flavours at once, each in a thread of its own; 0 when exactly one flavour has won and works.
int32_t race_of_flavours(int32_t failing_read) {
  World world(MTS);
  common_fail_reader(failing_read, 0);
  std::atomic<unsigned> winners{0};
  std::atomic<int> refused{0};
  std::vector<std::unique_ptr<Worker>> workers;
  for (const unsigned flavour : {MTS, TUX, TXS}) {
    workers.push_back(std::make_unique<Worker>());
    workers.back()->start([&, flavour] {
      const xa_switch_t &xa = flavour_switch(flavour);
      const int32_t opened = xa.xa_open_entry("-NL1 -Usa -Ppw -Sbank1 -KK1", 1, TMNOFLAGS);
      if (opened != XA_OK) {
        refused += opened == XAER_INVAL ? 1 : 0;
        return opened;
      }
      winners += flavour;
      const XID xid = xid_of("A");
      EXPECT_EQ(xa.xa_start_entry(&xid, 1, TMNOFLAGS), XA_OK);
      EXPECT_EQ(xa.xa_end_entry(&xid, 1, TMSUCCESS), XA_OK);
      EXPECT_EQ(xa.xa_commit_entry(&xid, 1, TMONEPHASE), XA_OK);
      return xa.xa_close_entry("", 1, TMNOFLAGS);
    });
  }
  for (const auto &worker : workers) {
    worker->result();
  }
  common_fail_reader(0, 0);
  EXPECT_TRUE(winners == MTS || winners == TUX || winners == TXS) << winners;
  EXPECT_EQ(refused, 2);
  EXPECT_EQ(qlt_mutexes_held(), 0);
  EXPECT_EQ(qlt_live_connections(), 0);
  return 0;
}

TEST(FlavoursAtOnce, exactly_one_wins) {
  for (int round = 0; round < rounds; ++round) {
    EXPECT_EQ(run_forked([] { return race_of_flavours(0); }), 0);
    // The one whose reading fails gives way to the next.
    EXPECT_EQ(run_forked([] { return race_of_flavours(1); }), 0);
  }
}

}  // namespace
