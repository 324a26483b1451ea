// The XA verbs: flags, the connection each works on, what is sent, and the state afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "record/xal_record.h"
#include "scene.h"
#include "xadtm.h"

using namespace fake;

namespace {

const std::string x_name = "1234_0g83_10k_:L1";
const std::string ask_other = "status 2_1w__:L1 status 0 flags 0x0";
const std::string detach_other = "detach 2_1w__:L1 status 2 flags 0x0";

constexpr int32_t lost = -16777215;  // the server's DTM layer is gone: XAER_RMFAIL

using Verb = int32_t (*)(const XID *, int32_t, int32_t);

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

class Verbs : public OpenScene {
 protected:
  // Plays the case under TUX with the given flags.
  void play(const Case &one, uint32_t tm_flags, Verb verb) {
    reopen(XATM_TUX, tm_flags);
    set(one.state, one.xid);
    library().replies.assign(one.replies.begin(), one.replies.end());
    EXPECT_EQ(verb(&x, 1, one.flags), one.result);
    expect(one.requests, one.after);
    EXPECT_EQ(reported(), one.result < 0);
  }
  void expect(const Lines &requests, const Lines &after) {
    EXPECT_EQ(sent(), requests);
    EXPECT_EQ(connections(), after);
    EXPECT_TRUE(library().replies.empty()) << "fewer requests were sent than scripted";
  }
  // True when the log has reported the verb's failure.
  static bool reported() {
    const Lines log = take_log();
    return std::any_of(log.begin(), log.end(),
                       [](const std::string &line) { return line.find("] Error: Return ") != std::string::npos; });
  }
  const XID x = branch();
  const XID y = other_branch();
};

TEST_F(Verbs, exactly_the_listed_flag_words_are_accepted) {
  const std::vector<int32_t> flags = {TMNOFLAGS,  TMASYNC,   TMONEPHASE, TMFAIL,       TMNOWAIT,
                                      TMRESUME,   TMSUCCESS, TMSUSPEND,  TMSTARTRSCAN, TMENDRSCAN,
                                      TMMULTIPLE, TMJOIN,    TMMIGRATE,  0x1,          -1};
  const Verb close = [](const XID *, int32_t rmid, int32_t word) { return xa_close("", rmid, word); };
  const Verb recover = [](const XID *, int32_t rmid, int32_t word) {
    XID found{};
    return xa_recover(&found, 1, rmid, word);
  };
  const struct {
    const char *name;
    std::vector<int32_t> accepted;
    Verb call;
    int32_t unopened;  // the result for an rmid that is not open
  } verbs[] = {
      {"xa_close", {0}, close, XA_OK},
      {"xa_start", {0, TMJOIN, TMRESUME, TMNOWAIT, TMNOWAIT | TMJOIN, TMNOWAIT | TMRESUME}, xa_start, XAER_INVAL},
      {"xa_end", {TMSUCCESS, TMSUSPEND, TMSUSPEND | TMMIGRATE, TMFAIL}, xa_end, XAER_INVAL},
      {"xa_prepare", {0}, xa_prepare, XAER_INVAL},
      {"xa_commit", {0, TMONEPHASE, TMNOWAIT, TMONEPHASE | TMNOWAIT}, xa_commit, XAER_INVAL},
      {"xa_rollback", {0}, xa_rollback, XAER_INVAL},
      {"xa_forget", {0}, xa_forget, XAER_INVAL},
      {"xa_recover", {TMSTARTRSCAN, TMSTARTRSCAN | TMENDRSCAN, TMENDRSCAN, 0}, recover, XAER_RMFAIL},
  };
  for (const auto &verb : verbs) {
    for (const int32_t one : flags) {
      for (const int32_t other : flags) {
        const int32_t word = one | other;
        const bool accepted = std::find(verb.accepted.begin(), verb.accepted.end(), word) != verb.accepted.end();
        EXPECT_EQ(verb.call(&x, 77, word), accepted ? verb.unopened : XAER_INVAL) << verb.name << " " << word;
        EXPECT_EQ(reported(), accepted && verb.unopened != XA_OK) << "a refused word is not reported";
      }
    }
  }
  EXPECT_EQ(library().take_calls(), Lines{});
}

TEST_F(Verbs, xids_that_name_no_branch_never_reach_the_server) {
  const struct {
    const char *name;
    int32_t format, gtrid, bqual;
    bool names;
  } xids[] = {{"longest", 0, 64, 64, true},    {"shortest", -2, 1, 0, true},        {"null", -1, 1, 0, false},
              {"empty gtrid", 1, 0, 1, false}, {"negative gtrid", 1, -1, 0, false}, {"long gtrid", 1, 65, 0, false},
              {"long bqual", 1, 1, 65, false}, {"negative bqual", 1, 1, -1, false}};
  const Verb verbs[] = {xa_start, xa_prepare, xa_commit, xa_rollback, xa_forget};
  for (const auto &one : xids) {
    XID xid{};
    xid.formatID = one.format;
    xid.gtrid_length = one.gtrid;
    xid.bqual_length = one.bqual;
    for (const Verb verb : verbs) {
      SCOPED_TRACE(text("%s, verb %d", one.name,
                        static_cast<int32_t>(std::find(std::begin(verbs), std::end(verbs), verb) - verbs)));
      reopen();
      library().standing[""] = {status(-2)};  // knows no branch, but begins any
      library().standing["begin"] = {status(0)};
      const bool sends = one.names || (one.format == -1 && verb != xa_start);  // a null XID is completed nowhere
      const int32_t result = verb(&xid, 1, TMNOFLAGS);
      EXPECT_EQ(result == XAER_INVAL, !sends);
      EXPECT_EQ(reported(), result < 0);
      EXPECT_EQ(sent().empty(), !sends);
    }
  }
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
  } cases[] = {{2, TMJOIN | TMRESUME, 0},    {2, TMJOIN | TMSUCCESS, 1}, {3, 0, 0},  {3, TMMIGRATE, 0},
               {3, TMSUCCESS | TMFAIL, 0},   {3, TMSUCCESS | TMJOIN, 1}, {10, 0, 0}, {-1, 0, 0},
               {3, TMSUSPEND | TMMIGRATE, 1}};
  for (const auto &one : cases) {
    EXPECT_EQ(xacmn_validate_flags(one.verb, one.flags), one.result) << one.verb << " " << one.flags;
  }
  EXPECT_EQ(xacmn_no_op(), 1);
}

