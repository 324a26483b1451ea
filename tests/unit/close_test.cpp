// Closing a server connection, and the clean-up of what application code left behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "connections/xal_conn.h"
#include "connections/xal_context.h"
#include "log/xal_log.h"
#include "record/xal_record.h"
#include "scene.h"

using namespace fake;

namespace {

class Close : public Scene {
 protected:
  int32_t close() {
    conn.xc_state = XCS_CLOSING;
    xc_hold(&conn);
    const int32_t ret = xc_close(&conn);
    EXPECT_EQ(conn.xc_holds, 0);
    EXPECT_EQ(conn.xc_state, XCS_CLOSED);
    EXPECT_EQ(conn.xc_conn, nullptr);
    return ret;
  }
  // With an unreadable status the command is left to the client library.
  void close_without_status() {
    QLT_COMMAND *left = conn.xc_cmd;
    EXPECT_EQ(close(), XA_OK);
    library().drop(left);
  }
};

TEST_F(Close, the_status_word_decides) {
  const std::string ask = "ct_con_props(con1, GET, 9143) [free]";
  const Lines drops{"ct_cmd_drop(cmd1) [free]", "xa_conn_free(con1) [free]"};
  const Lines closing{"ct_close(con1, normal) [free]"};
  const Lines end{"ct_con_drop(con1) [free]"};
  const Lines begin{"cs_obj_clear(con1)", ask};
  const struct {
    int32_t status;
    Lines calls;
  } cases[] = {
      {1, joined({begin, {"ct_cancel(con1, null, 6001) [free]", ask}, drops, closing, end})},
      {0x101, joined({begin, {"ct_cancel(con1, null, 6001) [free]", ask}, drops, closing, end})},
      {3, joined({begin, drops, {"ct_close(con1, 301) [free]"}, end})},
      {2, joined({begin, drops, end})},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.status);
    fresh();
    library().connection_status = one.status;
    EXPECT_EQ(close(), XA_OK);
    EXPECT_EQ(library().take_calls(), one.calls);
    EXPECT_EQ(take_log(), Lines{});
  }
}

TEST_F(Close, problems_are_logged_and_the_close_goes_on) {
  const std::string error = "[xc_close] Error: ";
  const std::string event = "[xc_close] Event trace: ";
  const struct {
    const char *operation;
    int32_t nth, code;
    Lines log;
  } cases[] = {
      {"ct_cancel", 1, CS_BUSY, {event + "unable to cancel results (CS_CANCEL_ALL), fffffffc"}},
      {"ct_cmd_drop", 1, CS_FAIL, {event + "unable to drop recovery command, 0"}},
      {"ct_cmd_drop", 2, CS_FAIL, {event + "unable to drop command, 0"}},
      {"ct_close", 1, CS_FAIL, {event + "close failure (NORMAL), 0"}},
      {"ct_con_drop", 1, CS_CANCELED, {error + "unable to drop connection, ffffff36"}},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(text("%s %d", one.operation, one.nth));
    fresh();
    conn.xc_recov_cmd = library().new_command(conn.xc_conn);
    library().fail(one.operation, one.nth, one.code);
    xacmn_log_tracing.store(XATR_EVENT);
    EXPECT_EQ(close(), XA_OK);
    EXPECT_EQ(conn.xc_recov_cmd, nullptr);
    EXPECT_EQ(take_log(), one.log);
    const Lines ends = library().take_calls({"ct_close", "ct_con_drop"});
    EXPECT_EQ(ends.size(), std::string("ct_close") == one.operation ? 3U : 2U)
        << "a normal close is forced when it fails";
    EXPECT_EQ(ends.back(), "ct_con_drop(con1) [free]");
  }
}

