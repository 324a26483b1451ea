// What the wide entries make of a call: what reaches libxadtm, what does not, and what is repeated.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <thread>

#include "accepted_flags.h"
#include "fake_entries.h"
#include "xadtm_lp64.h"

namespace {

using Texts = std::vector<std::string>;
using WideXid = xadtm_lp64_xid;

struct Flavour {
  const char *name;
  const xadtm_lp64_switch *xa;
};
const Flavour flavours[] = {
    {"mts", &tarvex_MTS_xa_switch_lp64}, {"tux", &tarvex_TUX_xa_switch_lp64}, {"txs", &tarvex_TXS_xa_switch_lp64}};

using WideVerb = int (*)(const WideXid *xid, int rmid, long flags);
using Codes = std::vector<std::pair<int32_t, int32_t>>;  // from, to
struct Verb {
  const char *name;
  WideVerb xadtm_lp64_switch::*entry;
  long flags;  // a word that it accepts
  std::vector<long> refused;
  Codes says = {};  // of verbs that finish a branch: the codes that say what became of it, or that this is not known
};
const Verb verbs[] = {
    {"start", &xadtm_lp64_switch::xa_start_entry, TMJOIN, {TMJOIN | TMRESUME, TMSUCCESS, 0x80000000L, 1}},
    {"end", &xadtm_lp64_switch::xa_end_entry, TMSUCCESS, {TMNOFLAGS, TMMIGRATE, TMSUCCESS | TMFAIL, 0x80000000L}},
    {"rollback",
     &xadtm_lp64_switch::xa_rollback_entry,
     TMNOFLAGS,
     {TMFAIL, 0x80000000L},
     {{XA_OK, XA_OK},
      {XA_HEURMIX, XA_HEURHAZ},
      {XA_RBBASE, XA_RBEND},
      {XAER_NOTA, XAER_NOTA},
      {XAER_RMFAIL, XAER_RMFAIL}}},
    {"prepare", &xadtm_lp64_switch::xa_prepare_entry, TMNOFLAGS, {TMONEPHASE, 0x80000000L}},
    {"commit",
     &xadtm_lp64_switch::xa_commit_entry,
     TMONEPHASE | TMNOWAIT,
     {TMJOIN, TMONEPHASE | 0x80000000L},
     {{XA_OK, XA_OK},
      {XA_RETRY, XA_HEURHAZ},
      {XA_RBBASE, XA_RBEND},
      {XAER_NOTA, XAER_NOTA},
      {XAER_RMFAIL, XAER_RMFAIL}}},
    {"forget",
     &xadtm_lp64_switch::xa_forget_entry,
     TMNOFLAGS,
     {TMNOWAIT, 0x80000000L},
     {{XA_OK, XA_OK}, {XAER_RMFAIL, XAER_PROTO}, {XAER_NOTA, XAER_NOTA}}},
};

WideXid wide_xid(long format, long gtrid_length, long bqual_length) {
  WideXid xid{format, gtrid_length, bqual_length, {}};
  std::memset(xid.data, 0x7f, sizeof xid.data);
  return xid;
}

class Entries : public testing::TestWithParam<Flavour> {
 protected:
  std::string entry(const std::string &verb, int rmid = 1) const {
    return GetParam().name + ("_" + verb + ' ') + std::to_string(rmid);
  }
  const xadtm_lp64_switch &xa() const { return *GetParam().xa; }
  int call(const Verb &verb, long flags, int rmid = 1) const {
    const WideXid xid = wide_xid(1, 2, 3);
    return (xa().*verb.entry)(&xid, rmid, flags);
  }
  void open(int rmid = 1, const char *info = "-NL1") const {
    ASSERT_EQ(xa().xa_open_entry(info, rmid, 0), XA_OK);
    narrow.forget_calls();
  }
  // Makes the call with these answers of libxadtm, and checks what was called.
  template <typename Call>
  int with_answers(std::deque<int32_t> answers, const Texts &expected, const Call &made) const {
    narrow.forget_calls();
    narrow.answers = std::move(answers);
    const int answer = made();
    EXPECT_EQ(narrow.called(), expected);
    EXPECT_TRUE(narrow.answers.empty());
    return answer;
  }
};

TEST_P(Entries, bad_xids_are_refused_and_nothing_is_called) {
  constexpr long two_to_32 = 1L << 32;
  const WideXid bad[] = {
      wide_xid(-1, 2, 3),
      wide_xid(INT32_MAX + 1L, 2, 3),
      wide_xid(INT32_MIN - 1L, 2, 3),
      wide_xid(LONG_MIN, 2, 3),
      wide_xid(two_to_32 + 1, 2, 3),
      wide_xid(two_to_32 - 1, 2, 3),
      wide_xid(1, 0, 3),
      wide_xid(1, -1, 3),
      wide_xid(1, 65, 3),
      wide_xid(1, LONG_MIN, 3),
      wide_xid(1, two_to_32 + 2, 3),
      wide_xid(1, 2, -1),
      wide_xid(1, 2, 65),
      wide_xid(1, 2, LONG_MAX),
      wide_xid(1, 2, two_to_32),
  };
  open();
  for (const Verb &verb : verbs) {
    EXPECT_EQ((xa().*verb.entry)(nullptr, 1, verb.flags), XAER_INVAL) << verb.name;
    for (const WideXid &xid : bad) {
      EXPECT_EQ((xa().*verb.entry)(&xid, 1, verb.flags), XAER_INVAL)
          << verb.name << ' ' << xid.formatID << ' ' << xid.gtrid_length << ' ' << xid.bqual_length;
    }
  }
  EXPECT_EQ(narrow.called(), Texts());
}

TEST_P(Entries, flags_beyond_32_bits_are_refused_and_nothing_is_called) {
  open();
  WideXid xid = wide_xid(1, 2, 3);
  int word = 0;
  for (const long flags : {1L << 32, (1L << 32) | TMSUCCESS, -1L, LONG_MIN, static_cast<long>(INT32_MIN)}) {
    for (const Verb &verb : verbs) {
      EXPECT_EQ(call(verb, flags), XAER_INVAL) << verb.name << ' ' << flags;
    }
    EXPECT_EQ(xa().xa_open_entry("-NL1", 1, flags), XAER_INVAL);
    EXPECT_EQ(xa().xa_close_entry("", 1, flags), XAER_INVAL);
    EXPECT_EQ(xa().xa_recover_entry(&xid, 1, 1, flags), XAER_INVAL);
    EXPECT_EQ(xa().xa_recover_entry(nullptr, 0, 1, flags), XAER_INVAL);
    EXPECT_EQ(xa().xa_complete_entry(&word, &word, 1, flags), XAER_INVAL);
  }
  EXPECT_EQ(narrow.called(), Texts());
}

TEST_P(Entries, xids_and_flags_arrive_narrow_and_whole) {
  const WideXid good[] = {wide_xid(INT32_MAX, 64, 64), wide_xid(INT32_MIN, 1, 0), wide_xid(-2, 64, 0),
                          wide_xid(0, 1, 64)};
  for (const Verb &verb : verbs) {
    for (const WideXid &xid : good) {
      narrow.forget_calls();
      ASSERT_EQ((xa().*verb.entry)(&xid, -7, 0xFFFFFFFFL), XA_OK);
      ASSERT_EQ(narrow.called(), Texts{entry(verb.name, -7)});
      const NarrowCall &made = narrow.calls.front();
      EXPECT_EQ(made.flags, -1);
      EXPECT_EQ(made.xid.formatID, xid.formatID);
      EXPECT_EQ(made.xid.gtrid_length, xid.gtrid_length);
      EXPECT_EQ(made.xid.bqual_length, xid.bqual_length);
      const size_t used = static_cast<size_t>(xid.gtrid_length + xid.bqual_length);
      EXPECT_EQ(std::string(made.xid.data, XIDDATASIZE),
                std::string(used, 0x7f) + std::string(XIDDATASIZE - used, '\0'));
    }
  }
}

TEST_P(Entries, calls_without_a_branch_arrive_with_all_they_have) {
  int handle = 3;
  int result = 4;
  EXPECT_EQ(xa().xa_open_entry("-NL1 -Uu", 8, 0x80000000L), XA_OK);
  EXPECT_EQ(xa().xa_open_entry(nullptr, 8, 0), XA_OK);
  EXPECT_EQ(xa().xa_close_entry("bye", 8, 0x80000000L), XA_OK);
  EXPECT_EQ(xa().xa_complete_entry(&handle, &result, 8, TMNOWAIT), XA_OK);
  EXPECT_EQ(narrow.called(), (Texts{entry("open", 8), entry("open", 8), entry("close", 8), entry("complete", 8)}));
  EXPECT_EQ(narrow.calls[0].info, "-NL1 -Uu");
  EXPECT_EQ(narrow.calls[0].flags, TMASYNC);
  EXPECT_EQ(narrow.calls[1].info, "(null)");
  EXPECT_EQ(narrow.calls[2].info, "bye");
  EXPECT_EQ(narrow.calls[2].flags, TMASYNC);
  EXPECT_EQ(narrow.calls[3].count, 7);
  EXPECT_EQ(narrow.calls[3].flags, TMNOWAIT);
}

// Nothing is repeated. What a verb that finishes a branch must not answer becomes XAER_RMFAIL: a manager may count a
// branch as done at a code that it does not expect.
TEST_P(Entries, other_answers_are_passed_on_if_they_say_what_became_of_the_branch) {
  open();
  for (const Verb &verb : verbs) {
    for (int32_t code = XAER_OUTSIDE; code <= XA_RBEND; ++code) {
      const bool says = verb.says.empty() || std::any_of(verb.says.begin(), verb.says.end(), [&](const auto &range) {
                          return code >= range.first && code <= range.second;
                        });
      if (code != XAER_INVAL) {
        EXPECT_EQ(with_answers({code}, {entry(verb.name)}, [&] { return call(verb, verb.flags); }),
                  says ? code : XAER_RMFAIL)
            << verb.name;
      }
    }
  }
  EXPECT_EQ(with_answers({XA_RBROLLBACK}, {entry("commit")}, [&] { return call(verbs[4], TMNOFLAGS); }), XAER_RMFAIL)
      << "of a prepared branch";
}

TEST_P(Entries, closed_resource_managers_are_opened_again_once) {
  constexpr struct {
    int32_t opened;
    int32_t repeated;  // of a failed opening: not used
    int32_t answer;
  } cases[] = {
      {XA_OK, XA_OK, XA_OK},
      {XA_OK, XAER_NOTA, XAER_NOTA},
      {XA_OK, XAER_RMFAIL, XAER_RMFAIL},
      {XA_OK, XAER_INVAL, XAER_RMFAIL},
      {XAER_RMERR, 0, XAER_RMFAIL},
      {XAER_INVAL, 0, XAER_RMFAIL},
      {XAER_RMFAIL, 0, XAER_RMFAIL},
  };
  open(1, "-NL1 -Uu -Pp");
  for (const Verb &verb : verbs) {
    for (const AcceptedWords &accepted : accepted_words()) {
      for (const long word : accepted.verb == verb.name ? accepted.words : std::vector<long>{}) {
        EXPECT_EQ(
            with_answers({XAER_INVAL, XAER_RMERR}, {entry(verb.name), entry("open")}, [&] { return call(verb, word); }),
            XAER_RMFAIL)
            << verb.name << ' ' << word;
      }
    }
    const Texts failed = {entry(verb.name), entry("open")};
    const Texts repeated = {entry(verb.name), entry("open"), entry(verb.name)};
    for (const auto &row : cases) {
      const bool opened = row.opened == XA_OK;
      const std::deque<int32_t> answers =
          opened ? std::deque<int32_t>{XAER_INVAL, XA_OK, row.repeated} : std::deque<int32_t>{XAER_INVAL, row.opened};
      EXPECT_EQ(with_answers(answers, opened ? repeated : failed, [&] { return call(verb, verb.flags); }), row.answer);
      EXPECT_EQ(narrow.calls[1].info, "-NL1 -Uu -Pp");
      EXPECT_EQ(narrow.calls[1].flags, TMNOFLAGS);
      EXPECT_EQ(std::memcmp(&narrow.calls.front().xid, &narrow.calls.back().xid, sizeof(XID)) == 0, opened);
      EXPECT_EQ(narrow.calls.back().flags, opened ? verb.flags : TMNOFLAGS);
    }
    for (const long flags : verb.refused) {
      EXPECT_EQ(with_answers({XAER_INVAL}, {entry(verb.name)}, [&] { return call(verb, flags); }), XAER_INVAL)
          << verb.name << ' ' << flags;
    }
  }
}

TEST_P(Entries, only_what_the_manager_has_open_is_opened_again) {
  const Texts once = {entry("prepare")};
  const Texts again = {entry("prepare"), entry("open"), entry("prepare")};
  const auto prepared = [&] { return call(verbs[3], TMNOFLAGS); };
  EXPECT_EQ(with_answers({XAER_INVAL}, once, prepared), XAER_INVAL);  // never opened
  EXPECT_EQ(with_answers({XAER_INVAL}, {entry("commit")}, [&] { return call(verbs[4], TMNOFLAGS); }), XAER_RMFAIL)
      << "another thread may have closed it to open it again";
  // What it could not open is not available; it may close it as well.
  for (int tries = 0; tries < 2; ++tries) {
    narrow.answers = {XAER_RMERR};
    EXPECT_EQ(xa().xa_open_entry(std::to_string(tries).c_str(), 1, 0), XAER_RMERR);
  }
  EXPECT_EQ(with_answers({XAER_INVAL}, once, prepared), XAER_RMFAIL);
  narrow.answers = {XAER_RMERR};  // libxadtm has nothing to close
  EXPECT_EQ(xa().xa_close_entry("", 1, 0), XAER_RMERR);
  EXPECT_EQ(with_answers({XAER_INVAL}, once, prepared), XAER_INVAL);
  open(2);
  EXPECT_EQ(with_answers({XAER_INVAL}, once, prepared), XAER_INVAL);  // another one
  open(1, "first");
  open(1, "first");
  narrow.answers = {XAER_RMERR};
  EXPECT_EQ(xa().xa_open_entry("refused", 1, 0), XAER_RMERR);
  EXPECT_EQ(with_answers({XAER_INVAL, XA_OK, XA_OK}, again, prepared), XA_OK);
  EXPECT_EQ(narrow.calls[1].info, "first");
  open(1, "second");
  EXPECT_EQ(with_answers({XAER_INVAL, XA_OK, XA_OK}, again, prepared), XA_OK);
  EXPECT_EQ(narrow.calls[1].info, "second");
  narrow.answers = {XAER_PROTO};
  EXPECT_EQ(xa().xa_close_entry("", 1, 0), XAER_PROTO);
  EXPECT_EQ(with_answers({XAER_INVAL, XA_OK, XA_OK}, again, prepared), XA_OK);  // not closed
  EXPECT_EQ(xa().xa_close_entry("", 1, 0), XA_OK);
  EXPECT_EQ(with_answers({XAER_INVAL}, once, prepared), XAER_INVAL);
}

// What an open's XAER_INVAL means depends on whether a flavour is active (a close looks at that before its flags).
TEST_P(Entries, only_the_server_makes_rmerr_of_an_opens_inval) {
  const Texts asked = {entry("open"), entry("close")};
  const auto opened = [&] { return xa().xa_open_entry("-NL1", 1, 0); };
  EXPECT_EQ(with_answers({XAER_INVAL, XAER_PROTO}, asked, opened), XAER_INVAL);
  EXPECT_EQ(with_answers({XAER_PROTO}, {entry("commit")}, [&] { return call(verbs[4], 0); }), XAER_RMFAIL);
  narrow.log.clear();
  EXPECT_EQ(with_answers({XAER_INVAL, XAER_INVAL}, asked, opened), XAER_RMERR);
  EXPECT_EQ(narrow.log, Texts{"Answered the transaction manager -3 [NAME] instead of -5 [NAME] (rmid 1)"});
  EXPECT_EQ(narrow.calls[1].flags, TMASYNC);
  EXPECT_EQ(with_answers({XAER_INVAL}, {entry("open")}, [&] { return xa().xa_open_entry("-NL1", 1, 1); }), XAER_INVAL);
  EXPECT_EQ(with_answers({XAER_INVAL}, {entry("open")}, [&] { return xa().xa_open_entry(nullptr, 1, 0); }), XAER_INVAL);
  for (const Flavour &other : flavours) {
    narrow.answers = {XAER_INVAL, XAER_INVAL};
    const bool is_own = other.xa == &xa();
    EXPECT_EQ(other.xa->xa_open_entry("-NL1", 1, 0), is_own ? XAER_RMERR : XAER_INVAL) << other.name;
  }
}

// What another thread does while libxadtm is in a call.
TEST_P(Entries, closes_and_verbs_at_the_same_time_leave_nothing_open) {
  const auto commit = [&] { return call(verbs[4], 0); };
  const auto close = [&] { return xa().xa_close_entry("", 1, 0); };
  int elsewhere = 1;
  open();
  narrow.meanwhile = [&](const NarrowCall &) { elsewhere = commit(); };
  EXPECT_EQ(with_answers({XA_OK, XAER_INVAL}, {entry("close"), entry("commit")}, close), XA_OK);
  EXPECT_EQ(elsewhere, XAER_RMFAIL);
  EXPECT_EQ(with_answers({XAER_INVAL}, {entry("commit")}, commit), XAER_RMFAIL);

  open();
  narrow.meanwhile = [&](const NarrowCall &) { open(1, "during the close"); };
  EXPECT_EQ(close(), XA_OK);
  EXPECT_EQ(with_answers({XAER_INVAL, XA_OK, XA_OK}, {entry("commit"), entry("open"), entry("commit")}, commit), XA_OK);
  EXPECT_EQ(narrow.calls[1].info, "during the close");
}

// ---- Recovery -------------------------------------------------------------------------------------------------------

constexpr long whole = TMSTARTRSCAN | TMENDRSCAN;

// One call of recover: how many are asked for and there, and the counts and flags of the chunks.
struct Scan {
  long count;
  long flags;
  int32_t in_doubt;
  std::vector<std::pair<int32_t, int32_t>> chunks;
};

TEST_P(Entries, scans_go_in_chunks) {
  const Scan scans[] = {
      {1, whole, 9, {{1, whole}}},
      {32, whole, 99, {{32, whole}}},
      {33, whole, 99, {{32, TMSTARTRSCAN}, {1, TMENDRSCAN}}},
      {70, TMSTARTRSCAN, 99, {{32, TMSTARTRSCAN}, {32, 0}, {6, 0}}},
      {70, whole, 99, {{32, TMSTARTRSCAN}, {32, 0}, {6, TMENDRSCAN}}},
      {70, TMNOFLAGS, 99, {{32, 0}, {32, 0}, {6, 0}}},
      {64, TMENDRSCAN, 99, {{32, 0}, {32, TMENDRSCAN}}},
      {70, whole, 40, {{32, TMSTARTRSCAN}, {32, 0}}},
      {70, whole, 64, {{32, TMSTARTRSCAN}, {32, 0}, {6, TMENDRSCAN}}},
      {1L << 40, whole, 5, {{32, TMSTARTRSCAN}}},
  };
  for (const Scan &scan : scans) {
    narrow.forget_calls();
    narrow.in_doubt = scan.in_doubt;
    const long expected = std::min<long>(scan.count, scan.in_doubt);
    std::vector<WideXid> xids(static_cast<size_t>(expected) + 1, wide_xid(77, 77, 77));
    ASSERT_EQ(xa().xa_recover_entry(xids.data(), scan.count, 1, scan.flags), expected);
    std::vector<std::pair<int32_t, int32_t>> chunks;
    for (const NarrowCall &made : narrow.calls) {
      chunks.emplace_back(made.count, made.flags);
    }
    EXPECT_EQ(chunks, scan.chunks) << scan.count << ' ' << scan.flags;
    EXPECT_EQ(xids.back().formatID, 77) << "more was written than returned";
    xids.pop_back();
    int32_t number = scan.in_doubt;
    for (const WideXid &xid : xids) {
      EXPECT_EQ(xid.formatID, -number - 1);
      EXPECT_EQ(xid.gtrid_length, 4);
      EXPECT_EQ(xid.bqual_length, 0);
      EXPECT_EQ(std::memcmp(xid.data, &number, sizeof number), 0);
      EXPECT_EQ(xid.data[XIDDATASIZE - 1], 0x5a);
      --number;
    }
  }
}

// What a refused scan call leads to, on a resource manager that is open for the manager and on one that is not.
TEST_P(Entries, scans_are_repeated_only_from_their_start) {
  const std::string scan = entry("recover");
  const std::string opening = entry("open");
  const std::string asking = entry("end");
  struct Case {
    long count;
    long flags;
    std::deque<int32_t> answers;
    Texts calls;
    int answer;
  };
  const Case opened[] = {
      {9, whole, {XAER_RMFAIL, XA_OK, 4}, {scan, opening, scan}, 4},
      {9, TMSTARTRSCAN, {XAER_INVAL, XA_OK, 4}, {scan, opening, scan}, 4},
      {9, whole, {XAER_RMFAIL, XAER_RMERR}, {scan, opening}, XAER_RMFAIL},
      {9, whole, {XAER_RMFAIL, XA_OK, XAER_INVAL}, {scan, opening, scan}, XAER_RMFAIL},
      {9, whole, {XAER_RMERR}, {scan}, XAER_RMERR},
      {9, TMNOFLAGS, {XAER_RMFAIL}, {scan}, XAER_RMFAIL},
      {9, TMNOFLAGS, {XAER_PROTO}, {scan}, XAER_PROTO},
      {9, TMJOIN, {XAER_INVAL}, {scan}, XAER_INVAL},
      {40, whole, {32, XAER_RMERR, 32, 8}, {scan, scan, scan, scan}, 40},
      {40, whole, {32, XAER_RMFAIL, XAER_RMFAIL, XA_OK, 32, 8}, {scan, scan, scan, opening, scan, scan}, 40},
      {40, whole, {32, XAER_PROTO, 32, XAER_PROTO}, {scan, scan, scan, scan}, XAER_RMFAIL},
      {40, whole, {32, XAER_RMFAIL, XAER_RMERR}, {scan, scan, scan}, XAER_RMERR},
      {40, TMNOFLAGS, {32, XAER_PROTO}, {scan, scan}, XAER_RMFAIL},
      {40, TMENDRSCAN, {32, XAER_RMERR}, {scan, scan}, XAER_RMERR},
      {40, whole, {XAER_RMFAIL, XA_OK, 32, 8}, {scan, opening, scan, scan}, 40},
      {9, whole, {0, XAER_NOTA}, {scan, asking}, 0},
      {9, TMSTARTRSCAN, {0, XAER_RMFAIL}, {scan, asking}, XAER_RMERR},
      {9, whole, {0, XA_OK}, {scan, asking}, XAER_RMERR},
      {9, whole, {XAER_RMFAIL, XA_OK, 0, XAER_INVAL}, {scan, opening, scan, asking}, XAER_RMERR},
      {9, TMNOFLAGS, {0}, {scan}, 0},
      {0, TMENDRSCAN, {}, {}, 0},  // none is open
      {1, TMSTARTRSCAN, {1}, {scan}, 1},
      {0, TMENDRSCAN, {1}, {scan}, 0},
      {0, TMENDRSCAN, {}, {}, 0},
      {1, TMSTARTRSCAN, {1}, {scan}, 1},
      {0, TMENDRSCAN, {XAER_RMFAIL}, {scan}, 0},
      {1, whole, {1}, {scan}, 1},
      {0, TMENDRSCAN, {}, {}, 0},
      {0, TMSTARTRSCAN, {}, {}, XAER_INVAL},
      {0, whole, {}, {}, XAER_INVAL},
      {0, TMNOFLAGS, {}, {}, XAER_INVAL},
      {-1, TMENDRSCAN, {}, {}, XAER_INVAL},
      {LONG_MIN, whole, {}, {}, XAER_INVAL},
  };
  const Case never_opened[] = {
      {9, whole, {XAER_RMFAIL}, {scan}, XAER_RMFAIL},
      {9, whole, {XAER_PROTO}, {scan}, XAER_PROTO},
      {0, TMENDRSCAN, {XAER_RMFAIL}, {scan}, XAER_RMFAIL},
      {0, TMENDRSCAN, {XAER_PROTO}, {scan}, XAER_PROTO},
  };
  WideXid xids[40];
  const auto check = [&](const Case &row) {
    EXPECT_EQ(
        with_answers(row.answers, row.calls, [&] { return xa().xa_recover_entry(xids, row.count, 1, row.flags); }),
        row.answer)
        << row.count << ' ' << row.flags;
  };
  std::for_each(std::begin(never_opened), std::end(never_opened), check);
  open();
  std::for_each(std::begin(opened), std::end(opened), check);
  narrow.forget_calls();
  EXPECT_EQ(xa().xa_recover_entry(nullptr, 1, 1, whole), XAER_INVAL);
  EXPECT_EQ(narrow.called(), Texts());
}

TEST_P(Entries, scans_of_one_resource_manager_are_not_mixed) {
  WideXid xids[70];
  WideXid others[70];
  const auto scan = [&](WideXid *into, int rmid) { return xa().xa_recover_entry(into, 70, rmid, whole); };
  std::vector<int> elsewhere;
  open(1);
  open(2);
  narrow.in_doubt = 70;
  narrow.meanwhile = [&](const NarrowCall &) {
    elsewhere = {scan(others, 1), xa().xa_recover_entry(nullptr, 0, 1, TMENDRSCAN)};
    narrow.answers = {5, XAER_INVAL, XAER_RMFAIL};
    elsewhere.push_back(scan(others, 2));
    elsewhere.push_back(xa().xa_recover_entry(others, 1, 1, TMJOIN));  // bad flags
    elsewhere.push_back(scan(others, 3));                              // not open
  };
  EXPECT_EQ(scan(xids, 1), 70);
  EXPECT_EQ(elsewhere, (std::vector<int>{XAER_RMERR, XAER_RMERR, 5, XAER_INVAL, XAER_RMFAIL}));
  EXPECT_EQ(narrow.called(), (Texts{entry("recover", 1), entry("recover", 2), entry("recover", 1), entry("recover", 3),
                                    entry("recover", 1), entry("recover", 1)}));
  narrow.in_doubt = 3;
  EXPECT_EQ(scan(xids, 1), 3);
}

// ---- Threads --------------------------------------------------------------------------------------------------------

TEST_P(Entries, threads_share_what_is_open_unless_they_are_identities) {
  const bool shared = std::string(GetParam().name) != "txs";
  const auto answer_in_thread = [&] {
    int answer = 0;
    std::thread([&] {
      narrow.answers = {XAER_INVAL};
      answer = call(verbs[3], TMNOFLAGS);
    }).join();
    return answer;
  };
  open();
  EXPECT_EQ(answer_in_thread(), shared ? XA_OK : XAER_INVAL);
  std::thread([&] { EXPECT_EQ(xa().xa_close_entry("", 1, 0), XA_OK); }).join();
  narrow.answers = {XAER_INVAL};
  EXPECT_EQ(call(verbs[3], TMNOFLAGS), shared ? XAER_INVAL : XA_OK);
  EXPECT_EQ(answer_in_thread(), XAER_INVAL);
}

INSTANTIATE_TEST_SUITE_P(, Entries, testing::ValuesIn(flavours),
                         [](const auto &about) { return std::string(about.param.name); });

}  // namespace
