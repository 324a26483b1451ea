// The switch records, the flavours' start-up, their thread services and what they publish, on the real personalities.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "config/xal_config.h"
#include "connections/xal_context.h"
#include "log/xal_log.h"
#include "personality/xal_threads.h"
#include "registry/xal_registry.h"
#include "scene.h"
#include "xadtm.h"

using namespace fake;

namespace {

// No flavour is active at first: these tests need a process each, as ctest runs them.
class Switch : public testing::Test {
 protected:
  Switch() {
    take_log();
    library().reset();
    setenv("XACONFIGFILE", file_with("[xa]\nlrm=L1\n").c_str(), 1);
    if (trvxal_tm_personality.load()->tm_type != XATM_NONE || _xa_tux_init_state != XAST_NONE) {
      ADD_FAILURE() << "run these tests in processes of their own: another test has started a flavour";
    }
  }
  ~Switch() override {
    EXPECT_FALSE(library().serialised()) << "a call kept the serialisation mutex";
    EXPECT_EQ(library().live_connections(), 0);
    EXPECT_EQ(library().live_commands(), 0);
  }
  const XID x = branch();
};

const xa_switch_t *const switches[] = {&tarvex_MTS_xa_switch, &tarvex_TUX_xa_switch, &tarvex_TXS_xa_switch};
constexpr const char *mts_string = "-NL1 -Usa -Ppw -Sbank -Kkey";

TEST_F(Switch, records_have_the_standard_name_flags_and_version) {
  for (const xa_switch_t *record : switches) {
    EXPECT_EQ(std::string(record->name, sizeof record->name), "TARVEX_XA_SERVER" + std::string(16, '\0'));
    EXPECT_EQ(record->flags, TMNOFLAGS);
    EXPECT_EQ(record->version, 0);
  }
}

TEST_F(Switch, start_up_failures_are_told_and_start_over) {
  const char *const entry[] = {"trv_mts_xa_open", "trv_tux_xa_open", "trv_txs_xa_open"};
  const struct {
    size_t flavour;
    const char *operation;
    int32_t nth;
    const char *message;
  } cases[] = {
      {0, "cs_ctx_global", 1, "unable to get CS_CONTEXT"},
      {1, "cs_ctx_global", 1, "unable to get CS_CONTEXT"},
      {2, "cs_ctx_global", 1, "unable to get CS_CONTEXT"},
      {0, "cs_config", 1, " unable to get thread functions"},
      {1, "cs_config", 1, "unable to get thread functions"},
      {2, "cs_config", 1, nullptr},
      {0, "create_mutex", 1, "unable to creat initialization mutex"},
      {1, "create_mutex", 1, "unable to creat initialization mutex"},
      {2, "create_mutex", 2, "unable to creat serialization mutex"},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(text("%zu %s %d", one.flavour, one.operation, one.nth));
    library().fail(one.operation, one.nth);
    testing::internal::CaptureStderr();
    EXPECT_EQ(switches[one.flavour]->xa_open_entry(open_string, 1, 0), XAER_RMFAIL);
    const std::string shown = testing::internal::GetCapturedStderr();
    const Lines log = take_log();
    if (one.message == nullptr) {
      EXPECT_EQ(shown, "trv_txs_xa_open: unable to get thread functions\n") << "to standard error even with a log";
    }
    EXPECT_EQ(log.empty() ? "" : log.back(),
              one.message == nullptr ? "" : text("[%s] Error: %s", entry[one.flavour], one.message));
    EXPECT_EQ(trvxal_tm_personality.load()->tm_type, XATM_NONE);
    EXPECT_EQ(_xa_mts_init_state, XAST_NONE);
  }
}

TEST_F(Switch, a_first_open_that_fails_is_repeated_from_the_start) {
  const xa_switch_t &tux = tarvex_TUX_xa_switch;
  EXPECT_EQ(tux.xa_open_entry(nullptr, 1, 0), XAER_INVAL) << "no configuration without a string";
  EXPECT_EQ(trvxal_tm_personality.load()->tm_type, XATM_NONE);
  library().fail("ct_connect", 1, CS_BUSY);
  EXPECT_EQ(tux.xa_open_entry(open_string, 1, 0), XAER_RMERR);
  EXPECT_EQ(_xa_tux_init_state, XAST_NONE);
  EXPECT_EQ(trvxal_tm_personality.load()->tm_type, XATM_TUX) << "installed by the successful configuration";
  const int32_t serialise = _xa_txs_serialize.load();
  EXPECT_EQ(tux.xa_open_entry(open_string, 1, 0), XA_OK);
  EXPECT_EQ(_xa_tux_init_state, XAST_READY);
  EXPECT_EQ(_xa_txs_serialize.load(), serialise) << "a flavour in use keeps its mutex";
  EXPECT_EQ(library().mutexes_created(), 2) << "the client library has only so many";
  EXPECT_EQ(tux.xa_close_entry("", 1, 0), XA_OK);
}

TEST_F(Switch, a_context_that_cannot_be_had_is_tried_again_with_its_settings) {
  setenv("XACONFIGFILE", file_with("[all]\nproperties=CS_TIMEOUT=60\n[xa]\nlrm=L1\n").c_str(), 1);
  const xa_switch_t &tux = tarvex_TUX_xa_switch;
  for (const auto &[operation, nth] : {std::pair("cs_ctx_global", 3), std::pair("ct_init", 1)}) {
    library().fail(operation, nth);        // the start-up and the log ask for the context first
    library().fail("ct_con_alloc", 1, 0);  // as the real one does without a context
    EXPECT_EQ(tux.xa_open_entry(open_string, 1, 0), XAER_RMERR);
    EXPECT_EQ(xl_context, nullptr) << operation;
  }
  library().take_calls();
  EXPECT_EQ(tux.xa_open_entry(open_string, 1, 0), XA_OK);
  EXPECT_EQ(library().take_calls({"ct_config(SET, 9117"}), Lines{"ct_config(SET, 9117, 60, -99999)"});
  EXPECT_EQ(tux.xa_open_entry(open_string, 2, 0), XA_OK);
  EXPECT_EQ(library().take_calls({"ct_init"}), Lines{}) << "once it is there, it stays";
  EXPECT_EQ(tux.xa_close_entry("", 1, 0), XA_OK);
  EXPECT_EQ(tux.xa_close_entry("", 2, 0), XA_OK);
}

TEST_F(Switch, a_second_flavour_is_refused_and_disturbs_nothing) {
  EXPECT_EQ(tarvex_TXS_xa_switch.xa_open_entry(open_string, 1, 0), XAER_RMERR) << "a thread without identity";
  library().identity = "me";
  EXPECT_EQ(tarvex_TXS_xa_switch.xa_open_entry(open_string, 1, 0), XA_OK);
  const int32_t serialise = _xa_txs_serialize.load();
  take_log();
  EXPECT_EQ(tarvex_MTS_xa_switch.xa_open_entry(mts_string, 1, 0), XAER_INVAL);
  const Lines log = take_log();
  EXPECT_EQ(Lines(log.begin(), log.begin() + 2),
            (Lines{"[xa_open] Error: Only one type of Transaction Manager can be used",
                   "[xa_open] Message: Previous TM type 2, new TM type 10"}));
  EXPECT_EQ(_xa_txs_serialize.load(), serialise);
  EXPECT_EQ(trvxal_tm_personality.load(), &trvxal_txs_personality);
  EXPECT_EQ(_xa_mts_init_state, XAST_NONE);
  const int32_t made = library().mutexes_created();
  EXPECT_EQ(tarvex_MTS_xa_switch.xa_open_entry(mts_string, 1, 0), XAER_INVAL);
  EXPECT_EQ(library().mutexes_created(), made) << "a refused flavour keeps what it made";
  EXPECT_EQ(tarvex_TXS_xa_switch.xa_close_entry("", 1, 0), XA_OK);
}

TEST_F(Switch, mts_reads_no_further_than_an_xid_reaches) {
  EXPECT_EQ(tarvex_MTS_xa_switch.xa_open_entry(mts_string, 1, 0), XA_OK);
  library().standing["commit"] = {status(7)};
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto *pages =
      static_cast<char *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(pages, MAP_FAILED);
  ASSERT_EQ(mprotect(pages + page, page, PROT_NONE), 0);
  const struct {
    int32_t gtrid, bqual;
    size_t bytes;
    int answer;
  } cases[] = {{3, 5, 8, XA_OK}, {-1, -200, 0, XAER_INVAL}, {200, -1, 64, XAER_INVAL}};
  for (const auto &one : cases) {
    char *end = pages + page - 12 - one.bytes;
    const int32_t header[] = {0x1234, one.gtrid, one.bqual};
    memcpy(end, header, sizeof header);
    memset(end + 12, 0, one.bytes);
    memcpy(end + 12, "\x01\x02\x03\x04\x05", std::min<size_t>(5, one.bytes));
    library().take_requests();
    EXPECT_EQ(tarvex_MTS_xa_switch.xa_commit_entry(reinterpret_cast<XID *>(end), 1, 0), one.answer);
    const std::vector<std::string> sent = library().take_requests();
    EXPECT_EQ(sent.empty(), one.answer != XA_OK);
    EXPECT_TRUE(sent.empty() || sent.at(0).starts_with("commit 1234_0g83")) << sent.at(0);
  }
  munmap(pages, 2 * page);
  EXPECT_EQ(tarvex_MTS_xa_switch.xa_close_entry("", 1, 0), XA_OK);
}

TEST_F(Switch, without_thread_support_tux_goes_on_and_the_others_refuse) {
  library().threads = false;
  for (const xa_switch_t *record : {&tarvex_MTS_xa_switch, &tarvex_TXS_xa_switch}) {
    EXPECT_EQ(record->xa_open_entry(mts_string, 1, 0), XAER_RMFAIL);
    EXPECT_NE(take_log().back().find("unable to creat initialization mutex"), std::string::npos);
  }
  EXPECT_EQ(tarvex_TUX_xa_switch.xa_open_entry(open_string, 1, 0), XA_OK);
  EXPECT_EQ(trvxal_tm_personality.load(), &trvxal_tux_nonthreaded_personality);
  library().standing["begin"] = {status(0)};
  library().standing["detach"] = {status(1)};
  EXPECT_EQ(tarvex_TUX_xa_switch.xa_start_entry(&x, 1, 0), XA_OK);
  EXPECT_EQ(tarvex_TUX_xa_switch.xa_end_entry(&x, 1, TMSUCCESS), XA_OK);
  EXPECT_EQ(tarvex_TUX_xa_switch.xa_close_entry("", 1, 0), XA_OK);
  EXPECT_EQ(library().mutexes_created(), 0);
  library().threads = true;
}

TEST_F(Switch, thread_services_pass_through_and_tell_threads_apart_under_txs) {
  library().identity = "me";
  EXPECT_EQ(tarvex_TXS_xa_switch.xa_open_entry(open_string, 1, 0), XA_OK);
  library().take_calls();
  _trvtxs_waitfor_event(5);
  EXPECT_EQ(library().take_calls(), Lines{"waitfor_event(5, 1000) [free]"});
  library().fail("create_mutex");
  EXPECT_EQ(_trvtxs_create_event(), 0);
  EXPECT_EQ(take_log().back(), "[_trvtxs_create_event] Error: unable to create event");
  XA_THRDID identity{};
  const struct {
    std::string bytes;
    int32_t claim, result, tag, length;
  } cases[] = {{std::string("\x01\xfe"), 0, 1, 0xfe, 2},
               {std::string(16, '\x07'), 0, 1, 7, 16},
               {std::string(16, '\x07'), 17, 0, 0, 0},
               {"", 0, 0, 0, 0}};
  for (const auto &one : cases) {
    library().identity = one.bytes;
    library().identity_claim = one.claim;
    EXPECT_EQ(_trvtxs_get_thrdid(&identity), one.result);
    if (one.result == 1) {
      EXPECT_EQ(identity.tid_tag, one.tag);
      EXPECT_EQ(identity.tid_len, one.length);
    }
  }
  EXPECT_EQ(_trvmts_get_thrdid(&identity), 1);
  EXPECT_EQ(identity.tid_tag, 0);
  EXPECT_EQ(identity.tid_len, -99999);
  library().identity = "me";
  library().identity_claim = 0;
  EXPECT_EQ(tarvex_TXS_xa_switch.xa_close_entry("", 1, 0), XA_OK);
}

}  // namespace
