// Scans for the branches in doubt: their batches, the rows that are none of ours, and how a scan
// ends. The recover action itself compares the XIDs with those planted, in order.
#include "dtm/dtm_protocol.h"
#include "quillet.h"
#include "scenario.h"

namespace scenario {
namespace {

constexpr const char *scan_call = "sp_transactions";
constexpr int32_t whole = TMSTARTRSCAN | TMENDRSCAN;

// 1 when a row of that text, told before the planted branch, is passed over with a warning.
Step malformed(const std::string &row) {
  return {{"malformed row " + row,
           [row](World &world) {
             const ZDB_SCRIPT script{scan_call, 0, 1, ZDB_REPLY_SCAN_EXTRA_ROW, 0, row.c_str()};
             zdb_add_script(bank, &script);
             return recover(1, 10, whole).act(world);
           }},
          1};
}

std::string long_field(std::size_t length) {
  return std::string(length, '0');
}

// clang-format off
const std::vector<Scenario> scenarios = {
  {"nothing_in_doubt", {
    {open(1), XA_OK}, {recover(1, 10, TMSTARTRSCAN), 0}, {recover(1, 10, whole), 0},
    {recover(1, 10, TMNOFLAGS), XAER_PROTO}, {recover(1, 10, TMENDRSCAN), XAER_PROTO},
    {start(1, "A"), XA_OK}, {rollback(1, "A"), XA_OK}, {sessions(), 1}}},
  {"batches", {
    {open(1), XA_OK}, {plant(25), 25},
    {recover(1, 10, TMSTARTRSCAN), 10}, {recover(1, 10, TMNOFLAGS), 10}, {recover(1, 10, TMNOFLAGS), 5},
    {recover(1, 10, TMNOFLAGS), XAER_PROTO},
    {recover(1, 25, TMSTARTRSCAN), 25}, {recover(1, 25, TMNOFLAGS), 0}, {recover(1, 26, TMSTARTRSCAN), 25},
    {recover(1, 1, whole), 1}, {recover(1, 1, TMNOFLAGS), XAER_PROTO},
    {recover(1, 26, TMSTARTRSCAN), 25}, {start(1, "A"), XA_OK}, {rollback(1, "A"), XA_OK}, {sessions(), 1}}},
  {"last_batch_is_exactly_full", {
    {open(1), XA_OK}, {plant(20), 20}, {recover(1, 10, TMSTARTRSCAN), 10}, {recover(1, 10, TMNOFLAGS), 10},
    {recover(1, 10, TMNOFLAGS), 0}, {recover(1, 10, TMNOFLAGS), XAER_PROTO},
    {recover(1, 10, TMSTARTRSCAN), 10}, {recover(1, 10, TMENDRSCAN), 10}, {recover(1, 1, TMENDRSCAN), XAER_PROTO}}},
  {"scan_starts_over_and_leaves_other_work_alone", {
    {open(1), XA_OK}, {plant(5), 5}, {recover(1, 2, TMSTARTRSCAN), 2},
    {start(1, "A"), XA_OK}, {sessions(), 2}, {end(1, "A"), XA_OK}, {commit(1, "A", TMONEPHASE), XA_OK},
    {recover(1, 2, TMNOFLAGS), 2}, {recover(1, 3, TMSTARTRSCAN), 3}, {recover(1, 3, TMENDRSCAN), 2},
    {recover(1, 2, TMSTARTRSCAN), 2}, {close(1), XA_OK}, {sessions(), 0}}},
  {"branch_started_anew_during_a_scan_stays_on_its_connection", {
    {open(1), XA_OK}, {plant(2), 2}, {start(1, "S"), XA_OK}, {end(1, "S", TMSUSPEND), XA_OK},
    {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {end(1, "S"), XA_OK}, {rollback(1, "A"), XA_OK},
    {recover(1, 1, TMSTARTRSCAN), 1}, {start(1, "A"), XA_OK}, {recover(1, 10, TMENDRSCAN), 1},
    {end(1, "A"), XA_OK}, {commit(1, "A", TMONEPHASE), XA_OK}, {sessions(), 2}}},
  {"branches_in_doubt_are_completed_from_the_scan", {
    {open(1), XA_OK}, {plant(2), 2}, {force("R1", 1), 1}, {recover(1, 10, whole), 2},
    {commit(1, "R0"), XA_OK}, {commit(1, "R1"), XA_HEURCOM}, {forget(1, "R1"), XA_OK}, {state("R1"), DTM_STATE_UNKNOWN}}},
  {"rows_of_other_resource_managers", {
    {open(1), XA_OK}, {plant_name("1234_0g83_10k_:L2"), 1}, {plant(1), 1}, {plant_name("1234_0g83_10k_:l1"), 1},
    {plant_name("1234_0g83_10k_:L11"), 1}, {plant(1), 1}, {recover(1, 2, TMSTARTRSCAN), 2},
    {recover(1, 2, TMENDRSCAN), 0}}},
  {"malformed_rows_are_passed_over", {
    {open(1), XA_OK}, {plant(1), 1},
    malformed(""), malformed("nothing of ours"), malformed("1234_0g83_10k"), malformed("1234_0g83_10k_: L1"),
    malformed("_0g83_10k_:L1"), malformed("wxyz_0g83_10k_:L1"), malformed("123456789_0g83_10k_:L1"),
    malformed("1234__10k_:L1"), malformed("1234_0g-3_10k_:L1"), malformed("1234_0g83_1+k_:L1"),
    malformed("1234_0g83_10k:L1"), malformed("1234_0g83_10k_x_:L1"),
    malformed("1234_" + long_field(88) + "_10k_:L1"), malformed("1234_0g83_" + long_field(88) + "_:L1"),
    malformed("1234_" + long_field(200) + "_10k_:L1"), malformed("1234_0g83_10k_:L1" + long_field(40))}},
  {"scan_whose_end_is_not_confirmed", {
    {open(1), XA_OK}, {plant(3), 3},
    {script(scan_call, ZDB_REPLY_SCAN_STATUS, 1, 0, 2), 1},
    {recover(1, 10, TMSTARTRSCAN), XAER_RMERR},  // also when repeated on a new connection
    {logged("some XIDs could not be returned (databsee still being recovered)"), 1},
    {recover(1, 3, TMNOFLAGS), XAER_PROTO},
    {script(scan_call, ZDB_REPLY_SCAN_STATUS, -1), 1}, {recover(1, 2, TMSTARTRSCAN), 2},
    {recover(1, 2, TMNOFLAGS), XAER_RMERR},
    {script(scan_call, ZDB_REPLY_SCAN_NO_STATUS, 0, 0, 2), 1}, {recover(1, 3, whole), XAER_RMERR},
    {logged("No status result to confirm all XIDs were returned"), 1},
    {recover(1, 3, whole), 3}, {sessions(), 1}}},
  {"lost_connection_at_the_start_of_a_scan", {
    {open(1), XA_OK}, {plant(3), 3}, {break_sessions(), 1}, {recover(1, 10, TMSTARTRSCAN), 3},
    {script(scan_call, ZDB_REPLY_DROP_BEFORE, 0, 0, 2), 1}, {recover(1, 10, whole), XAER_RMFAIL},
    {recover(1, 10, whole), XAER_RMFAIL}, {open(1), XA_OK}, {recover(1, 10, whole), 3}}},
  {"rows_that_cannot_be_fetched", {
    {open(1), XA_OK}, {plant(3), 3},
    {script(scan_call, ZDB_REPLY_FETCH_CODE, CS_ROW_FAIL), 1},
    {recover(1, 10, whole), 3}, {script(scan_call, ZDB_REPLY_FETCH_CODE, CS_CANCELED, 0, 2), 1},
    {recover(1, 10, TMSTARTRSCAN), XAER_RMERR}, {recover(1, 10, TMNOFLAGS), XAER_PROTO},
    {recover(1, 10, whole), 3}, {sessions(), 1}}},
  {"scan_without_rows", {
    {open(1), XA_OK}, {plant(3), 3}, {script(scan_call, ZDB_REPLY_CMD_FAIL), 1}, {recover(1, 10, TMSTARTRSCAN), 0},
    {recover(1, 10, TMSTARTRSCAN), 3}}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Recovery, Scenarios, testing::ValuesIn(cases_of(scenarios)), case_name);

TEST(UnnamedResourceManager, prepared_branches_are_recovered) {
  World world(MTS);
  ASSERT_EQ(world.xa().xa_open_entry("-N L1 -Usa -Ppw -Sbank1 -KK1", 1, TMNOFLAGS), XA_OK);  // the blank ends the name
  ASSERT_EQ(world.prepared(1, "A"), XA_OK);
  XID xids[2] = {};
  EXPECT_EQ(world.xa().xa_recover_entry(xids, 2, 1, whole), 1);
  EXPECT_EQ(world.xa().xa_commit_entry(xids, 1, TMNOFLAGS), XA_OK);
  EXPECT_EQ(world.xa().xa_recover_entry(xids, 2, 1, whole), 0);
  world.expect_nothing_left();
}

TEST(RecoveryArguments, without_room_for_an_xid_are_refused) {
  World world(TUX);
  ASSERT_EQ(world.open(1), XA_OK);
  XID xid{};
  EXPECT_EQ(world.xa().xa_recover_entry(nullptr, 10, 1, TMSTARTRSCAN), XAER_INVAL);
  EXPECT_EQ(world.xa().xa_recover_entry(&xid, 0, 1, TMSTARTRSCAN), XAER_INVAL);
  EXPECT_EQ(world.xa().xa_recover_entry(&xid, -1, 1, TMSTARTRSCAN), XAER_INVAL);
  world.expect_nothing_left();
}

}  // namespace
}  // namespace scenario
