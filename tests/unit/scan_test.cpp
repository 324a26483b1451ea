// The recovery scan: batches, rows that do not count, and how a scan ends.
#include <gtest/gtest.h>

#include <cstring>

#include "base/xal_xid.h"
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "scene.h"

using namespace fake;

namespace {

class Scan : public Scene {
 protected:
  int32_t recover(int32_t count, int32_t flags) {
    xids.assign(static_cast<size_t>(count), XID{});
    return xa__dtm_recover(&conn, xids.data(), count, flags);
  }
  std::vector<XID> xids;
};

const Value own = branch_name;
const Value foreign = "1234_0g83_10k_:L2";
const std::string failed = "[xa__dtm_recover] Error: scan termination failed ";

Reply scan_reply(const std::vector<Value> &names, int32_t code = 0) {
  return {rows(names), status(code), marker(CS_CMD_DONE)};
}

TEST_F(Scan, a_short_batch_ends_the_scan_in_order) {
  library().replies = {scan_reply({own})};
  EXPECT_EQ(recover(2, TMSTARTRSCAN), 1);
  EXPECT_TRUE(xid_equal(xids[0], branch()));
  const auto read = [](const char *binding) {
    return Lines{"ct_res_info(cmd2, 803)", "ct_describe(cmd2, 1)", text("ct_bind(cmd2, 1, %s)", binding),
                 "ct_fetch(cmd2)"};
  };
  const std::string next = "ct_results(cmd2) [free]";
  const std::string cancel = "ct_cancel(null, cmd2, 6000)";
  EXPECT_EQ(library().take_calls(),
            joined({{"ct_cmd_alloc(con1)", "ct_command(cmd2, 149, \"sp_transactions\", 189)",
                     "ct_param(cmd2, \"@query_type\"=\"xa_recover\" len 10 type 0 max 255 status 0x100)",
                     "ct_send(cmd2)", next},
                    read("type 0 format 2 max 256 count 1"),
                    read("type 0 format 2 max 256 count 1"),
                    {next},
                    read("type 8 format 0 max 4 count 2"),
                    read("type 8 format 0 max 4 count 1"),
                    {cancel, next, cancel, next, "ct_cancel(null, cmd2, 6001)", "ct_cmd_drop(cmd2)"}}));
  EXPECT_EQ(conn.xc_recov_cmd, nullptr);
  EXPECT_EQ(take_log(), Lines{});
}

TEST_F(Scan, rows_are_branches_of_this_lrm_or_passed_over) {
  const std::string full(86, '0');
  const struct {
    const char *name;
    std::string row;
    int32_t stored;
    bool warned;
  } cases[] = {
      {"own branch", branch_name, 1, false},
      {"trailing blanks", "1234_0g83_10k_:L1   ", 1, false},
      {"empty bqual", "1234_0g83__:L1", 1, false},
      {"formatID -1 of eight digits", "ffffffff_00_00_:L1", 1, false},
      {"longest fields", std::string("0_") + full + "_" + full + "_:L1", 1, false},
      {"gtrid that gives no byte", "1_0_00_:L1", 0, true},
      {"gtrid of 65 bytes", std::string("1_") + std::string(87, '0') + "_00_:L1", 0, true},
      {"gtrid of 128 characters", std::string("1_") + std::string(128, '0') + "_00_:L1", 0, true},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    fresh();
    library().replies = {scan_reply({Value(one.row), own})};
    EXPECT_EQ(recover(2, TMSTARTRSCAN), one.stored + 1);
    EXPECT_TRUE(xid_equal(xids[static_cast<size_t>(one.stored)], branch()) || one.row.rfind("ffffffff", 0) == 0);
    Lines log = take_log();
    std::erase_if(log, [](const std::string &line) { return line.find("Bad character in XID") != std::string::npos; });
    EXPECT_EQ(log.size(), one.warned ? 1U : 0U);
    EXPECT_TRUE(log.empty() || log[0].find("] Warning: ") != std::string::npos);
  }
}

TEST_F(Scan, rows_without_an_lrm_name_belong_to_an_lrm_without_a_name) {
  const std::string unnamed = "1234_0g83_10k_:";
  for (const char *name : {"", "L1"}) {
    fresh();
    strcpy(lrm.lrm_name, name);
    library().replies = {scan_reply({Value(unnamed), own, Value(unnamed + "  ")})};
    EXPECT_EQ(recover(4, TMSTARTRSCAN), lrm.lrm_name[0] == '\0' ? 2 : 1);
    EXPECT_TRUE(xid_equal(xids[0], branch()));
    EXPECT_EQ(take_log(), Lines{});
  }
}

TEST_F(Scan, only_a_zero_status_confirms_the_end) {
  const std::string warning = "[xa_dtm_terminate_scan] Warning: ";
  const std::string unsure = warning + "Unable to determine if all XIDs could be returned";
  // clang-format off
  const struct {
    const char *name;
    Reply reply;
    int32_t result;
    Lines log;
  } cases[] = {
      {"broken off", {rows({own}), broken(CS_CANCELED)}, XAER_RMERR, {unsure, failed + "([CS_CANCELED])"}},
      {"broken off after zero", {rows({own}), status(0), broken(CS_FAIL)}, 1, {}},
      {"two: the second counts", {rows({own}), status(1), status(0)}, 1,
       {"[xa_dtm_terminate_scan] Message: duplicate status"}},
      {"more rows and a failed command", {rows({own}), rows({own}), marker(CS_CMD_FAIL), marker(9), status(0)}, 1,
       {warning + "CS_ROW_RESULT", warning + "CS_CMD_FAIL",
       "[xa_dtm_terminate_scan] Error: Unexpected result type 9"}},
      {"status in two columns of no rows", {rows({own}), {CS_SUCCEED, CS_STATUS_RESULT, {""}, {}}}, XAER_RMERR,
       {warning + "Failure obtaining CS_STATUS_RESULT", unsure, failed + "([CS_FAIL])"}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    fresh();
    library().replies = {one.reply};
    EXPECT_EQ(recover(5, TMSTARTRSCAN), one.result);
    EXPECT_TRUE(xid_equal(xids[0], branch())) << "the batch is stored whatever the end says";
    EXPECT_EQ(conn.xc_recov_cmd, nullptr);
    EXPECT_EQ(take_log(), one.log);
  }
}

TEST_F(Scan, failing_steps) {
  const std::string start = "[xa_dtm_start_scan] Error: ";
  const std::string scan = "[xa_dtm_recov_scan] Error: ct_results ";
  const struct {
    const char *operation;
    int32_t nth, forced, result;
    std::string first_line;
    bool dropped;
  } cases[] = {
      {"ct_cmd_alloc", 1, CS_FAIL, XAER_RMERR, start + "Unable to allocate command for recovery ([CS_FAIL])", false},
      {"ct_command", 1, CS_BUSY, XAER_RMERR, start + "Unable to declare recovery rpc ([CS_BUSY])", true},
      {"ct_param", 1, CS_FAIL, XAER_RMERR, start + "Unable to set state param ([CS_FAIL])", true},
      {"ct_send", 1, CS_FAIL, XAER_RMERR, start + "Unable to send recovery command ([CS_FAIL])", true},
      {"ct_results", 1, CS_FAIL, XAER_RMFAIL, scan + "retcode ([CS_FAIL]) , result type 0", true},
      {"ct_results", 1, CS_CANCELED, XAER_RMFAIL, scan + "([CS_CANCELED]), result type 0", true},
      {"ct_fetch", 1, CS_CANCELED, XAER_RMERR, "", true},
      {"ct_cmd_drop", 1, CS_FAIL, 1, "[xa_dtm_terminate_scan] Error: Unable to free command [CS_FAIL]", true},
      {"ct_cancel", 3, CS_FAIL, 1, "[xa_dtm_terminate_scan] Error: ct_cancel failed [CS_FAIL]", true},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(text("%s %d", one.operation, one.nth));
    fresh();
    library().replies = {scan_reply({own})};
    library().fail(one.operation, one.nth, one.forced);
    EXPECT_EQ(recover(5, TMSTARTRSCAN), one.result);
    EXPECT_EQ(conn.xc_recov_cmd, nullptr);
    EXPECT_EQ(library().take_calls({"ct_cmd_drop"}), one.dropped ? Lines{"ct_cmd_drop(cmd2)"} : Lines{});
    const Lines log = take_log();
    ASSERT_EQ(log.empty(), one.first_line.empty());
    EXPECT_TRUE(log.empty() || log[0].rfind(one.first_line, 0) == 0) << log[0];
  }
}

TEST_F(Scan, a_results_error_shows_the_result_before_it) {
  library().replies = {{marker(CS_CMD_FAIL)}};
  library().fail("ct_results", 2, CS_FAIL);
  EXPECT_EQ(recover(5, TMSTARTRSCAN), XAER_RMFAIL);
  const Lines log = take_log();
  EXPECT_EQ(Lines(log.begin(), log.begin() + 2),
            (Lines{text("[xa_dtm_recov_scan] Error: CS_CMD_FAIL result type %d", CS_CMD_FAIL),
                   text("[xa_dtm_recov_scan] Error: ct_results retcode ([CS_FAIL]) , result type %d", CS_CMD_FAIL)}));
}

TEST_F(Scan, an_unexpected_first_result_is_refused) {
  library().replies = {{marker(QLT_CURSOR_RESULT)}};
  EXPECT_EQ(recover(5, TMSTARTRSCAN), XAER_RMFAIL);
  const Lines log = take_log();
  EXPECT_EQ(Lines(log.begin(), log.begin() + 2), (Lines{"[xa_dtm_recov_scan] Error: Unexpected result type 4041",
                                                        "[xa__dtm_recover] Error: Unexpected start scan result 0"}));
}

}  // namespace
