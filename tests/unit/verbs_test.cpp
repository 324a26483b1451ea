// The XA verbs: flags, the connection each works on, what is sent, and the state afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "scene.h"
#include "xadtm.h"
#include "xal_log.h"

using namespace fake;

namespace {

const std::string x_name = "1234_0g83_10k_:L1";
const std::string begin = "begin " + x_name + " mode 0x30000 status 1 flags 0x10";
const std::string join = "attach " + x_name + " status 1 flags 0x0";
const std::string join_nowait = "attach " + x_name + " status 1 flags 0x2";
const std::string detach = "detach " + x_name + " status 2 flags 0x0";
const std::string detach_migrate = "detach " + x_name + " status 4 flags 0x0";
const std::string ask = "status " + x_name + " status 0 flags 0x0";
const std::string ask_other = "status 2_1w__:L1 status 0 flags 0x0";
const std::string detach_other = "detach 2_1w__:L1 status 2 flags 0x0";
const std::string prepare = "prepare " + x_name + " status 7 flags 0x6000";
const std::string commit = "commit " + x_name + " status 100 flags 0x6000";
const std::string commit_once = std::string("commit ") + x_name + " status 100 flags 0x6020";
const std::string attach_to_abort = "attach " + x_name + " status 6 flags 0x2";
const std::string rollback = "rollback " + x_name + " status 101 flags 0x0";

constexpr int32_t lost = -16777215;  // the server's DTM layer is gone: XAER_RMFAIL

Reply st(int32_t value) {
  return {status(value)};
}
XID none() {
  return make_xid(-1, "");
}

class Verbs : public OpenScene {
 protected:
  void expect(const Lines &requests, const Lines &after) {
    EXPECT_EQ(sent(), requests);
    EXPECT_EQ(connections(), after);
    EXPECT_TRUE(library().replies.empty()) << "fewer requests were sent than scripted";
  }
  // The first line that reports the verb's failure, without its entry line.
  static std::string reported() {
    for (const std::string &line : take_log()) {
      if (line.find("] Error: Return ") != std::string::npos) {
        return line;
      }
    }
    return "";
  }
  const XID x = branch();
  const XID y = other_branch();
};

// ---- Flags ----------------------------------------------------------------------------------------------------------

TEST_F(Verbs, exactly_the_listed_flag_words_are_accepted) {
  const std::vector<int32_t> flags = {TMNOFLAGS,  TMASYNC,   TMONEPHASE, TMFAIL,       TMNOWAIT,
                                      TMRESUME,   TMSUCCESS, TMSUSPEND,  TMSTARTRSCAN, TMENDRSCAN,
                                      TMMULTIPLE, TMJOIN,    TMMIGRATE,  0x1,          -1};
  XID found{};
  const struct {
    const char *name;
    std::vector<int32_t> accepted;
    std::function<int32_t(int32_t)> call;
    int32_t unopened;  // the result for an rmid that is not open
  } verbs[] = {
      {"xa_close", {0}, [](int32_t f) { return xa_close("", 77, f); }, XA_OK},
      {"xa_start",
       {0, TMJOIN, TMRESUME, TMNOWAIT, TMNOWAIT | TMJOIN, TMNOWAIT | TMRESUME},
       [this](int32_t f) { return xa_start(&x, 77, f); },
       XAER_INVAL},
      {"xa_end",
       {TMSUCCESS, TMSUSPEND, TMSUSPEND | TMMIGRATE, TMFAIL},
       [this](int32_t f) { return xa_end(&x, 77, f); },
       XAER_INVAL},
      {"xa_prepare", {0}, [this](int32_t f) { return xa_prepare(&x, 77, f); }, XAER_INVAL},
      {"xa_commit",
       {0, TMONEPHASE, TMNOWAIT, TMONEPHASE | TMNOWAIT},
       [this](int32_t f) { return xa_commit(&x, 77, f); },
       XAER_INVAL},
      {"xa_rollback", {0}, [this](int32_t f) { return xa_rollback(&x, 77, f); }, XAER_INVAL},
      {"xa_forget", {0}, [this](int32_t f) { return xa_forget(&x, 77, f); }, XAER_INVAL},
      {"xa_recover",
       {TMSTARTRSCAN, TMSTARTRSCAN | TMENDRSCAN, TMENDRSCAN, 0},
       [&](int32_t f) { return xa_recover(&found, 1, 77, f); },
       XAER_RMFAIL},
  };
  for (const auto &verb : verbs) {
    for (const int32_t one : flags) {
      for (const int32_t other : flags) {
        const int32_t word = one | other;
        const bool accepted = std::find(verb.accepted.begin(), verb.accepted.end(), word) != verb.accepted.end();
        EXPECT_EQ(verb.call(word), accepted ? verb.unopened : XAER_INVAL) << verb.name << " " << word;
        EXPECT_EQ(reported().empty(), !accepted || verb.unopened == XA_OK) << "a refused word is not reported";
      }
    }
  }
  EXPECT_EQ(library().take_calls(), Lines{});
}

TEST_F(Verbs, refusals_show_the_entry_line) {
  EXPECT_EQ(xa_start(&x, 77, TMJOIN), XAER_INVAL);
  EXPECT_EQ(take_log(), (Lines{"[xa_start] Error: Return  retstat: -5 ([XAER_INVAL])",
                               "rmid: 77, flags:[TMJOIN] XID:\t4660.3.2", "\t010203", "\t0405", ""}));
  EXPECT_EQ(xa_commit(nullptr, 1, TMNOFLAGS), XAER_INVAL);
  EXPECT_EQ(take_log(),
            (Lines{"[xa_commit] Error: Return  retstat: -5 ([XAER_INVAL])", "rmid: 1, flags:[] XID:<nil>"}));
  EXPECT_EQ(xa_start(nullptr, 1, TMNOFLAGS), XAER_INVAL);
  EXPECT_EQ(xa_end(nullptr, 1, TMSUCCESS), XAER_INVAL);
  take_log();
  xacmn_log_tracing.store(XATR_XA);
  EXPECT_EQ(xa_complete(nullptr, nullptr, 0, -1), XAER_PROTO);
  EXPECT_EQ(take_log(), (Lines{"[xa_complt] XA trace: Enter", "[xa_complt] Error: Return  retstat: -6 ([XAER_PROTO])",
                               "xa_complete is not provided", "[xa_complt] XA trace:  retstat: -6 ([XAER_PROTO])"}));
}

TEST(ValidateFlags, one_accepted_bit_suffices_but_contradictions_do_not) {
  const struct {
    int32_t verb, flags, result;
  } cases[] = {{2, TMJOIN | TMRESUME, 0},
               {2, TMJOIN | TMSUCCESS, 1},
               {2, TMSUCCESS, 0},
               {3, 0, 0},
               {3, TMMIGRATE, 0},
               {3, TMSUSPEND | TMMIGRATE, 1},
               {3, TMSUCCESS | TMFAIL, 0},
               {3, TMSUSPEND | TMSUCCESS, 0},
               {3, TMSUCCESS | TMJOIN, 1},
               {5, TMONEPHASE, 1},
               {4, TMONEPHASE, 0},
               {6, 0, 1},
               {7, TMMULTIPLE, 1},
               {9, TMENDRSCAN, 1},
               {10, 0, 0},
               {-1, 0, 0}};
  for (const auto &one : cases) {
    EXPECT_EQ(xacmn_validate_flags(one.verb, one.flags), one.result) << one.verb << " " << one.flags;
  }
  EXPECT_EQ(xacmn_no_op(), 1);
}

// ---- Starting -------------------------------------------------------------------------------------------------------

// A case of one verb on rmid 1's only connection; replies come in order.
struct Case {
  const char *name;
  int32_t state;
  XID xid;
  int32_t flags;
  std::vector<Reply> replies;
  int32_t result;
  Lines requests;
  Lines after;
};

TEST_F(Verbs, start_by_the_connection_that_holds_the_branch) {
  // clang-format off
  const struct {
    uint32_t personality;
    Case one;
  } cases[] = {
      {0, {"new branch", XCS_UNUSED, none(), TMNOFLAGS, {st(0)}, XA_OK, {begin}, {"con1 1 1234"}}},
      {0, {"branch is known", XCS_UNUSED, none(), TMNOFLAGS, {st(-3)}, XAER_DUPID, {begin}, {"con1 0 ffffffff"}}},
      {0, {"completed here before", XCS_UNUSED, x, TMNOWAIT, {st(0)}, XA_OK, {begin}, {"con1 1 1234"}}},
      {0, {"join", XCS_UNUSED, none(), TMJOIN, {st(2)}, XA_OK, {join}, {"con1 1 1234"}}},
      {0, {"join that cannot wait", XCS_UNUSED, none(), TMJOIN | TMNOWAIT, {st(-4)}, XA_RETRY, {join_nowait},
       {"con1 0 ffffffff"}}},
      {0, {"join of a branch suspended for migration", XCS_UNUSED, none(), TMJOIN, {st(4), st(1), st(2)}, XA_OK, {join,
       detach_migrate, join}, {"con1 1 1234"}}},
      {0, {"resume", XCS_UNUSED, none(), TMRESUME, {st(4)}, XA_OK, {join}, {"con1 1 1234"}}},
      {0, {"resume of a branch that was not suspended", XCS_UNUSED, none(), TMRESUME, {st(2), st(1)}, XAER_PROTO,
       {join, detach}, {"con1 0 ffffffff"}}},
      {0, {"start of a branch suspended here", XCS_SUSPEND, x, TMNOFLAGS, {}, XAER_DUPID, {}, {"con1 3 1234"}}},
      {0, {"join of a branch suspended here", XCS_SUSPEND, x, TMJOIN, {}, XAER_PROTO, {}, {"con1 3 1234"}}},
      {0, {"resume of a branch suspended here", XCS_SUSPEND, x, TMRESUME, {}, XA_OK, {}, {"con1 1 1234"}}},
      {0, {"associated already", XCS_ASSOC, x, TMNOFLAGS, {st(1)}, XAER_DUPID, {detach}, {"con1 0 ffffffff"}}},
      {0, {"associated already, join", XCS_ASSOC, x, TMJOIN | TMNOWAIT, {st(1)}, XAER_PROTO, {detach},
       {"con1 0 ffffffff"}}},
      {0, {"another branch is live", XCS_ASSOC, y, TMNOFLAGS, {st(2), st(1)}, XAER_PROTO, {ask_other, detach_other},
       {"con1 0 ffffffff"}}},
      {0, {"another branch is gone", XCS_ASSOC, y, TMNOFLAGS, {st(-2), st(-2), st(0)}, XA_OK, {ask_other, detach_other,
       begin}, {"con1 1 1234"}}},
      {XAPF_CLOSE_ENDS, {"associated already, ended kindly", XCS_ASSOC, x, TMNOFLAGS, {st(1), st(0)}, XA_OK, {detach,
       begin}, {"con1 1 1234"}}},
      {XAPF_CLOSE_ENDS, {"another branch is live, ended kindly", XCS_ASSOC, y, TMNOFLAGS, {st(1), st(1), st(0)}, XA_OK,
       {ask_other, detach_other, begin}, {"con1 1 1234"}}},
      {0, {"connection lost", XCS_UNUSED, none(), TMNOFLAGS, {st(lost), st(0)}, XA_OK, {begin, begin},
       {"con2 1 1234"}}},
      {0, {"connection lost twice", XCS_UNUSED, none(), TMNOFLAGS, {st(-1), st(-1)}, XAER_RMERR, {begin, begin},
       {"con2 0 ffffffff"}}},
      {0, {"server lost twice closes the rmid", XCS_UNUSED, none(), TMNOFLAGS, {st(lost), st(lost)}, XAER_RMFAIL,
       {begin, begin}, {}}},
  };
  // clang-format on
  for (const auto &[flags, one] : cases) {
    SCOPED_TRACE(one.name);
    reopen(XATM_TUX, flags);
    set(one.state, one.xid);
    library().replies.assign(one.replies.begin(), one.replies.end());
    EXPECT_EQ(xa_start(&x, 1, one.flags), one.result);
    expect(one.requests, one.after);
    const Lines published = library().take_calls({"cs_obj_insert"});
    EXPECT_EQ(published.size(), one.result == XA_OK ? 1U : 0U);
    EXPECT_EQ(reported().empty(), one.result >= 0);
  }
}

TEST_F(Verbs, a_local_join_of_a_suspended_branch_is_noted) {
  set(XCS_SUSPEND, x);
  xa_start(&x, 1, TMJOIN);
  EXPECT_EQ(take_log().at(0), "[xa_start] Note: Attempt to join transaction suspended in same thread");
}

TEST_F(Verbs, join_waits_between_attempts_with_the_mutex) {
  library().replies = {st(4), st(1), st(4), st(1), st(3)};
  EXPECT_EQ(xa_start(&x, 1, TMJOIN), XA_OK);
  EXPECT_EQ(library().take_calls({"sleep"}), (Lines{"sleep(2)", "sleep(2)"}));
}

TEST_F(Verbs, join_does_not_wait_for_a_branch_suspended_here) {
  // clang-format off
  const struct {
    const char *name;
    int32_t flags;
    std::vector<Reply> replies;
    int32_t result;
    Lines requests;
    Lines after;
  } cases[] = {
      {"other branch is live", TMJOIN, {st(1), st(-4)}, XAER_PROTO, {ask_other, join_nowait}, {"con2 0 ffffffff",
       "con1 3 2"}},
      {"other branch is live, joined", TMJOIN, {st(1), st(3)}, XA_OK, {ask_other, join_nowait}, {"con2 1 1234",
       "con1 3 2"}},
      {"caller does not wait either", TMJOIN | TMNOWAIT, {st(1), st(-4)}, XA_RETRY, {ask_other, join_nowait},
       {"con2 0 ffffffff", "con1 3 2"}},
      {"other branch is gone", TMJOIN, {st(-2), st(-2), st(2)}, XA_OK, {ask_other, detach_other, join}, {"con2 1 1234",
       "con1 0 ffffffff"}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    reopen();
    set(XCS_SUSPEND, y);
    library().replies.assign(one.replies.begin(), one.replies.end());
    EXPECT_EQ(xa_start(&x, 1, one.flags), one.result);
    expect(one.requests, one.after);
  }
}

TEST_F(Verbs, leftovers_whose_end_is_refused_do_not_loop) {
  for (const uint32_t flags : {0U, XAPF_CLOSE_ENDS}) {
    reopen(XATM_TUX, flags);
    XID null = x;
    null.formatID = -1;  // no lookup finds it again
    set(XCS_ASSOC, null);
    library().standing["status"] = {status(-2)};
    EXPECT_LT(xa_start(&x, 1, TMNOFLAGS), 0);
    EXPECT_LT(sent().size(), 8U);
  }
}

TEST_F(Verbs, mts_gives_the_server_time_to_let_go) {
  reopen(XATM_MTS, XAPF_CLOSE_ENDS);
  set(XCS_ASSOC, y);
  xacmn_log_tracing.store(XATR_EVENT | XATR_VERBOSE);
  library().replies = {st(1), st(1), st(-2), st(-2), st(0)};
  EXPECT_EQ(xa_start(&x, 1, TMNOFLAGS), XA_OK);
  expect({ask_other, ask_other, ask_other, detach_other, begin}, {"con1 1 1234"});
  EXPECT_EQ(library().take_calls({"sleep"}), (Lines{"sleep(2) [free]", "sleep(4) [free]"}));
  Lines log = take_log();
  std::erase_if(log, [](const std::string &line) { return line.find("xa_start: ") == std::string::npos; });
  const std::string trace = "[xa_start] Event trace: xa_start: ";
  EXPECT_EQ(log, (Lines{trace + "sleep 4 sec for ZDB to dettach", trace + "sleep 8 sec for ZDB to dettach",
                        trace + "after 8 sec, ZDB dettached the transaction", trace + "set up XID \t4660.3.2",
                        trace + "done, XID \t4660.3.2"}));
}

TEST_F(Verbs, mts_gives_up_after_254_seconds) {
  reopen(XATM_MTS, XAPF_CLOSE_ENDS);
  set(XCS_ASSOC, y);
  library().standing["status 2"] = library().standing["detach"] = {status(1)};
  EXPECT_EQ(xa_start(&x, 1, TMNOFLAGS), XAER_RMFAIL);
  Lines sleeps;
  for (int32_t seconds = 2; seconds <= 128; seconds *= 2) {
    sleeps.push_back(text("sleep(%d) [free]", seconds));
  }
  EXPECT_EQ(library().take_calls({"sleep"}), sleeps);
  EXPECT_EQ(connections(), Lines{}) << "the rmid is closed";
}

TEST_F(Verbs, a_branch_that_cannot_be_published_fails) {
  fail_operation("cs_obj_insert", -4);
  library().replies = {st(0)};
  EXPECT_EQ(xa_start(&x, 1, TMNOFLAGS), XAER_RMERR);
  EXPECT_EQ(take_log().at(0), "[xa_start] Error: Unable to record connection for retrieval (-4)");
  expect({begin}, {"con1 0 ffffffff"});
}

TEST_F(Verbs, a_lookup_that_cannot_open_closes_the_rmid_unless_the_server_is_unfit) {
  set(XCS_PREPARING, y);
  library().standing["select value"] = {row(0)};
  EXPECT_EQ(xa_start(&x, 1, TMNOFLAGS), XAER_INVAL);
  EXPECT_EQ(connections(), Lines{"con1 103 2"});
  library().fail("ct_con_alloc");
  EXPECT_EQ(xa_start(&x, 1, TMNOFLAGS), XAER_RMFAIL);
  EXPECT_EQ(connections(), Lines{});
}

TEST_F(Verbs, a_start_whose_reopen_fails_loses_the_connection) {
  library().replies = {st(lost)};
  library().fail("ct_cmd_alloc");
  EXPECT_EQ(xa_start(&x, 1, TMNOFLAGS), XAER_RMERR);
  XA_CONNECTION *got = nullptr;
  EXPECT_EQ(xc_get(1, nullptr, &got, XCF_ANY), XCRET_NOCONN);
}

// ---- Ending ---------------------------------------------------------------------------------------------------------

TEST_F(Verbs, end_by_the_connection_that_holds_the_branch) {
  const std::string suspend_migrate = detach_migrate;
  // clang-format off
  const Case cases[] = {
      {"success", XCS_ASSOC, x, TMSUCCESS, {st(1)}, XA_OK, {detach}, {"con1 0 ffffffff"}},
      {"fail of a suspended branch", XCS_SUSPEND, x, TMFAIL, {st(4)}, XA_OK, {detach}, {"con1 0 ffffffff"}},
      {"branch is gone", XCS_ASSOC, x, TMSUCCESS, {st(-2)}, XA_OK, {detach}, {"con1 0 ffffffff"}},
      {"branch is aborted", XCS_ASSOC, x, TMSUCCESS, {st(6)}, XA_RBROLLBACK, {detach}, {"con1 0 ffffffff"}},
      {"suspend stays here", XCS_ASSOC, x, TMSUSPEND, {}, XA_OK, {}, {"con1 3 1234"}},
      {"suspend for migration", XCS_ASSOC, x, TMSUSPEND | TMMIGRATE, {st(1)}, XA_OK, {suspend_migrate},
       {"con1 0 ffffffff"}},
      {"suspend twice", XCS_SUSPEND, x, TMSUSPEND, {}, XAER_PROTO, {}, {"con1 3 1234"}},
      {"suspended, then for migration", XCS_SUSPEND, x, TMSUSPEND | TMMIGRATE, {}, XAER_PROTO, {}, {"con1 3 1234"}},
      {"busy", XCS_PREPARING, x, TMSUCCESS, {}, XAER_PROTO, {}, {"con1 103 1234"}},
      {"kept from a completion", XCS_UNUSED, x, TMSUCCESS, {}, XAER_PROTO, {}, {"con1 0 1234"}},
      {"not here, known to the server", XCS_UNUSED, none(), TMSUCCESS, {st(1)}, XAER_PROTO, {ask},
       {"con1 0 ffffffff"}},
      {"not here, suspend, unknown", XCS_UNUSED, none(), TMSUSPEND, {st(-2)}, XAER_NOTA, {ask}, {"con1 0 ffffffff"}},
      {"not here, server cannot say", XCS_UNUSED, none(), TMFAIL, {{broken(CS_FAIL)}}, XAER_RMFAIL, {ask},
       {"con1 0 ffffffff"}},
      {"not here, suspend, server cannot say", XCS_UNUSED, none(), TMSUSPEND, {{broken(CS_FAIL)}}, XAER_RMFAIL, {ask},
       {}},
      {"connection lost: rolled back", XCS_ASSOC, x, TMSUCCESS, {st(lost), st(2), st(1)}, XA_RBCOMMFAIL, {detach,
       attach_to_abort, rollback}, {"con2 0 ffffffff"}},
      {"connection lost: rollback fails too", XCS_ASSOC, x, TMSUCCESS, {st(-1), st(2), st(-3)}, XAER_DUPID, {detach,
       attach_to_abort, rollback}, {"con2 0 ffffffff"}},
  };
  // clang-format on
  for (const Case &one : cases) {
    SCOPED_TRACE(one.name);
    reopen();
    XA_CONNECTION *held = set(one.state, one.xid);
    held->xc_xid = one.xid;
    library().replies.assign(one.replies.begin(), one.replies.end());
    EXPECT_EQ(xa_end(&x, 1, one.flags), one.result);
    expect(one.requests, one.after);
    EXPECT_EQ(reported().empty(), one.result >= 0);
  }
}

TEST_F(Verbs, a_plain_suspend_withdraws_the_connection_but_leaves_cursors) {
  const Lines prefixes{"cs_obj", "ct_send"};
  set(XCS_ASSOC, x);
  xa_end(&x, 1, TMSUSPEND);
  EXPECT_EQ(library().take_calls(prefixes), Lines{"cs_obj_clear(con1)"});
  library().replies = {st(1)};
  xa_end(&x, 1, TMSUCCESS);
  EXPECT_EQ(library().take_calls(prefixes), (Lines{"cs_objects(GET, 2, \"L1\", any, thread none, exists 0)",
                                                   "cs_objects(CLEAR, 99, \"L1\", any, thread none, exists 0)",
                                                   "cs_obj_clear(con1)", "ct_send(cmd1)"}));
}

TEST_F(Verbs, clean_up_failures_end_the_branch_and_close_the_rmid) {
  set(XCS_ASSOC, x);
  fail_operation("cs_obj_clear", 0);
  library().replies = {st(1)};
  EXPECT_EQ(xa_end(&x, 1, TMSUCCESS), XAER_RMFAIL);
  EXPECT_EQ(take_log().at(0), "[xa_end] Error: Unable to forget connection being closed (0)");
  expect({detach}, {});
}

// ---- Completing -----------------------------------------------------------------------------------------------------

TEST_F(Verbs, completion_by_the_connection_that_holds_the_branch) {
  const std::string query = "select state from master..systransactions where xactname = \"" + x_name + "\" ";
  const std::string forced_rollback = "rollback " + x_name + " status 101 flags 0x6000";
  using Verb = int32_t (*)(const XID *, int32_t, int32_t);
  // clang-format off
  const struct {
    Verb verb;
    Case one;
  } cases[] = {
      {xa_prepare, {"associated", XCS_ASSOC, x, 0, {}, XAER_PROTO, {}, {"con1 1 1234"}}},
      {xa_commit, {"suspended", XCS_SUSPEND, x, 0, {}, XAER_PROTO, {}, {"con1 3 1234"}}},
      {xa_forget, {"associated", XCS_ASSOC, x, 0, {}, XAER_NOTA, {}, {"con1 1 1234"}}},
      {xa_rollback, {"associated", XCS_ASSOC, x, 0, {st(1), st(2)}, XA_OK, {detach, forced_rollback},
       {"con1 0 1234"}}},
      {xa_prepare, {"unused connection", XCS_UNUSED, none(), 0, {st(2)}, XA_OK, {prepare}, {"con1 0 1234"}}},
      {xa_prepare, {"read only", XCS_UNUSED, y, 0, {st(-256)}, XA_RDONLY, {prepare}, {"con1 0 1234"}}},
      {xa_commit, {"attached, not to wait", XCS_UNUSED, x, TMNOWAIT, {st(1)}, XA_RETRY, {ask}, {"con1 0 1234"}}},
      {xa_commit, {"detached, not to wait", XCS_UNUSED, x, TMNOWAIT, {st(7), st(7)}, XA_OK, {ask, commit},
       {"con1 0 1234"}}},
      {xa_commit, {"one phase does not ask", XCS_UNUSED, x, TMONEPHASE | TMNOWAIT, {st(1)}, XA_OK, {commit_once},
       {"con1 0 1234"}}},
      {xa_commit, {"state does not matter when it may wait", XCS_UNUSED, x, TMNOFLAGS, {st(7)}, XA_OK, {commit},
       {"con1 0 1234"}}},
      {xa_commit, {"heuristic", XCS_UNUSED, x, 0, {st(-2), {row(65548)}}, XA_HEURCOM, {commit, query},
       {"con1 0 1234"}}},
      {xa_commit, {"invalid for the server", XCS_UNUSED, x, 0, {st(-5)}, XAER_INVAL, {commit}, {"con1 0 1234"}}},
      {xa_commit, {"connection lost", XCS_UNUSED, x, 0, {st(lost), st(7)}, XA_OK, {commit, commit}, {"con2 0 1234"}}},
      {xa_commit, {"failed twice", XCS_UNUSED, x, 0, {st(-1), st(-1)}, XAER_RMFAIL, {commit, commit}, {}}},
      {xa_forget, {"heuristic", XCS_UNUSED, x, 0, {{row(65549)}, st(0)}, XA_OK, {query,
       std::string("forget ") + x_name + " status 102 flags 0x0"}, {"con1 0 1234"}}},
  };
  // clang-format on
  for (const auto &[verb, one] : cases) {
    SCOPED_TRACE(one.name);
    reopen(XATM_TUX, XAPF_FORCE_ATTACH);
    set(one.state, one.xid);
    library().replies.assign(one.replies.begin(), one.replies.end());
    EXPECT_EQ(verb(&x, 1, one.flags), one.result);
    expect(one.requests, one.after);
    EXPECT_EQ(reported().empty(), one.result >= 0);
  }
}

TEST_F(Verbs, a_completion_whose_reopen_fails_closes_the_rmid) {
  open_connection();
  library().replies = {st(lost)};
  library().fail("ct_con_alloc");
  EXPECT_EQ(xa_commit(&x, 1, TMNOFLAGS), XAER_RMFAIL);
  EXPECT_EQ(connections(), Lines{});
  EXPECT_EQ(xa_commit(&x, 1, TMNOFLAGS), XAER_INVAL) << "to be opened again";
}

TEST_F(Verbs, the_next_verb_finds_the_connection_of_the_branch) {
  behave_as(XATM_TUX, XAPF_FORCE_ATTACH | XAPF_CFG_OPTIONAL);
  open_connection();
  library().standing = {{"prepare", {status(2)}}, {"commit", {status(7)}}};
  set(XCS_UNUSED, x, 1);
  EXPECT_EQ(xa_prepare(&x, 1, TMNOFLAGS), XA_OK);
  EXPECT_EQ(xa_commit(&x, 1, TMNOFLAGS), XA_OK);
  EXPECT_EQ(library().take_calls({"ct_send"}).back(), "ct_send(cmd1)") << "not on the newer, unused one";
  EXPECT_EQ(connections(), (Lines{"con2 0 ffffffff", "con1 0 1234"}));
}

// ---- Recovery -------------------------------------------------------------------------------------------------------

TEST_F(Verbs, a_scan_keeps_its_connection_until_it_ends) {
  XID xids[2];
  const Reply three{rows({x_name, x_name, x_name}), status(0)};
  library().replies = {three};
  EXPECT_EQ(xa_recover(xids, 2, 1, TMSTARTRSCAN), 2);
  EXPECT_EQ(connections(), Lines{"con1 108 ffffffff"});
  EXPECT_EQ(xa_recover(xids, 2, 1, TMNOFLAGS), 1);
  EXPECT_EQ(connections(), Lines{"con1 0 ffffffff"});
  take_log();
  EXPECT_EQ(xa_recover(xids, 2, 1, TMENDRSCAN), XAER_PROTO);
  EXPECT_EQ(connections(), Lines{"con1 0 ffffffff"});
  library().replies = {three};
  EXPECT_EQ(xa_recover(xids, 2, 1, TMSTARTRSCAN | TMENDRSCAN), 2);
  EXPECT_EQ(connections(), Lines{"con1 0 ffffffff"});
  xacmn_log_tracing.store(XATR_XA | XATR_MISC);
  library().replies = {three};
  take_log();
  EXPECT_EQ(xa_recover(xids, 2, 1, TMSTARTRSCAN), 2);
  Lines log = take_log();
  EXPECT_EQ(log.back(), "[xa_recover] XA trace: value: 2 ");
  EXPECT_EQ(log[log.size() - 2], "[xa_recover] Misc trace: XIDs requested 2 XIDs returned 2");
}

TEST_F(Verbs, only_the_start_of_a_scan_is_repeated) {
  XID xids[1];
  const Reply two{rows({x_name, x_name}), status(0)};
  library().replies = {{broken(CS_FAIL)}, two};
  EXPECT_EQ(xa_recover(xids, 1, 1, TMSTARTRSCAN), 1);
  EXPECT_EQ(connections(), Lines{"con2 108 ffffffff"});
  library().fail("ct_fetch", 1, CS_CANCELED);
  EXPECT_EQ(xa_recover(xids, 1, 1, TMNOFLAGS), XAER_RMERR) << "not turned into XAER_RMFAIL";
  EXPECT_EQ(connections(), Lines{"con2 0 ffffffff"});
}

TEST_F(Verbs, recover_refuses_places_that_are_none) {
  XID xid{};
  EXPECT_EQ(xa_recover(nullptr, 1, 1, TMSTARTRSCAN), XAER_INVAL);
  EXPECT_FALSE(reported().empty());
  EXPECT_EQ(xa_recover(&xid, 0, 1, TMSTARTRSCAN), XAER_INVAL);
  EXPECT_EQ(xa_recover(&xid, -1, 1, TMSTARTRSCAN), XAER_INVAL);
  EXPECT_EQ(library().take_calls(), Lines{});
}

// ---- Closing --------------------------------------------------------------------------------------------------------

TEST_F(Verbs, close_by_what_the_server_says_of_a_branch) {
  const struct {
    uint32_t personality;
    Case one;
  } cases[] = {
      {0, {"unused", XCS_UNUSED, x, 0, {}, XA_OK, {}, {}}},
      {0, {"live", XCS_ASSOC, x, 0, {st(1)}, XAER_PROTO, {ask}, {"con1 1 1234"}}},
      {0, {"suspended and live", XCS_SUSPEND, x, 0, {st(1)}, XAER_PROTO, {ask}, {"con1 3 1234"}}},
      {0, {"gone", XCS_ASSOC, x, 0, {st(-2)}, XA_OK, {ask}, {}}},
      {0, {"in another state", XCS_ASSOC, x, 0, {st(6)}, XA_OK, {ask}, {}}},
      {0, {"with a scan", XCS_RECOVER, none(), 0, {}, XA_OK, {}, {}}},
      {XAPF_CLOSE_ENDS, {"live, ended", XCS_ASSOC, x, 0, {st(1), st(1)}, XA_OK, {ask, detach}, {}}},
      {XAPF_CLOSE_ENDS, {"live, end refused", XCS_ASSOC, x, 0, {st(1), st(-4)}, XA_OK, {ask, detach}, {}}},
  };
  for (const auto &[flags, one] : cases) {
    SCOPED_TRACE(one.name);
    reopen(XATM_TUX, flags);
    set(one.state, one.xid);
    library().replies.assign(one.replies.begin(), one.replies.end());
    EXPECT_EQ(xa_close("", 1, TMNOFLAGS), one.result);
    expect(one.requests, one.after);
    EXPECT_EQ(library().live_connections(), static_cast<int32_t>(one.after.size()));
  }
}

TEST_F(Verbs, close_stops_at_the_first_live_branch) {
  set(XCS_ASSOC, x);
  open_connection();
  library().replies = {st(1)};
  EXPECT_EQ(xa_close("", 1, TMNOFLAGS), XAER_PROTO);
  EXPECT_EQ(connections().back(), "con1 1 1234");
  EXPECT_EQ(library().live_connections(), 1) << "the newer one was closed before";
}

TEST_F(Verbs, close_ends_although_a_live_branch_cannot_be_ended) {
  reopen(XATM_MTS, XAPF_CLOSE_ENDS);
  XID null = x;
  null.formatID = -1;  // no lookup finds it again
  set(XCS_ASSOC, null);
  library().standing["status"] = {status(1)};
  EXPECT_EQ(xa_close("", 1, TMNOFLAGS), XA_OK);
  EXPECT_EQ(connections(), Lines{});
}

TEST_F(Verbs, close_leaves_a_connection_at_work_alone) {
  XA_CONNECTION *busy = set(XCS_COMMITTING, x);
  xc_hold(busy);
  EXPECT_EQ(xa_close("", 1, TMNOFLAGS), XAER_PROTO);
  EXPECT_EQ(connections(), Lines{"con1 104 1234 held"});
  xc_release(busy);
  EXPECT_EQ(xa_close("", 1, TMNOFLAGS), XA_OK);
  EXPECT_EQ(xa_close("", 1, TMNOFLAGS), XA_OK) << "not open any more in an identity that is known";
  library().identity = "stranger";
  EXPECT_EQ(xa_close("", 1, TMNOFLAGS), XAER_RMERR);
  library().identity = "";
}

}  // namespace
