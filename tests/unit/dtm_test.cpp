// Branch operations: which requests each sends for which replies, and what comes out.
#include <gtest/gtest.h>

#include "dtm/xal_dtm.h"
#include "personality/xal_personality.h"
#include "record/xal_record.h"
#include "scene.h"

using namespace fake;

namespace {

const std::string prepare = "prepare 1234_0g83_10k_:L1 status 7 flags 0x0";
const std::string commit = "commit 1234_0g83_10k_:L1 status 100 flags 0x0";
const std::string commit_once = "commit 1234_0g83_10k_:L1 status 100 flags 0x20";
const std::string abort_branch = "rollback 1234_0g83_10k_:L1 status 101 flags 0x100";
const std::string forget = "forget 1234_0g83_10k_:L1 status 102 flags 0x0";
const std::string query = "select state from master..systransactions where xactname = \"1234_0g83_10k_:L1\" ";

constexpr int32_t committed = 65548;
constexpr int32_t rolled_back = 65549;

// A case of one operation; a reply that is a plain status is given as its number.
struct Case {
  const char *name;
  bool forced;
  int32_t flags;
  std::vector<Reply> replies;
  int32_t code;
  Lines requests;
  Lines log = {};
};

Reply state_row(int32_t state) {
  return {row(state), marker(CS_CMD_DONE)};
}

class Dtm : public Scene {
 protected:
  template <typename Operation>
  void run(const std::vector<Case> &cases, Operation operation) {
    for (const Case &one : cases) {
      SCOPED_TRACE(one.name);
      fresh();
      behave_as(XATM_TUX, one.forced ? XAPF_FORCE_ATTACH : 0);
      library().replies.assign(one.replies.begin(), one.replies.end());
      EXPECT_EQ(operation(one.flags), one.code);
      EXPECT_EQ(library().take_requests(), one.requests);
      EXPECT_EQ(take_log(), one.log);
      EXPECT_TRUE(library().replies.empty()) << "fewer requests were sent than scripted";
      EXPECT_FALSE(conn.xc_cmd->pending);
    }
  }
  const XID xid = branch();
};

TEST_F(Dtm, start) {
  // clang-format off
  const std::vector<Case> cases = {
      {"join without waiting is busy", false, TMJOIN | TMNOWAIT, {st(-4)}, XA_RETRY, {attach_nowait}},
      {"join that waits is never busy", false, TMJOIN, {st(-4)}, XAER_RMERR, {attach},
       {"[xa__dtm_start] Error: Unexpected DTM BUSY indication"}},
      {"resume", false, TMRESUME, {st(0)}, XA_OK, {attach}},
      {"join and resume", false, TMJOIN | TMRESUME, {}, XAER_INVAL, {},
       {"[xa__dtm_start] Error: Invalid flags 136314880"}},
  };
  // clang-format on
  run(cases, [this](int32_t flags) { return xa__dtm_start(&conn, &xid, flags); });
}

TEST_F(Dtm, end) {
  const std::vector<Case> cases = {
      {"success", false, TMSUCCESS, {st(1)}, XA_OK, {"detach 1234_0g83_10k_:L1 status 2 flags 0x0"}},
      {"fail is told like success", false, TMFAIL, {st(4)}, XA_OK, {"detach 1234_0g83_10k_:L1 status 2 flags 0x0"}},
      {"suspend", false, TMSUSPEND, {st(1)}, XA_OK, {"detach 1234_0g83_10k_:L1 status 3 flags 0x0"}},
      {"migrate", false, TMSUSPEND | TMMIGRATE, {st(4)}, XAER_PROTO, {"detach 1234_0g83_10k_:L1 status 4 flags 0x0"}},
      {"no flags", false, TMNOFLAGS, {}, XAER_INVAL, {}, {"[xa__dtm_end] Error: Invalid flags 0"}},
  };
  run(cases, [this](int32_t flags) { return xa__dtm_end(&conn, &xid, flags); });
}

TEST_F(Dtm, prepare_polls_before_it_looks_for_heuristics) {
  const std::string conflict =
      "[xa__dtm_prepare] Error: internal state conflict XAER_PROTO vs. XAER_NOTA. Returning XAER_RMERR";
  const std::string heuristic = "[xa__dtm_prepare] Message: xa__dtm_prepare: Heuristic completion ocurred";
  const Lines three{attach_nowait, detach_nowait, prepare};
  // clang-format off
  const std::vector<Case> cases = {
      {"attach, detach, prepare", false, 0, {st(2), st(1), st(2)}, XA_OK, three},
      {"outcome of the detach is not looked at", false, 0, {st(2), {broken(CS_FAIL)}, st(2)}, XA_OK, three},
      {"branch still busy at the attach", false, 0, {st(-9), st(1), st(2)}, XA_OK, three},
      {"attached elsewhere", false, 0, {st(-4)}, XAER_PROTO, {attach_nowait}},
      {"unknown at the attach is not checked", false, 0, {st(-2)}, XAER_NOTA, {attach_nowait}},
      {"busy, then gone, and committed", true, 0, {st(-9), st(-9), st(7), st(-2), state_row(committed)}, XA_HEURCOM,
       {prepare_forced, ask, ask, ask, query}, {heuristic}},
      {"unknown twice", true, 0, {st(-2), {rows({})}}, XAER_NOTA, {prepare_forced, query}},
      {"unknown, yet in the table", true, 0, {st(-2), state_row(7)}, XAER_RMERR, {prepare_forced, query}, {conflict}},
  };
  // clang-format on
  run(cases, [this](int32_t) { return xa__dtm_prepare(&conn, &xid); });
}

TEST_F(Dtm, commit_looks_for_heuristics_before_it_polls) {
  const std::string conflict =
      "[xa__dtm_commit] Error: internal state conflict XAER_PROTO vs. XAER_NOTA. Returning XAER_RMERR";
  // clang-format off
  const std::vector<Case> cases = {
      {"two phases, no wait", true, TMNOWAIT, {st(7)}, XA_OK, {commit_forced}},
      {"one phase", false, TMONEPHASE, {st(2), st(-4), st(0)}, XA_OK, {attach_nowait, detach_nowait, commit_once}},
      {"one phase, read only", false, TMONEPHASE | TMNOWAIT, {st(2), st(2), st(-256)}, XA_OK, {attach_nowait,
       detach_nowait, commit_once}},
      {"one phase, busy at the attach", false, TMONEPHASE, {st(-9)}, XAER_RMFAIL, {attach_nowait}},
      {"unknown, and committed", false, TMNOFLAGS, {st(-2), state_row(committed)}, XA_HEURCOM, {commit, query}},
      {"unknown, yet in the table", false, TMNOFLAGS, {st(-2), state_row(7)}, XAER_RMERR, {commit, query}, {conflict}},
      {"busy, then gone: no second look", false, TMNOFLAGS, {st(-9), st(-9), st(-2)}, XAER_NOTA, {commit, ask, ask}},
      {"flags that do not fit", false, TMJOIN, {}, XAER_INVAL, {}, {"[xa__dtm_commit] Error: Invalid flags 2097152"}},
  };
  // clang-format on
  run(cases, [this](int32_t flags) { return xa__dtm_commit(&conn, &xid, flags); });
}

TEST_F(Dtm, rollback_aborts_what_another_session_holds) {
  const std::string aborting = "[xa__dtm_rollback] Message: Performing asyncronous abort";
  // clang-format off
  const std::vector<Case> cases = {
      {"attach to abort, then roll back", false, 0, {st(2), st(6)}, XA_OK, {attach_to_abort, rollback}},
      {"whatever the attach says", false, 0, {{output("@$rpcerror", 1)}, st(6)}, XA_OK, {attach_to_abort, rollback}},
      {"held elsewhere at the attach", false, 0, {st(-4), st(1)}, XA_OK, {attach_to_abort, abort_branch}, {aborting}},
      {"held elsewhere at the rollback", false, 0, {st(2), st(-128), st(1)}, XA_OK, {attach_to_abort, rollback,
       abort_branch}, {aborting}},
      {"held elsewhere for ever", false, 0, {st(-4), st(-128)}, XAER_RMERR, {attach_to_abort, abort_branch},
       {aborting}},
      {"forced and held elsewhere", true, 0, {st(-1), st(1)}, XA_OK, {rollback_forced, abort_branch}, {aborting}},
      {"busy at the attach: polled, not rolled back", false, 0, {st(-9), st(-2)}, XAER_NOTA, {attach_to_abort, ask}},
      {"busy, then gone: no second look", true, 0, {st(-9), st(-2)}, XAER_NOTA, {rollback_forced, ask}},
      {"abort of an unknown branch", false, 0, {st(-4), st(-2), {rows({})}}, XAER_NOTA, {attach_to_abort, abort_branch,
       query}, {aborting}},
      {"unknown, yet in the table", true, 0, {st(-2), state_row(7)}, XAER_RMERR, {rollback_forced, query},
       {"[xa__dtm_rollback] Error: xa__dtm_rollback: internal state conflict XAER_PROTO vs. XAER_NOTA. Returning "
       "XAER_RMERR", ""}},
  };
  // clang-format on
  run(cases, [this](int32_t) { return xa__dtm_rollback(&conn, &xid); });
}

TEST_F(Dtm, forget_asks_first) {
  const std::vector<Case> cases = {
      {"heuristic", false, 0, {state_row(committed), st(0)}, XA_OK, {query, forget}},
      {"unknown", false, 0, {{rows({})}}, XAER_NOTA, {query}},
      {"the server refuses", false, 0, {state_row(rolled_back), st(-4)}, XAER_NOTA, {query, forget}},
      {"query broken off", false, 0, {{broken(CS_FAIL)}}, XAER_RMFAIL, {query}},
  };
  run(cases, [this](int32_t) { return xa__dtm_forget(&conn, &xid); });
}

TEST_F(Dtm, heuristic_check_reads_exactly_one_state) {
  const std::string error = "[xa_dtm_check_heur] Error: xa_dtm_check_heur: ";
  // clang-format off
  const std::vector<Case> cases = {
      {"committed", false, 0, {{marker(CS_CMD_SUCCEED), row(committed), status(0)}}, XA_HEURCOM, {query}},
      {"rolled back", false, 0, {state_row(rolled_back)}, XA_HEURRB, {query}},
      {"another state", false, 0, {state_row(0)}, XAER_PROTO, {query}},
      {"no row result", false, 0, {{marker(CS_CMD_DONE)}}, XAER_NOTA, {query}},
      {"broken off before a row", false, 0, {{marker(CS_CMD_DONE), broken(CS_CANCELED)}}, XAER_RMFAIL, {query}},
      {"two rows", false, 0, {{rows({committed, committed})}}, XAER_RMERR, {query},
       {error + "improper end data [CS_SUCCEED]"}},
      {"two columns", false, 0, {{table({{1, 2}})}}, XAER_RMERR, {query},
       {"[xa__conn_fetch_1c1r] Error: xa__conn_fetch_1c1r: not one column (2)", error + "fetch failed [CS_FAIL]"}},
      {"status result", false, 0, {{status(0), row(committed)}}, XAER_RMFAIL, {query},
       {error + "unexpected result type 4043"}},
      {"command failed", false, 0, {{marker(CS_CMD_FAIL)}}, XAER_RMFAIL, {query},
       {error + "unexpected result type 4048"}},
  };
  // clang-format on
  run(cases, [this](int32_t) { return xa__dtm_check_heur(&conn, &xid); });
  for (const char *operation : {"ct_command", "ct_send"}) {
    fresh();
    library().fail(operation);
    EXPECT_EQ(xa__dtm_check_heur(&conn, &xid), XAER_RMFAIL);
    EXPECT_EQ(take_log(), Lines{error + operation + " failed"});
  }
}

TEST_F(Dtm, polling_sleeps_a_second_with_the_mutex_held) {
  library().replies = {st(-9), st(6), st(255), {broken(CS_FAIL)}};
  EXPECT_EQ(xa__dtm_await_completion(&conn, &xid), XAER_RMERR);
  EXPECT_EQ(library().take_calls({"sleep", "ct_send"}),
            (Lines{"sleep(1)", "ct_send(cmd1)", "sleep(1)", "ct_send(cmd1)", "sleep(1)", "ct_send(cmd1)", "sleep(1)",
                   "ct_send(cmd1)"}));
}

}  // namespace