TEST_F(Verbs, start_publishes_the_connection_and_is_repeated_once) {
  // clang-format off
  const Case cases[] = {
      {"new branch", XCS_UNUSED, none(), TMNOFLAGS, {st(0)}, XA_OK, {begin}, {"con1 1 1234"}},
      {"completed here before", XCS_UNUSED, x, TMNOWAIT, {st(0)}, XA_OK, {begin}, {"con1 1 1234"}},
      {"failed again", XCS_UNUSED, y, TMNOFLAGS, {st(-1), st(-1)}, XAER_RMERR, {begin, begin}, {"con2 0 ffffffff"}},
      {"server lost twice closes the rmid", XCS_UNUSED, none(), TMNOFLAGS, {st(lost), st(lost)}, XAER_RMFAIL,
       {begin, begin}, {}},
  };
  // clang-format on
  for (const Case &one : cases) {
    SCOPED_TRACE(one.name);
    play(one, 0, xa_start);
    EXPECT_EQ(library().take_calls({"cs_obj_insert"}).size(), one.result == XA_OK ? 1U : 0U);
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

TEST_F(Verbs, end_and_completion_by_the_connection_that_holds_the_branch) {
  const Lines rolled_back{detach, rollback_forced};
  const Lines twice{commit_forced, commit_forced};
  const Lines anew{"con2 0 ffffffff"};
  const Reply cut{broken(CS_FAIL)};
  // clang-format off
  const struct {
    Verb verb;
    Case one;
  } cases[] = {
      {xa_end, {"aborted", XCS_ASSOC, x, TMSUCCESS, {st(6)}, XA_RBROLLBACK, {detach}, {"con1 0 ffffffff"}}},
      {xa_end, {"busy", XCS_PREPARING, x, TMSUCCESS, {}, XAER_PROTO, {}, {"con1 103 1234"}}},
      {xa_end, {"not here, server cannot say", XCS_UNUSED, none(), TMFAIL, {cut}, XAER_RMFAIL, {ask},
       {"con1 0 ffffffff"}}},
      {xa_end, {"not here, suspend, server cannot say", XCS_UNUSED, none(), TMSUSPEND, {cut}, XAER_RMFAIL, {ask}, {}}},
      {xa_end, {"lost, rolled back", XCS_ASSOC, x, TMSUCCESS, {st(lost), st(1)}, XA_RBCOMMFAIL, rolled_back, anew}},
      {xa_end, {"lost for good", XCS_ASSOC, x, TMSUCCESS, {st(-1), st(-3)}, XAER_DUPID, rolled_back, anew}},
      {xa_rollback, {"associated", XCS_ASSOC, x, 0, {st(1), st(2)}, XA_OK, rolled_back, {"con1 0 1234"}}},
      {xa_prepare, {"read only", XCS_UNUSED, y, 0, {st(-256)}, XA_RDONLY, {prepare_forced}, {"con1 0 1234"}}},
      {xa_commit, {"one phase does not ask", XCS_UNUSED, x, TMONEPHASE | TMNOWAIT, {st(1)}, XA_OK, {commit_once_forced},
       {"con1 0 1234"}}},
      {xa_commit, {"nor one that may wait", XCS_UNUSED, x, 0, {st(7)}, XA_OK, {commit_forced}, {"con1 0 1234"}}},
      {xa_commit, {"no waiting, on a connection with another's XID", XCS_UNUSED, y, TMNOWAIT, {st(7), st(7)}, XA_OK,
       {ask, commit_forced}, {"con1 0 1234"}}},
      {xa_commit, {"must wait", XCS_UNUSED, y, TMNOWAIT, {st(1)}, XA_RETRY, {ask}, {"con1 0 2"}}},
      {xa_commit, {"failed again", XCS_UNUSED, x, 0, {st(-1), st(-1)}, XAER_RMFAIL, twice, {}}},
  };
  // clang-format on
  for (const auto &[verb, one] : cases) {
    SCOPED_TRACE(one.name);
    play(one, XAPF_FORCE_ATTACH, verb);
  }
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

}  // namespace