TEST_F(Close, without_a_status_only_the_handle_goes) {
  library().fail("ct_con_props", 1, CS_BUSY);
  close_without_status();
  EXPECT_EQ(library().take_calls(), (Lines{"cs_obj_clear(con1)", "ct_con_props(con1, GET, 9143) [free]",
                                           "xa_conn_free(con1) [free]", "ct_con_drop(con1) [free]"}));
  EXPECT_EQ(take_log(), Lines{"[xc_close] Error: unable to get connection status, fffffffc"});
  fresh();
  library().fail("ct_con_props", 2, CS_FAIL);
  close_without_status();
  EXPECT_EQ(library().take_calls({"ct_cancel", "ct_cmd_drop", "ct_close"}),
            Lines{"ct_cancel(con1, null, 6001) [free]"});
}

TEST_F(Close, a_closed_connection_is_left_alone) {
  EXPECT_EQ(close(), XA_OK);
  library().take_calls();
  conn.xc_state = XCS_UNUSED;
  EXPECT_EQ(xc_close(&conn), XA_OK);
  EXPECT_EQ(conn.xc_state, XCS_UNUSED);
  EXPECT_EQ(library().take_calls(), Lines{});
}

class Cursors : public Scene {
 protected:
  QLT_COMMAND *add(int32_t type, const std::string &name, const std::string &data = "") {
    QLT_COMMAND *command = library().new_command(conn.xc_conn);
    command->of_application = true;
    command->cursor_name = name;
    command->cursor_status = QLT_CURSOR_OPEN;
    const std::string &thread = library().identity;
    library().objects.push_back({type, "L1", name.c_str(), thread, conn.xc_conn, command, data});
    library().standing["cursor"] = library().standing["dynamic"] = {marker(CS_CMD_DONE)};
    return command;
  }
  // The data of a cursor that belongs to the statement.
  static std::string data_of(const std::string &statement, size_t size = 152) {
    std::string data(size, 'z');
    std::copy(statement.begin(), statement.end(), data.begin() + 16);
    const auto length = static_cast<int32_t>(statement.size());
    memcpy(data.data() + 148, &length, 4);
    return data;
  }
  int32_t clean() { return xc_obj_cln_curs(xl_context, &conn); }
};

TEST_F(Cursors, a_cursor_and_its_statement_go_in_order) {
  library().identity = "\x07";
  add(2, std::string("cur\0", 4), data_of("stmt"));
  add(3, "stmt");
  EXPECT_EQ(clean(), 1);
  EXPECT_EQ(library().take_calls(),
            (Lines{"cs_objects(GET, 2, \"L1\", any, thread 07, exists 0)", "ct_cmd_props(cmd2, GET, 9128)",
                   "ct_cmd_props(cmd2, GET, 9126)", "ct_cursor(cmd2, 706, none, none, 711)", "ct_send(cmd2)",
                   "ct_results(cmd2)", "ct_results(cmd2)", "ct_cmd_drop(cmd2)",
                   "cs_objects(GET, 3, \"L1\", \"stmt\", thread 07, exists 0)", "ct_dynamic(cmd3, 711, \"stmt\", none)",
                   "ct_send(cmd3)", "ct_results(cmd3)", "ct_results(cmd3)", "ct_cmd_drop(cmd3)",
                   "cs_objects(CLEAR, 3, \"L1\", \"stmt\", thread 07, exists 1)",
                   "cs_objects(CLEAR, 99, \"stmt\", \"cur\", thread 07, exists 1)",
                   "cs_objects(CLEAR, 2, \"L1\", \"cur\", thread 07, exists 1)",
                   "cs_objects(GET, 2, \"L1\", any, thread 07, exists 0)",
                   "cs_objects(CLEAR, 99, \"L1\", any, thread 07, exists 0)"}));
  EXPECT_TRUE(library().objects.empty());
  EXPECT_EQ(take_log(), Lines{});
}

TEST_F(Cursors, other_data_and_statement_lengths_name_no_statement) {
  std::vector<std::string> hostile = {"", data_of("stmt").substr(0, 151), data_of("stmt", 153)};
  for (const int32_t length : {-1, 133, INT32_MAX}) {
    hostile.push_back(data_of("stmt"));
    memcpy(hostile.back().data() + 148, &length, 4);
  }
  for (const std::string &data : hostile) {
    fresh();
    add(2, "cur", data);
    EXPECT_EQ(clean(), 1);
    EXPECT_EQ(library().take_calls({"ct_dynamic"}), Lines{});
  }
}

