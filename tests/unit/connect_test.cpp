// Making connections: the readiness check, settings rows, message callbacks, and the order of one whole connect with
// every step failing in turn.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>

#include "common_control.h"
#include "config/xal_config.h"
#include "config/xal_settings.h"
#include "connections/xal_conn.h"
#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"
#include "scene.h"

using namespace fake;

namespace {

class Readiness : public Scene {};

TEST_F(Readiness, only_an_enabled_server_that_answers_the_probe_will_do) {
  const std::string query = "select value from master.dbo.sysconfigures \t\t\t where name = \"enable DTM\" ";
  const std::string probe = "status ffffffff_00_00_:L1 status 0 flags 0x0";
  const std::string error = "[xa__dtm_check] Error: ";
  const std::string unsure = error + "Unable to determine DTM configuration status";
  const std::string disabled = error + "Server bank is not configured for XA DTM use (sp_configure \"enable DTM\", 1 )";
  const std::string role = error + "Connection not usable for DTM. Check that user has dtm_tm_role on server";
  const std::string who = "[xa__dtm_check] Note: Connection check for user sa on server bank";
  const std::string values = "[xa__dtm_check] Note: Connection check return values: ctlib return, retstat: ";
  // clang-format off
  const struct {
    const char *name;
    Reply config;
    Reply probed;
    int32_t result;
    bool asks;
    Lines log;
  } cases[] = {
      {"ready", {row(1)}, {status(-2)}, XA_OK, true, {}},
      {"no row result", {marker(CS_CMD_DONE)}, {}, XAER_RMERR, false,
       {error + "No results returned for DTM configuration status, pre 12.0 ZDB?"}},
      {"no row", {rows({})}, {}, XAER_RMERR, false, {error + "No rows for returned for DTM configuration status"}},
      {"two columns", {table({{1, 2}})}, {}, XAER_RMERR, false,
       {"[xa__conn_fetch_1c1r] Error: xa__conn_fetch_1c1r: not one column (2)",
       error + "No rows for returned for DTM configuration status"}},
      {"status result", {status(1)}, {}, XAER_RMFAIL, false, {unsure}},
      {"command failed", {marker(CS_CMD_FAIL), row(1)}, {}, XAER_RMFAIL, false, {unsure}},
      {"broken off", {row(1), broken(CS_FAIL)}, {}, XAER_RMFAIL, false, {unsure}},
      {"two row results", {row(1), row(0)}, {status(-2)}, XA_OK, true,
       {"[xa__dtm_check] Warning: Multiple results returned for DTM configuration status"}},
      {"two rows, switched off", {rows({0, 1})}, {}, XAER_RMERR, false,
       {"[xa__dtm_check] Warning: Multiple rows returned for DTM configuration status", disabled}},
      {"probe branch exists twice", {row(1)}, {status(-3)}, XA_OK, true,
       {"[xa__dtm_check] Warning: Unexpected duplicate ID in connection check", who,
       values + "1 ([CS_SUCCEED]), dtm= -1, rpc = 1, status = -3"}},
      {"probe branch exists", {row(1)}, {status(0)}, XAER_RMFAIL, true,
       {error + "Unexpected return value  retstat: 0 ([XA_OK]) when checking connection for usability", who,
       values + "1 ([CS_SUCCEED]), dtm= 0, rpc = 0, status = 0"}},
      {"no role", {row(1)}, {output("@$rpcerror", 7)}, XAER_RMERR, true, {role, who,
       values + "0 ([CS_FAIL]), dtm= -1, rpc = -2, status = 7"}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    fresh();
    library().standing = {{"select value", one.config}, {"status", one.probed}};
    EXPECT_EQ(xa__dtm_check(&conn), one.result);
    EXPECT_EQ(library().take_requests(), one.asks ? (Lines{query, probe}) : Lines{query});
    EXPECT_EQ(take_log(), one.log);
    EXPECT_FALSE(conn.xc_cmd->pending);
  }
}

TEST_F(Readiness, a_probe_that_lost_the_connection_says_so) {
  library().standing["status"] = library().standing["status ffffffff_00_00_"] = {broken(CS_FAIL)};
  library().connection_status = QLT_CON_OPEN | QLT_CON_BROKEN;
  EXPECT_EQ(xa__dtm_check(&conn), XAER_RMFAIL);
  EXPECT_EQ(take_log().at(0), "[xa__dtm_check] Error: Connection failed after established. Unable to check");
}

class Callbacks : public Scene {
 protected:
  Callbacks() { xc_setup_ctdiagcb(conn.xc_conn); }  // known from the first connection of a process on

  static QLT_CLIENT_MESSAGE client_message(int32_t severity, const std::string &words, int32_t length = -1) {
    QLT_CLIENT_MESSAGE message{severity, 0x0A0B0C0D, {}, length};
    memset(message.msg_text, 'x', sizeof message.msg_text);  // texts need not end with a zero
    memcpy(message.msg_text, words.data(), words.size());
    message.msg_textlen = length >= 0 ? length : static_cast<int32_t>(words.size());
    return message;
  }
};

TEST_F(Callbacks, client_messages_are_taken_apart) {
  const struct {
    const char *name;
    QLT_CLIENT_MESSAGE message;
    const char *shown;
  } cases[] = {
      {"text", client_message(2, "refused"), "refused"},
      {"no text", client_message(2, ""), "No Client message"},
      {"1023 characters", client_message(2, "", 1023), nullptr},
      {"1024 characters", client_message(2, "", 1024), "Client message too long"},
  };
  for (auto one : cases) {
    EXPECT_EQ(xaclientmsg_cb(nullptr, nullptr, &one.message), CS_SUCCEED);
    const std::string shown = one.shown != nullptr ? one.shown : std::string(1023, 'x');
    EXPECT_EQ(take_log(),
              (Lines{std::string("[xaclientmsg_cb] Message: Nr=13, Sev=12, L=10, O=11; Msg: ") + shown, ""}))
        << one.name;
  }
  QLT_CLIENT_MESSAGE informational = client_message(0, "hello");
  EXPECT_EQ(xaclientmsg_cb(nullptr, nullptr, &informational), CS_SUCCEED);
  EXPECT_EQ(take_log(), Lines{});
}

TEST_F(Callbacks, server_messages_of_every_severity_show) {
  QLT_SERVER_MESSAGE message{5701, 0, "changed database", 16, "bank"};
  EXPECT_EQ(xaservermsg_cb(nullptr, nullptr, &message), CS_SUCCEED);
  message.msg_textlen = 0;
  xaservermsg_cb(nullptr, nullptr, &message);
  message.msg_textlen = 1024;
  xaservermsg_cb(nullptr, nullptr, &message);
  const std::string start = "[xaservermsg_cb] Message: Server bank, Sev=0, Nr=5701; Msg: ";
  EXPECT_EQ(take_log(), (Lines{start + "changed database", "", start + "No Server message", "",
                               start + "Server message too long", ""}));
}

TEST_F(Callbacks, what_the_connection_had_comes_back) {
  const auto diagnostic = reinterpret_cast<void *>(diagnostic_client_callback);
  const auto application = reinterpret_cast<void *>(application_client_callback);
  const Lines client_cleared{"ct_diag(con1, INIT, -99999)", "ct_diag(con1, CLEAR, 4700)"};
  const Lines server_cleared{"ct_diag(con1, INIT, -99999)", "ct_diag(con1, CLEAR, 4701)"};
  const Lines client_set{"ct_callback(con1, SET, 3, application's)"};
  const Lines server_set{"ct_callback(con1, SET, 2, application's)"};
  const struct {
    const char *name;
    void *client;
    void *server;
    Lines restored;
  } cases[] = {
      {"none", nullptr, nullptr, joined({client_cleared, server_cleared})},
      {"the diagnostic handling's", diagnostic, diagnostic, joined({client_cleared, server_cleared})},
      {"an application's client callback", application, nullptr, joined({server_cleared, client_set})},
      {"an application's server callback", nullptr, application, joined({client_cleared, server_set})},
      {"both", application, application, joined({client_set, server_set})},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    fresh();
    conn.xc_conn->client_callback = one.client;
    conn.xc_conn->server_callback = one.server;
    EXPECT_EQ(xc_install_callbacks(&conn), CS_SUCCEED);
    EXPECT_EQ(library().take_calls(), (Lines{"ct_callback(con1, GET, 3)", "ct_callback(con1, GET, 2)",
                                             "ct_callback(con1, SET, 3, other)", "ct_callback(con1, SET, 2, other)"}));
    EXPECT_EQ(xc_deinstall_callbacks(&conn), CS_SUCCEED);
    EXPECT_EQ(library().take_calls(), one.restored);
    EXPECT_EQ(conn.xc_conn->client_callback, one.client != nullptr ? one.client : diagnostic);
    EXPECT_EQ(conn.xc_conn->server_callback, one.server != nullptr ? one.server : diagnostic);
    EXPECT_EQ(conn.xc_climsg_cb, nullptr);
    EXPECT_EQ(conn.xc_srvmsg_cb, nullptr);
  }
  EXPECT_EQ(xc_deinstall_callbacks(nullptr), CS_SUCCEED);
}

class Connect : public Scene {
 protected:
  Connect() {
    xc_setup_ctdiagcb(conn.xc_conn);
    start_over();
  }

  void start_over() {
    fresh();
    drop_handles();
    library().reset();
    behave_as(XATM_TUX, XAPF_CFG_OPTIONAL);
  }

  int32_t connect() {
    const int32_t ret = xc_connect(&conn);
    if (ret != XA_OK) {
      conn.xc_conn = nullptr;
      conn.xc_cmd = nullptr;
    }
    return ret;
  }

  // The calls but for the reading of replies.
  static Lines settled_calls() {
    static const std::regex reading("^ct_(results|res_info|describe|bind|fetch|param)\\(");
    Lines calls = library().take_calls();
    std::erase_if(calls, [](const std::string &line) { return std::regex_search(line, reading); });
    return calls;
  }

  const Lines defaults{"ct_con_alloc()", "ct_capability(con1, SET, type 2, 34, 1)"};
  const Lines forced{"ct_con_props(con1, SET, 9110, 8111, -99999)", "ct_con_props(con1, SET, 9121, 1, -99999)",
                     "ct_con_props(con1, SET, 9123, 1, -99999)", "ct_config(SET, 9142, 0, -99999)",
                     "ct_con_props(con1, SET, 9196, 1, -99999)"};
  const Lines login{"ct_callback(con1, GET, 3)",
                    "ct_callback(con1, GET, 2)",
                    "ct_callback(con1, SET, 3, other)",
                    "ct_callback(con1, SET, 2, other)",
                    "cs_ctx_global(1100)",
                    "ct_con_props(con1, SET, 9102, \"L1\", -9)",
                    "ct_con_props(con1, SET, 9100, \"sa\", -9)",
                    "ct_con_props(con1, SET, 9101, \"pw\", -9)",
                    "ct_connect(con1, \"bank\")",
                    "xa_conn_init(con1)",
                    "ct_con_props(con1, SET, 9190, 5000, -99999)"};
  const Lines options{"ct_options(con1, SET, 5034, 1, -99999)", "ct_options(con1, SET, 5017, 0, -99999)",
                      "ct_options(con1, SET, 5016, 1, -99999)", "ct_options(con1, SET, 5015, 0, -99999)",
                      "ct_options(con1, SET, 5008, 3, -99999)", "ct_options(con1, SET, 5025, 0, -99999)",
                      "ct_options(con1, SET, 5026, 1, -99999)"};
  const Lines last{"ct_con_props(con1, SET, 9196, 0, -99999)",
                   "ct_cmd_alloc(con1)",
                   "ct_command(cmd1, 148, \"select value from master.dbo.sysconfigures \t\t\t where name = \"enable "
                   "DTM\" \", -99999)",
                   "ct_send(cmd1)",
                   "ct_command(cmd1, 149, \"$statusTrvDtmXact\", 189)",
                   "ct_send(cmd1)",
                   "ct_diag(con1, INIT, -99999)",
                   "ct_diag(con1, CLEAR, 4700)",
                   "ct_diag(con1, INIT, -99999)",
                   "ct_diag(con1, CLEAR, 4701)"};
};

TEST_F(Connect, configured_settings_come_between_defaults_and_forced_ones) {
  const std::string path = file_with(
      "[xa]\nlrm=L1\noptions=CS_OPT_ISOLATION=1\ncapabilities=CS_DATA_NOBIN=1\nproperties=CS_PACKETSIZE=2048\n");
  strcpy(xa_config_file, path.c_str());
  EXPECT_EQ(connect(), XA_OK);
  const Lines before{"ct_con_props(con1, SET, 9107, 2048, -99999)", "ct_capability(con1, SET, type 2, 10, 1)"};
  const Lines after{"ct_options(con1, SET, 5008, 1, -99999)"};
  EXPECT_EQ(settled_calls(), joined({defaults, before, forced, login, options, after, last}));
  EXPECT_EQ(take_log(), Lines{});
}

TEST_F(Connect, empty_user_and_password_are_not_set) {
  lrm.lrm_user[0] = lrm.lrm_password[0] = '\0';
  EXPECT_EQ(connect(), XA_OK);
  EXPECT_EQ(library().take_calls({"ct_con_props(con1, SET, 910"}), Lines{"ct_con_props(con1, SET, 9102, \"L1\", -9)"});
}

TEST_F(Connect, every_step_that_fails_takes_back_what_was_made) {
  const Lines dropped{"ct_con_drop(con1)"};
  const Lines closed{"ct_close(con1, 301)", "ct_con_drop(con1)"};
  const Lines freed{"xa_conn_free(con1)", "ct_close(con1, 301)", "ct_con_drop(con1)"};
  const Lines all{"xa_conn_free(con1)", "ct_close(con1, 301)", "ct_cmd_drop(cmd1)", "ct_con_drop(con1)"};
  const std::string setting = "[xc_set_values] Error: ";
  const std::string refused = "[xc_connect] Error: Connect(bank) failed, rc=";
  const std::string unable = ", Unable to determine DTM configuration status";
  const std::string who = "[xa__conn_connect] ";
  const std::string login_error = who + "Error: xa_conn_connect: failed to set ";
  const std::string check = "[xa__dtm_check] Error: ";
  // clang-format off
  const struct {
    const char *operation;
    int32_t nth, forced_code, result;
    Lines undone;
    Lines log;
  } cases[] = {
      {"ct_con_alloc", 1, 0, XAER_RMERR, {}, {"[xc_connect] Error: ct_con_alloc() failed!"}},
      {"ct_capability", 1, 0, XA_OK, {}, {}},
      {"ct_con_props", 1, 0, XAER_RMERR, dropped, {setting + "ct_con_props(CS_SET, CS_NETIO) failed!", ""}},
      {"ct_con_props", 2, 0, XA_OK, {}, {}},
      {"ct_config", 1, 0, XA_OK, {}, {}},
      {"ct_callback", 1, 0, XA_OK, {}, {}},
      {"cs_ctx_global", 1, -4, XAER_RMERR, dropped, {refused + "-4"}},
      {"ct_con_props", 5, 0, XA_OK, {}, {who + "Message: xa_conn_connect: failed to set application name"}},
      {"ct_con_props", 6, 0, XAER_RMERR, dropped, {login_error + "user name", "", refused + "0"}},
      {"ct_con_props", 7, -4, XAER_RMERR, dropped, {login_error + "password", refused + "-4"}},
      {"ct_connect", 1, -4, XAER_RMERR, dropped, {refused + "-4"}},
      {"ct_connect", 1, 0, XA_OK, {}, {who + "Warning: Connected without failover to serv: bank, user: sa"}},
      {"ct_con_props", 8, 0, XA_OK, {},
       {"[xc_connect] Error: unable to condition for abort, CT Library hangs may occur"}},
      {"ct_options", 1, 0, XA_OK, {}, {}},
      {"ct_options", 5, 0, XAER_RMERR, freed, {setting + "ct_options(CS_SET, CS_OPT_ISOLATION) failed!", ""}},
      {"ct_options", 7, 0, XAER_RMERR, freed, {setting + "ct_options(CS_SET, CS_OPT_CURCLOSEONXACT) failed!", ""}},
      {"ct_con_props", 9, 0, XA_OK, {}, {}},
      {"ct_cmd_alloc", 1, 0, XAER_RMERR, freed, {"[xc_connect] Error: ct_cmd_alloc() failed!"}},
      {"ct_command", 1, 0, XAER_INVAL, all, {check + "ct_command returned return, retstat: 0 ([CS_FAIL])" + unable}},
      {"ct_send", 1, -4, XAER_INVAL, all, {check + "ct_send returned return, retstat: -4 ([CS_BUSY])" + unable}},
      {"ct_diag", 1, 0, XA_OK, {}, {}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(text("%s %d", one.operation, one.nth));
    start_over();
    library().fail(one.operation, one.nth, one.forced_code);
    EXPECT_EQ(connect(), one.result);
    EXPECT_EQ(library().take_calls({"xa_conn_free", "ct_close", "ct_cmd_drop", "ct_con_drop"}), one.undone);
    EXPECT_EQ(take_log(), one.log);
    EXPECT_EQ(library().live_connections(), one.result == XA_OK ? 1 : 0);
    EXPECT_EQ(library().live_commands(), one.result == XA_OK ? 1 : 0);
  }
  start_over();
  fail_operation("xa_conn_init");
  EXPECT_EQ(connect(), XAER_RMERR);
  EXPECT_EQ(library().take_calls({"xa_conn_free", "ct_close", "ct_con_drop"}), closed);
  start_over();
  behave_as(XATM_TUX, 0);  // no configuration, and it is not optional
  EXPECT_EQ(connect(), XAER_RMERR);
  EXPECT_EQ(library().take_calls(), (Lines{"ct_con_alloc()", "ct_con_drop(con1)"}));
}

TEST_F(Connect, the_password_reaches_no_line) {
  strcpy(lrm.lrm_password, "hidden");
  xacmn_log_tracing.store(0xFFFFFFFF);
  library().fail("ct_connect", 1);
  EXPECT_EQ(connect(), XA_OK);
  const Lines log = take_log();
  EXPECT_GT(log.size(), 50U);
  for (const std::string &line : log) {
    EXPECT_EQ(line.find("hidden"), std::string::npos) << line;
  }
}

}  // namespace
