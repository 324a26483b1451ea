// Opening and closing of resource managers: servers that refuse, repeated opens, the second
// flavour, and closing while branches live.
#include "dtm/dtm_protocol.h"
#include "scenario.h"

#include "common_control.h"

namespace scenario {
namespace {

Action open_null() {
  return {"open with a null string", [](World &world) { return world.xa().xa_open_entry(nullptr, 1, TMNOFLAGS); }};
}

Action open_asynchronously() {
  return {"open with TMASYNC",
          [](World &world) { return world.xa().xa_open_entry(world.open_string(1).c_str(), 1, TMASYNC); }};
}

Action complete() {
  return {"complete", [](World &world) { return world.xa().xa_complete_entry(nullptr, nullptr, 1, TMNOFLAGS); }};
}

// The XA codes of the other two flavours' opens: 2 when both refuse.
Action open_other_flavours() {
  return {"open under the other flavours", [](World &world) {
            int32_t refusals = 0;
            for (const unsigned flavour : {MTS, TUX, TXS}) {
              if (flavour != world.flavour) {
                refusals += flavour_switch(flavour).xa_open_entry("-NL1 -Usa -Ppw -KK1", 2, TMNOFLAGS) == XAER_INVAL;
              }
            }
            return refusals;
          }};
}

Action break_configuration(int32_t broken) {
  return {"break or restore the configuration", [broken](World &) {
            common_fail_reader(broken, broken);
            return 1;
          }};
}

// clang-format off
const std::vector<Scenario> scenarios = {
  {"repeated_open_adds_nothing", {
    {open(1), XA_OK}, {open(1), XA_OK}, {sessions(), 1}, {open_as(1, "-NL1 -Usa -Ppw -Sbank1"), XA_OK},
    {close(1), XA_OK}, {sessions(), 0}, {close(1), XA_OK}, {start(1, "A"), XAER_INVAL}}},
  {"open_with_other_values_is_refused", {
    {open(1), XA_OK}, {open_as(1, "-NL1 -Uguest -Ppw"), XAER_RMERR}, {open_as(1, "-NL1 -Usa -Pother"), XAER_RMERR},
    {open_as(1, "-NL2 -Usa -Ppw"), XAER_RMERR}, {open_as(1, "-NL1 -Usa -Ppw -Sbank2"), XAER_RMERR},
    {logged("Mismatched LRM, opened: LRM L1, SERVER bank1, USER sa"), 1},
    {start(1, "A"), XA_OK}, {rollback(1, "A"), XA_OK}, {sessions(), 1}}},
  {"opens_that_fail_leave_the_start_to_the_next_one", {
    {open_asynchronously(), XAER_INVAL}, {start(1, "A"), XAER_PROTO}, {close(1), XAER_PROTO}, {complete(), XAER_PROTO},
    {recover(1, 1, TMSTARTRSCAN), XAER_PROTO},
    {only(TUX | TXS, break_configuration(1)), 1}, {only(TUX | TXS, open(1)), XAER_INVAL},
    {only(TUX | TXS, start(1, "A")), XAER_PROTO}, {only(TUX | TXS, break_configuration(0)), 1},
    {open_null(), XAER_INVAL}, {open_as(1, "-NL1 -Usa -Pwrong"), XAER_RMERR}, {sessions(), 0}, {start(1, "A"), XAER_INVAL},
    {open(1), XA_OK}, {complete(), XAER_PROTO}, {start(1, "A"), XA_OK}, {rollback(1, "A"), XA_OK}}},
  {"lrm_without_configuration", {
    {open_as(1, "-NL9 -Usa -Ppw -Sbank1"), XAER_RMERR}, {open_as(1, "-Usa -Ppw"), XAER_RMERR},
    {open_as(1, "-NL1 -Usa -Ppw -Snowhere"), XAER_RMERR}, {open(1), XA_OK}}, TUX | TXS},
  {"server_not_ready_for_dtm", {
    {dtm(0), 1}, {open(1), XAER_INVAL}, {logged("Server bank1 is not configured for XA DTM use"), 1},
    {dtm(ZDB_NO_CONFIG_ROW), 1}, {open(1), XAER_INVAL}, {dtm(1), 1},
    {dtm_role(0), 1}, {open(1), XAER_INVAL}, {logged("Check that user has dtm_tm_role on server"), 1}, {sessions(), 0},
    {dtm_role(1), 1}, {script(status_call, ZDB_REPLY_STATUS, -3), 1}, {open(1), XA_OK},
    {open(2), XA_OK}, {close(1), XA_OK}, {script("language", ZDB_REPLY_DROP_BEFORE), 1}, {open(1), XAER_INVAL},
    {script(status_call, ZDB_REPLY_STATUS, 0), 1}, {open(1), XAER_INVAL}, {sessions(), 0}}},
  {"login_without_failover_is_tried_second", {
    {refuse_failover(1), 1}, {open(1), XA_OK}, {logged("Connected without failover to serv: bank1, user: sa"), 1},
    {start(1, "A"), XA_OK}, {break_sessions(), 1}, {end(1, "A"), XA_RBCOMMFAIL}, {sessions(), 1},
    {refuse_failover(0), 1}}},
  {"second_flavour_is_refused", {
    {open(1), XA_OK}, {open_other_flavours(), 2},
    {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {commit(1, "A", TMONEPHASE), XA_OK}, {sessions(), 1},
    {close(1), XA_OK}, {open_other_flavours(), 2}, {open(1), XA_OK}}},
  {"close_while_a_branch_is_associated", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {close(1), {XA_OK, XAER_PROTO}}, {sessions(), {0, 1}},
    {state("A"), {DTM_STATE_ENDED, DTM_STATE_ATTACHED}}, {published(), {0, 1}},
    {end(1, "A"), {XAER_INVAL, XA_OK}}, {only(MTS, open(1)), XA_OK}, {rollback(1, "A"), XA_OK}, {close(1), XA_OK}}},
  {"close_while_a_branch_is_suspended", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A", TMSUSPEND), XA_OK}, {start(1, "B"), XA_OK},
    {sessions(), 2}, {end(1, "B"), XA_OK}, {close(1), {XA_OK, XAER_PROTO}}, {state("A"), {DTM_STATE_ENDED, DTM_STATE_ATTACHED}},
    {only(TUX | TXS, end(1, "A")), XA_OK}, {close(1), XA_OK}, {open(1), XA_OK}, {rollback(1, "A"), XA_OK},
    {rollback(1, "B"), XA_OK}}},
  {"close_while_the_server_has_forgotten_the_branch", {
    {open(1), XA_OK}, {open(3), XA_OK}, {start(1, "A"), XA_OK}, {rollback(3, "A"), XA_OK}, {close(1), XA_OK},
    // Nor is a branch in the way that the server knows but does not have attached.
    {start(3, "B"), XA_OK}, {script(status_call, ZDB_REPLY_STATUS, 4), 1}, {close(3), XA_OK},
    {state("B"), DTM_STATE_ABORTONLY}, {open(1), XA_OK}, {rollback(1, "B"), XA_OK}}},
  {"close_in_another_thread", {
    {open(1), XA_OK}, {other(close(1)), {XA_OK, XA_OK, XAER_RMERR}}, {sessions(), {0, 0, 1}},
    {other(open(1)), XA_OK}, {sessions(), {1, 1, 2}}, {close(1), XA_OK}, {sessions(), {0, 0, 1}},
    {other(close(2)), XA_OK}}},
  {"connection_that_is_not_published", {
    {{"open with the key MSDTC",
      [](World &world) { return world.xa().xa_open_entry("-NL1 -Usa -Ppw -KMSDTC", 1, TMNOFLAGS); }}, XA_OK},
    {start(1, "A"), XA_OK}, {objects(), 0}, {statement_number(1), 1}, {end(1, "A"), XA_OK},
    {rollback(1, "A"), XA_OK}}, MTS},
  {"configuration_is_optional", {
    {break_configuration(1), 1}, {open(1), XAER_RMERR}, {open_as(1, "-NL1 -Usa -Ppw -Sbank1"), XA_OK},
    {break_configuration(0), 1}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {commit(1, "A", TMONEPHASE), XA_OK}}, MTS},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(OpenClose, Scenarios, testing::ValuesIn(cases_of(scenarios)), case_name);

}  // namespace
}  // namespace scenario
