// DTM requests: what is sent, how replies are condensed, and what becomes of every failure.
#include <gtest/gtest.h>

#include <array>

#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"
#include "scene.h"

using namespace fake;

namespace {

using Fields = std::array<int32_t, 4>;  // return code, rpcret, rpcstat, transtat

class Rpc : public Scene {
 protected:
  int32_t status_request(const Reply &reply) {
    library().replies.push_back(reply);
    return xa__dtm_rpc(&conn, DTM_STATUS, &xid, 0);
  }
  // The code and the outcome fields that the reply gives.
  void expect_outcome(const Reply &reply, const Fields &expected) {
    fresh();
    const int32_t code = status_request(reply);
    EXPECT_EQ((Fields{code, conn.rpcret, conn.rpcstat, conn.transtat}), expected);
  }
  const XID xid = branch();
};

TEST_F(Rpc, begin_sends_four_parameters_and_waits_without_the_mutex) {
  library().replies.push_back({status(0), marker(CS_CMD_DONE)});
  EXPECT_EQ(xa__dtm_rpc(&conn, DTM_BEGIN, &xid, 1), CS_SUCCEED);
  EXPECT_EQ(library().take_calls(),
            (Lines{"ct_command(cmd1, 149, \"$beginTrvDtmXact\", 189)",
                   "ct_param(cmd1, \"@name\"=\"1234_0g83_10k_:L1\" len 17 type 0 max 255 status 0x100)",
                   "ct_param(cmd1, \"@mode\"=196608 len 4 type 8 max -99999 status 0x100)",
                   "ct_param(cmd1, \"@status\"=1 len 4 type 8 max -99999 status 0x100)",
                   "ct_param(cmd1, \"@flags\"=16 len 4 type 8 max -99999 status 0x100)", "ct_send(cmd1)",
                   "ct_results(cmd1) [free]", "ct_res_info(cmd1, 803)", "ct_describe(cmd1, 1)",
                   "ct_bind(cmd1, 1, type 8 format 0 max 4 count 2)", "ct_fetch(cmd1)", "ct_res_info(cmd1, 803)",
                   "ct_describe(cmd1, 1)", "ct_bind(cmd1, 1, type 8 format 0 max 4 count 1)", "ct_fetch(cmd1)",
                   "ct_results(cmd1) [free]", "ct_results(cmd1) [free]"}));
  EXPECT_EQ(take_log(), Lines{});
}

TEST_F(Rpc, replies_condense_into_the_outcome_fields) {
  const Result error = output("@$rpcerror", 12);
  const Result state = output("@xactstatus", 5);
  const struct {
    const char *name;
    Reply reply;
    Fields outcome;
  } rows[] = {
      {"rpcerror wins over the status", {error, status(0)}, {CS_FAIL, -2, 12, -1}},
      {"rpcerror after the status", {status(3), error}, {CS_FAIL, -2, 12, -1}},
      {"rpcerror with a state", {error, state, status(-4)}, {CS_FAIL, -3, 12, 5}},
      {"plain status", {status(0), marker(CS_CMD_DONE)}, {CS_SUCCEED, 0, 0, 0}},
      {"plain positive status", {status(255)}, {CS_SUCCEED, 0, 0, 255}},
      {"negative status", {status(-4)}, {CS_SUCCEED, 1, -4, -1}},
      {"status with a state", {status(3), state}, {CS_SUCCEED, 1, 5, 3}},
      {"negative status with a state", {state, status(-2)}, {CS_SUCCEED, 1, -2, 5}},
      {"nothing at all", {}, {CS_FAIL, -5, 0, -1}},
      {"state without status", {state}, {CS_FAIL, -5, 0, 5}},
      {"broken off after a status", {status(3), broken(CS_FAIL)}, {CS_FAIL, -4, 0, 3}},
      {"broken off with another code", {broken(CS_CANCELED)}, {CS_CANCELED, -4, 0, -1}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    expect_outcome(row.reply, row.outcome);
    EXPECT_EQ(library().take_calls({"ct_cancel"}), Lines{});
    EXPECT_EQ(take_log(), Lines{});
  }
}

TEST_F(Rpc, odd_replies_are_reported_and_cancelled_without_the_mutex) {
  const Lines cancelled{"ct_cancel(null, cmd1, 6001) [free]"};
  // clang-format off
  const struct {
    const char *name;
    Reply reply;
    Fields outcome;
    Lines cancels;
    const char *log;  // without its function
  } rows[] = {
      {"two statuses", {status(1), status(-7), status(9)}, {CS_END_DATA, -4, -7, -1}, cancelled,
       "Message: duplicate status"},
      {"row result", {status(1), row(4), status(2)}, {CS_FAIL, -4, 0, 1}, cancelled,
       "Error: Unexpected Quillet result 4040"},
      {"message result", {marker(QLT_MSG_RESULT)}, {CS_FAIL, -4, 0, -1}, cancelled,
       "Error: Unexpected Quillet result 4044"},
      {"command failed, status follows", {marker(CS_CMD_FAIL), status(0)}, {CS_SUCCEED, 0, 0, 0}, {},
       "Warning: CS_CMD_FAIL: Server command failed (improper configuration?)"},
      {"parameter of another type", {output("@xactstatus", "6"), status(0)}, {CS_SUCCEED, 0, 0, 0}, {},
       "Warning: invalid return parameter type 0"},
      {"parameter of another name", {output("@XactStatus", 6), status(0)}, {CS_SUCCEED, 0, 0, 0}, {},
       "Warning: invalid or duplicated return parameter name @XactStatus"},
      {"repeated parameter: the first counts", {output("@xactstatus", 6), output("@xactstatus", 7), status(0)},
       {CS_SUCCEED, 1, 6, 0}, {}, "Warning: invalid or duplicated return parameter name @xactstatus"},
      {"a parameter's second column is not looked at", {{CS_SUCCEED, CS_PARAM_RESULT, {"@xactstatus", "@$rpcerror"},
       {{6, 9}}}, status(0)}, {CS_SUCCEED, 1, 6, 0}, {}, nullptr},
      {"parameter of three rows", {{CS_SUCCEED, CS_PARAM_RESULT, {"@xactstatus"}, {{6}, {6}, {6}}}, status(0)},
       {CS_FAIL, -4, 0, -1}, joined({{"ct_cancel(null, cmd1, 6001)"}, cancelled}),
       "Error: Failure obtaining CS_PARAM_RESULT"},
  };
  // clang-format on
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    expect_outcome(row.reply, row.outcome);
    EXPECT_EQ(library().take_calls({"ct_cancel"}), row.cancels);
    EXPECT_EQ(take_log(), row.log != nullptr ? Lines{text("[xa__dtm_process_results] %s", row.log)} : Lines{});
  }
}

TEST_F(Rpc, failing_steps_end_the_request) {
  // clang-format off
  const struct {
    const char *operation;
    int32_t nth, forced, code;
    Lines log;
    bool sent;
  } rows[] = {
      {"ct_command", 1, CS_BUSY, CS_BUSY, {"[xa__dtm_rpc] Error: ct_command failed"}, false},
      {"ct_param", 1, CS_BUSY, CS_BUSY, {"[xa__dtm_rpc] Error: xa__dtm_rpc: ct_param failed"}, false},
      {"ct_param", 4, CS_BUSY, CS_BUSY, {}, false},
      {"ct_send", 1, CS_BUSY, CS_FAIL, {"[xa__dtm_rpc] Error: xa__dtm_rpc: ct_send failed"}, false},
      {"ct_fetch", 1, CS_ROW_FAIL, CS_ROW_FAIL,
       {"[xa__dtm_process_results] Warning: Failure obtaining CS_STATUS_RESULT"}, true},
  };
  // clang-format on
  for (const auto &row : rows) {
    SCOPED_TRACE(text("%s %d", row.operation, row.nth));
    fresh();
    conn.rpcret = conn.rpcstat = conn.transtat = 77;
    library().fail(row.operation, row.nth, row.forced);
    library().replies.push_back({status(0)});
    EXPECT_EQ(xa__dtm_rpc(&conn, DTM_BEGIN, &xid, 1), row.code);
    EXPECT_EQ(take_log(), row.log);
    EXPECT_EQ(conn.rpcret, row.sent ? -4 : 77) << "the fields of the last request stay when nothing was sent";
    EXPECT_EQ(conn.transtat, row.sent ? -1 : 77);
  }
}

TEST_F(Rpc, unknown_operations_and_unlisted_tm_types_send_nothing) {
  for (const int32_t code : {7, 0, -1, 14}) {
    EXPECT_EQ(xa__dtm_rpc(&conn, code, &xid, 1), CS_FAIL);
  }
  behave_as(4, 0);
  EXPECT_EQ(xa__dtm_rpc(&conn, DTM_BEGIN, &xid, 1), CS_FAIL);
  EXPECT_EQ(take_log(), Lines{"[xa__dtm_rpc] Error: Invalid TM Type 4"});
  EXPECT_EQ(library().take_requests(), Lines{});
}

}  // namespace