TEST_F(Cursors, the_cursor_status_decides_what_is_sent) {
  const struct {
    int32_t status, result;
    Lines calls;
  } cases[] = {
      {6, CS_SUCCEED, {"ct_cursor(cmd2, 706, none, none, 711)", "ct_send(cmd2)", "ct_cmd_drop(cmd2)"}},
      {4, CS_SUCCEED, {"ct_cursor(cmd2, 707, none, none, -99999)", "ct_send(cmd2)", "ct_cmd_drop(cmd2)"}},
      {1, CS_FAIL, {}},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.status);
    fresh();
    QLT_COMMAND *command = add(2, "cur");
    command->cursor_status = one.status;
    EXPECT_EQ(xc__obj_curs_dealloc(command), one.result);
    EXPECT_EQ(library().take_calls({"ct_cursor", "ct_send", "ct_cmd_drop"}), one.calls);
    if (one.calls.empty()) {
      library().drop(command);
    }
  }
}

TEST_F(Cursors, failures_are_reported_and_never_repeat_for_ever) {
  const std::string clean_up = "[xc_obj_cln_curs] Warning: ";
  const std::string dealloc = "[xc__obj_curs_dealloc] Error: ";
  const std::string statement = "[xa__obj_dynsql_drop] Warning: ";
  const struct {
    const char *operation;
    int32_t nth, code, result;
    std::string line;
    int32_t left;  // commands that stay the application's
  } cases[] = {
      {"ct_cmd_props", 1, CS_BUSY, 0, clean_up + "ct_cmd_props(CS_GET CS_CUR_NAME) failed, rc=-4", 2},
      {"ct_cmd_props", 2, CS_FAIL, 1, dealloc + "ct_cmd_props(CS_GET, CS_CUR_STATUS) failed, rc=0", 1},
      {"ct_cursor", 1, CS_FAIL, 1, dealloc + "ct_cursor(CS_CURSOR_CLOSE, CS_DEALLOC) failed, rc=0", 1},
      {"ct_send", 1, CS_FAIL, 1, dealloc + "ct_send failed, rc=0", 1},
      {"ct_cmd_drop", 1, CS_FAIL, 1, dealloc + "ct_cmd_drop failed, rc=0", 0},
      {"ct_dynamic", 1, CS_FAIL, 1, statement + "ct_dynamic failed, rc=0", 0},
      {"ct_send", 2, CS_BUSY, 1, statement + "ct_send failed, rc=-4", 0},
      {"ct_cmd_drop", 2, CS_FAIL, 1, statement + "ct_cmd_drop failed, rc=0", 0},
      {"cs_objects", 3, CS_FAIL, 1, "[xa__obj_cln_dynsql] Warning: cs_objects clear statement failed, rc=0", 0},
      {"cs_objects", 4, CS_FAIL, 1,
       "[xa__obj_cln_dynsql] Warning: cs_objects clear of dynamic statement mapping failed, rc=0", 0},
      {"cs_objects", 5, CS_FAIL, 0, clean_up + "cs_objects clear cursor failed, rc=0", 0},
      {"cs_objects", 7, CS_FAIL, 1, clean_up + "cs_objects clear of cursor table failed, rc=0", 0},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(text("%s %d", one.operation, one.nth));
    fresh();
    QLT_COMMAND *cursor = add(2, "cur", data_of("stmt"));
    QLT_COMMAND *prepared = add(3, "stmt");
    library().fail(one.operation, one.nth, one.code);
    EXPECT_EQ(clean(), one.result);
    EXPECT_EQ(take_log(), (Lines{one.line, ""}));
    EXPECT_EQ(library().live_commands(), 1 + one.left);
    if (one.left >= 1) {
      library().drop(cursor);
    }
    if (one.left == 2) {
      library().drop(prepared);
    }
  }
}

}  // namespace
