// One whole life of a resource manager in which the 1st, 2nd, 3rd ... client-library call,
// allocation or read of the configuration fails, until a life passes untouched; then the same with every later one
// failing too. Each life has a process of its own, so that the start-up is part of it. A build may try every n-th only.
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <ostream>

#include "common_control.h"
#include "dtm/dtm_protocol.h"
#include "quillet_control.h"
#include "world.h"

namespace {

struct Fault {
  const char *name;
  void (*arm)(int32_t nth, int32_t and_all_later);
  int32_t (*made)();
};

constexpr Fault faults[] = {
    {"call", qlt_fail_call, qlt_calls_made},
    {"allocation", common_fail_allocation, common_allocations_made},
    {"read", common_fail_reader, common_reader_calls_made},
};

struct Verb {
  const char *name;
  std::vector<int32_t> legal;  // besides XA_OK
  bool rolls_back;             // the XA_RB codes are legal too
};

const Verb open_verb{"xa_open", {XAER_RMERR, XAER_INVAL, XAER_RMFAIL}, false};
const Verb close_verb{"xa_close", {XAER_RMERR, XAER_INVAL, XAER_PROTO}, false};
const Verb start_verb{
    "xa_start", {XAER_RMERR, XAER_RMFAIL, XAER_INVAL, XAER_PROTO, XAER_NOTA, XAER_DUPID, XA_RETRY}, true};
const Verb end_verb{"xa_end", {XAER_RMERR, XAER_RMFAIL, XAER_INVAL, XAER_PROTO, XAER_NOTA}, true};
const Verb prepare_verb{"xa_prepare", {XAER_RMFAIL, XAER_INVAL, XAER_PROTO, XAER_NOTA, XA_RDONLY}, true};
const Verb commit_verb{"xa_commit", {XAER_RMFAIL, XAER_INVAL, XAER_PROTO, XAER_NOTA, XA_RETRY}, true};
const Verb recover_verb{"xa_recover", {XAER_RMERR, XAER_RMFAIL, XAER_INVAL, XAER_PROTO, 1}, false};

class Life {
 public:
  explicit Life(World &world) : world_(world) {}

  void live() {
    note(open_verb, world_.open(1));
    note(start_verb, world_.start(1, "A"));
    note(end_verb, world_.end(1, "A"));
    prepared_ = note(prepare_verb, world_.prepare(1, "A"));
    committed_ = note(commit_verb, world_.commit(1, "A"));
    note(start_verb, world_.start(1, "B"));
    note(end_verb, world_.end(1, "B"));
    note(commit_verb, world_.commit(1, "B", TMONEPHASE));
    XID xids[4];
    note(recover_verb, world_.xa().xa_recover_entry(xids, 4, 1, TMSTARTRSCAN));
    note(close_verb, world_.close(1));
  }

  // A prepared branch is only gone when a commit was sent for it; nothing else may end it.
  void expect_no_branch_lost() const {
    const int32_t state = World::state("A");
    const std::string request = branch_name("A").append(" sent with rpc: ");
    if (prepared_ == XA_OK) {
      // A life whose configuration could not be read may be without a log.
      const bool sent = world_.logged(request + "$commit") || !world_.logged(request + "$begin");
      EXPECT_TRUE(state == DTM_STATE_PREPARED || (state == DTM_STATE_UNKNOWN && sent)) << state;
      EXPECT_FALSE(world_.logged(request + "$rollback"));
      EXPECT_TRUE(committed_ != XA_OK || state == DTM_STATE_UNKNOWN);
      EXPECT_TRUE(committed_ != XAER_PROTO || state == DTM_STATE_PREPARED);
    }
    EXPECT_EQ(World::state("R"), DTM_STATE_PREPARED) << "a branch of somebody else";
  }

