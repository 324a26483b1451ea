// Fetching: one value, whole results, freeing and discarding.
#include <gtest/gtest.h>

#include <cstring>

#include "common_control.h"
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "record/xal_results.h"
#include "scene.h"

using namespace fake;

namespace {

class Fetch : public Scene {
 protected:
  // Sends a query and moves to its first result.
  void send_query(const Reply &reply) {
    library().standing["query"] = reply;
    ct_command(conn.xc_cmd, QLT_LANG_COMMAND, "query", QLT_NULLTERM, QLT_UNUSED);
    ct_send(conn.xc_cmd);
    int32_t type = 0;
    dtm_results_paused(conn.xc_cmd, &type);
    library().take_calls();
  }
  int32_t fetch_one(int32_t *value) {
    return xa__conn_fetch_1c1r(conn.xc_cmd, QLT_INT_TYPE, QLT_FMT_NONE, value, sizeof *value);
  }
  XA_RESULTS results{};
};

TEST_F(Fetch, one_value_waits_out_a_busy_client_library) {
  send_query({row(5)});
  library().fail("ct_fetch", 1, CS_BUSY);
  library().fail("ct_fetch", 2, CS_PENDING);
  library().fail("ct_fetch", 3, CS_ROW_FAIL);
  int32_t value = 0;
  EXPECT_EQ(fetch_one(&value), CS_SUCCEED);
  EXPECT_EQ(value, 5);
  EXPECT_EQ(library().take_calls({"ct_fetch"}).size(), 4U);
}

TEST_F(Fetch, whole_results_by_number_of_rows) {
  const struct {
    const char *name;
    int32_t wanted;
    std::vector<Value> values;
    int32_t code, read;
    bool cancelled;
  } cases[] = {
      {"no row", 2, {}, CS_END_DATA, 0, false},
      {"one row", 2, {11}, CS_END_DATA, 1, false},
      {"two rows", 2, {11, 12}, CS_END_DATA, 2, false},
      {"three rows", 2, {11, 12, 13}, CS_SUCCEED, 2, true},
      {"two rows, one wanted without a check", 0, {11, 12}, CS_SUCCEED, 1, false},
      {"negative number of rows", -5, {11}, CS_SUCCEED, 1, false},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    fresh();
    send_query({rows(one.values)});
    results.res_rows = one.wanted;
    EXPECT_EQ(xa__conn_fetch_data(conn.xc_cmd, &results), one.code);
    EXPECT_EQ(results.res_rowsread, one.read);
    for (int32_t index = 0; index < one.read; ++index) {
      int32_t value = 0;
      memcpy(&value, results.res_data[0] + 4 * index, 4);
      EXPECT_EQ(value, 11 + index);
      EXPECT_EQ(results.res_lens[0][index], 4);
    }
    EXPECT_EQ(library().take_calls({"ct_cancel"}), one.cancelled ? Lines{"ct_cancel(null, cmd1, 6001)"} : Lines{});
    EXPECT_EQ(xa__conn_free_results(&results), 1);
    EXPECT_EQ(xa__conn_free_results(&results), 1) << "freeing twice is harmless";
    EXPECT_EQ(results.res_rows, one.wanted);
    EXPECT_EQ(results.res_ncols, 0);
  }
}

TEST_F(Fetch, every_failing_step_or_allocation_of_two_columns_leaks_nothing) {
  const auto fetch = [&] {
    send_query({table({{1, "two"}})});
    results.res_rows = 2;
    const int32_t code = xa__conn_fetch_data(conn.xc_cmd, &results);
    xa__conn_free_results(&results);
    EXPECT_EQ(common_blocks_outstanding(), blocks_at_start);
    return code;
  };
  for (const char *operation : {"ct_res_info", "ct_describe", "ct_bind"}) {
    for (int32_t nth = 1; nth <= 2; ++nth) {
      fresh();
      library().fail(operation, nth, CS_BUSY);
      EXPECT_EQ(fetch(), CS_BUSY) << operation << nth;
    }
  }
  int32_t code = CS_MEM_ERROR;
  for (int32_t nth = 1; code == CS_MEM_ERROR && nth < 100; ++nth) {
    fresh();
    common_fail_allocation(nth, 0);
    code = fetch();
  }
  EXPECT_EQ(code, CS_END_DATA);
}

TEST_F(Fetch, discarding_cancels_what_has_data_and_holds_no_mutex) {
  library().standing["query"] = {status(1),       marker(CS_CMD_DONE),        row(2),
                                 output("@x", 3), marker(QLT_COMPUTE_RESULT), marker(QLT_MSG_RESULT)};
  ct_command(conn.xc_cmd, QLT_LANG_COMMAND, "query", QLT_NULLTERM, QLT_UNUSED);
  ct_send(conn.xc_cmd);
  library().take_calls();
  EXPECT_EQ(xa__conn_discard_results(conn.xc_cmd), CS_END_RESULTS);
  const std::string next = "ct_results(cmd1) [free]";
  const std::string cancel = "ct_cancel(null, cmd1, 6000) [free]";
  EXPECT_EQ(library().take_calls(), (Lines{next, cancel, next, next, cancel, next, cancel, next, cancel, next, next}));
}

TEST_F(Fetch, discarding_ends_with_the_code_that_broke_it_off) {
  library().fail("ct_results", 1, CS_CANCELED);
  EXPECT_EQ(xa__conn_discard_results(conn.xc_cmd), CS_CANCELED);
}

}  // namespace