  // With the faults gone everything works again, on whatever connections the life has left.
  void recover_from_faults() const {
    EXPECT_EQ(world_.open(1), XA_OK);
    const bool in_doubt = World::state("A") == DTM_STATE_PREPARED;
    for (const char *branch : {"A", "B"}) {
      world_.end(1, branch, TMFAIL);
    }
    EXPECT_EQ(world_.start(1, "C"), XA_OK);
    EXPECT_EQ(world_.end(1, "C"), XA_OK);
    EXPECT_EQ(world_.commit(1, "C", TMONEPHASE), XA_OK);
    XID xids[4];
    EXPECT_EQ(world_.xa().xa_recover_entry(xids, 4, 1, TMSTARTRSCAN | TMENDRSCAN), in_doubt ? 2 : 1);
    const int32_t ended = in_doubt ? world_.commit(1, "A") : world_.rollback(1, "A");
    EXPECT_TRUE(ended == XA_OK || (ended == XAER_NOTA && !in_doubt)) << ended;
    world_.rollback(1, "B");
    EXPECT_EQ(World::state("A"), DTM_STATE_UNKNOWN);
    EXPECT_EQ(World::state("B"), DTM_STATE_UNKNOWN);
    EXPECT_EQ(world_.close(1), XA_OK);
  }

 private:
  // Checks the code; after XAER_RMFAIL the resource manager is opened again, as a transaction manager does.
  int32_t note(const Verb &verb, int32_t code) {
    const bool legal = code == XA_OK || std::count(verb.legal.begin(), verb.legal.end(), code) == 1 ||
                       (verb.rolls_back && code >= XA_RBBASE && code <= XA_RBEND);
    EXPECT_TRUE(legal) << verb.name << " gave " << code;
    if (code == XAER_RMFAIL && &verb != &open_verb) {
      note(open_verb, world_.open(1));
    }
    return code;
  }

  World &world_;
  int32_t prepared_ = XAER_PROTO;
  int32_t committed_ = XAER_PROTO;
};

// How far one life's fault is from the next; CMakeLists.txt says in which build.
constexpr int32_t sweep_step = FAULT_SWEEP_STEP;

constexpr int32_t touched = 1;
constexpr int32_t untouched = 2;

int32_t live_with(const Fault &fault, unsigned flavour, int32_t nth, int32_t and_all_later) {
  World world(flavour);
  // Without a configuration file, which MTS may lack, the open string has to name the server.
  world.server_option = flavour == MTS ? " -Sbank1" : "";
  zdb_plant_prepared(bank, branch_name("R").c_str());
  Life life(world);
  fault.arm(nth, and_all_later);
  life.live();
  const bool reached = fault.made() >= nth;
  fault.arm(0, 0);
  life.expect_no_branch_lost();
  life.recover_from_faults();
  world.expect_nothing_left();
  world.expect_mutex_respected();
  EXPECT_LE(common_blocks_outstanding(), 1) << "more than the registry's node of the thread identity";
  return reached ? touched : untouched;
}

struct SweepCase {
  const Fault *fault;
  unsigned flavour;
  int32_t and_all_later;
};

std::ostream &operator<<(std::ostream &out, const SweepCase &what) {
  return out << what.fault->name << (what.and_all_later != 0 ? " and all later, " : ", ") << flavour_name(what.flavour);
}

std::vector<SweepCase> sweep_cases() {
  std::vector<SweepCase> cases;
  for (const Fault &fault : faults) {
    for (const unsigned flavour : {MTS, TUX, TXS}) {
      cases.push_back({&fault, flavour, 0});
      cases.push_back({&fault, flavour, 1});
    }
  }
  return cases;
}

class FaultSweep : public testing::TestWithParam<SweepCase> {};

TEST_P(FaultSweep, leaves_nothing_behind) {
  const SweepCase &what = GetParam();
  constexpr int32_t too_many = 2000;
  std::string failed;  // told at the end: a child inherits the failures of its parent
  int32_t result = touched;
  int32_t nth = 1 - sweep_step;
  int32_t lives = 0;
  while (result != untouched && nth < too_many) {
    nth += sweep_step;
    ++lives;
    result = run_forked([&] { return live_with(*what.fault, what.flavour, nth, what.and_all_later); });
    if (result == child_failed) {
      failed.append(" ").append(std::to_string(nth));
    }
  }
  EXPECT_EQ(failed, "") << "see above for each " << what.fault->name;
  EXPECT_EQ(result, untouched);
  EXPECT_GT(nth, 5) << "the faults hit nothing";
  RecordProperty("lives", lives);
}

INSTANTIATE_TEST_SUITE_P(, FaultSweep, testing::ValuesIn(sweep_cases()), [](const auto &row) {
  return std::string(row.param.fault->name)
      .append(row.param.and_all_later != 0 ? "_and_all_later_" : "_")
      .append(flavour_name(row.param.flavour));
});

}  // namespace
