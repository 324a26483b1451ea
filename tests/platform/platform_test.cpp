/*
 * platform_test.cpp - the client library and the embedded server, through their public interfaces.
 *
 * A Client is one logged-in connection with one command. Every test has a server of its own, "bank", with a user "sa"
 * that may use DTM and a user "guest" that may not; afterwards no handle may be left.
 */
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "quillet.h"
#include "quillet_control.h"
#include "zdb_control.h"

namespace {

constexpr const char *server = "bank";

struct Received {
  std::vector<int32_t> types; /* as ct_results told them */
  std::vector<int32_t> statuses;
  std::map<std::string, int32_t> outputs;
  std::vector<std::string> rows;
  int32_t end = 0; /* what ct_results ended with */
};

struct ServerOperation {
  const char *procedure;
  int32_t flags;
  int32_t wanted;
};

const std::map<std::string, ServerOperation> operations = {
    {"begin", {"$beginTrvDtmXact", 0x10, 1}},
    {"attach", {"$attachTrvDtmXact", 0, 1}},
    {"try_attach", {"$attachTrvDtmXact", 0x2, 1}},
    {"attach_abort", {"$attachTrvDtmXact", 0x2, 6}},
    {"end", {"$detachTrvDtmXact", 0, 2}},
    {"suspend", {"$detachTrvDtmXact", 0, 3}},
    {"migrate", {"$detachTrvDtmXact", 0, 4}},
    {"detach", {"$detachTrvDtmXact", 0x4, 2}},
    {"status", {"$statusTrvDtmXact", 0, 0}},
    {"forget", {"$forgetTrvDtmXact", 0, 102}},
    {"prepare", {"$prepareTrvDtmXact", 0, 7}},
    {"forced_prepare", {"$prepareTrvDtmXact", 0x6000, 7}},
    {"commit", {"$commitTrvDtmXact", 0, 100}},
    {"commit1", {"$commitTrvDtmXact", 0x20, 100}},
    {"forced_commit1", {"$commitTrvDtmXact", 0x6020, 100}},
    {"rollback", {"$rollbackTrvDtmXact", 0, 101}},
    {"forced_rollback", {"$rollbackTrvDtmXact", 0x6000, 101}},
    {"abort", {"$rollbackTrvDtmXact", 0x100, 101}},
    {"bad_flags", {"$commitTrvDtmXact", 0x40, 100}},
};

CS_CONTEXT *context() {
  CS_CONTEXT *made = nullptr;
  EXPECT_EQ(cs_ctx_global(QLT_VERSION, &made), CS_SUCCEED);
  EXPECT_EQ(ct_init(made, QLT_VERSION), CS_SUCCEED);
  return made;
}

QLT_FORMAT input(const char *name, int32_t type) {
  QLT_FORMAT format{};
  std::snprintf(format.fmt_name, sizeof format.fmt_name, "%s", name);
  format.fmt_namelen = QLT_NULLTERM;
  format.fmt_datatype = type;
  format.fmt_maxlen = type == QLT_CHAR_TYPE ? 255 : QLT_UNUSED;
  format.fmt_status = QLT_INPUT_PARAM;
  return format;
}

class Client {
 public:
  explicit Client(const char *user = "sa") {
    EXPECT_EQ(ct_con_alloc(context(), &connection), CS_SUCCEED);
    set_text(QLT_PROP_USER, user);
    set_text(QLT_PROP_PASSWORD, "pw");
  }
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;
  ~Client() { EXPECT_EQ(ct_con_drop(connection), CS_SUCCEED); }

  Client &open() {
    EXPECT_EQ(ct_connect(connection, server, QLT_NULLTERM), CS_SUCCEED);
    EXPECT_EQ(ct_cmd_alloc(connection, &command), CS_SUCCEED);
    return *this;
  }
  void set_text(int32_t property, const char *text) const {
    std::string copy = text;
    EXPECT_EQ(ct_con_props(connection, CS_SET, property, copy.data(), QLT_NULLTERM, nullptr), CS_SUCCEED);
  }
  int32_t set_integer(int32_t property, int32_t value) const {
    return ct_con_props(connection, CS_SET, property, &value, QLT_UNUSED, nullptr);
  }
  int32_t status() const {
    int32_t word = -1;
    EXPECT_EQ(ct_con_props(connection, CS_GET, QLT_PROP_CON_STATUS, &word, QLT_UNUSED, nullptr), CS_SUCCEED);
    return word;
  }
  void initiate(const std::string &name, const char *branch) const {
    const ServerOperation &operation = operations.at(name);
    EXPECT_EQ(ct_command(command, QLT_RPC_COMMAND, operation.procedure, QLT_NULLTERM, QLT_NO_RECOMPILE), CS_SUCCEED);
    const QLT_FORMAT name_format = input("@name", QLT_CHAR_TYPE);
    const QLT_FORMAT status_format = input("@status", QLT_INT_TYPE);
    const QLT_FORMAT flags_format = input("@flags", QLT_INT_TYPE);
    EXPECT_EQ(ct_param(command, &name_format, branch, QLT_NULLTERM, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_param(command, &status_format, &operation.wanted, 4, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_param(command, &flags_format, &operation.flags, 4, QLT_UNUSED), CS_SUCCEED);
  }
  Received call(const std::string &name, const char *branch = "b1") const {
    initiate(name, branch);
    EXPECT_EQ(ct_send(command), CS_SUCCEED);
    return receive();
  }
  Received query(const std::string &text) const {
    EXPECT_EQ(ct_command(command, QLT_LANG_COMMAND, text.c_str(), QLT_NULLTERM, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_send(command), CS_SUCCEED);
    return receive();
  }
  void send_scan() const {
    const QLT_FORMAT format = input("@query_type", QLT_CHAR_TYPE);
    EXPECT_EQ(ct_command(command, QLT_RPC_COMMAND, "sp_transactions", QLT_NULLTERM, QLT_NO_RECOMPILE), CS_SUCCEED);
    EXPECT_EQ(ct_param(command, &format, "xa_recover", 10, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_send(command), CS_SUCCEED);
  }
  Received receive() const {
    Received received;
    int32_t type = 0;
    while ((received.end = ct_results(command, &type)) == CS_SUCCEED) {
      received.types.push_back(type);
      if (type == CS_ROW_RESULT || type == CS_STATUS_RESULT || type == CS_PARAM_RESULT) {
        read_result(type, received);
      }
    }
    return received;
  }

  QLT_CONNECTION *connection = nullptr;
  QLT_COMMAND *command = nullptr;

 private:
  void read_result(int32_t type, Received &received) const {
    QLT_FORMAT format{};
    EXPECT_EQ(ct_describe(command, 1, &format), CS_SUCCEED);
    const std::string name = format.fmt_name;
    format.fmt_datatype = QLT_CHAR_TYPE;
    format.fmt_format = QLT_FMT_NULLTERM;
    format.fmt_maxlen = 256;
    char text[256];
    EXPECT_EQ(ct_bind(command, 1, &format, text, nullptr, nullptr), CS_SUCCEED);
    int32_t rows = 0;
    int32_t code = 0;
    while ((code = ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &rows)) == CS_SUCCEED) {
      if (type == CS_STATUS_RESULT) {
        received.statuses.push_back(std::stoi(text));
      } else if (type == CS_PARAM_RESULT) {
        received.outputs[name] = std::stoi(text);
      } else {
        received.rows.emplace_back(text);
      }
    }
    EXPECT_EQ(code, CS_END_DATA);
  }
};

class Platform : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(zdb_create_server(server), 1);
    ASSERT_EQ(zdb_add_user(server, "sa", "pw", 1), 1);
    ASSERT_EQ(zdb_add_user(server, "guest", "pw", 0), 1);
  }
  void TearDown() override {
    EXPECT_EQ(zdb_drop_server(server), 1);
    EXPECT_EQ(qlt_live_connections(), 0);
    EXPECT_EQ(qlt_live_commands(), 0);
    EXPECT_EQ(qlt_live_objects(), 0);
    EXPECT_EQ(qlt_mutexes_held(), 0);
    qlt_set_call_hook(nullptr, nullptr);
    qlt_set_context_callbacks(nullptr, nullptr);
    qlt_fail_call(0, 0);
  }
};

void script(const char *procedure, ZDB_REPLY_KIND kind, int32_t value, const char *text = nullptr, int32_t skip = 0,
            int32_t times = 1) {
  const ZDB_SCRIPT entry{procedure, skip, times, kind, value, text};
  ASSERT_EQ(zdb_add_script(server, &entry), 1);
}

using Codes = std::vector<int32_t>;

TEST_F(Platform, branches_follow_the_rules) {
  /* Steps "session operation answer"; session x breaks off or forces an outcome instead. */
  const struct {
    const char *name;
    const char *steps;
    int32_t state;
  } cases[] = {
      {"two phases", "a begin 0 a end 1 b try_attach 2 b detach 1 b prepare 2 a commit 7 a status -2", ZDB_UNKNOWN},
      {"one phase", "a begin 0 a commit1 1", ZDB_UNKNOWN},
      {"begun twice", "a begin 0 a begin -3 b begin -3 a attach 1", ZDB_ATTACHED},
      {"held elsewhere", "a begin 0 b attach -4 b end -4 b prepare -4 b commit1 -4 b status 1", ZDB_ATTACHED},
      {"rolled back elsewhere", "a begin 0 b rollback -128 b forced_rollback -1 b abort 1 a end -2", ZDB_UNKNOWN},
      {"joined in turn", "a begin 0 a end 1 b attach 2 a attach -4 b end 1 a end 2", ZDB_ENDED},
      {"suspended is like ended", "a begin 0 a suspend 1 b status 3 b prepare 3", ZDB_PREPARED},
      {"migrated needs an attach", "a begin 0 a migrate 1 b prepare -4 b commit1 -4 b attach 4 b end 1", ZDB_ENDED},
      {"migrated is not forced", "a begin 0 a migrate 1 b forced_prepare -4 b forced_commit1 -4", ZDB_MIGRATED},
      {"aborted then prepared", "a begin 0 x break 0 b status 6 b end 6 b prepare -2 b status -2", ZDB_UNKNOWN},
      {"aborted then attached", "a begin 0 x break 0 b attach 6 b commit1 -4 b try_attach 6", ZDB_UNKNOWN},
      {"attached to be rolled back", "a begin 0 a end 1 b attach_abort 2 b rollback 6", ZDB_UNKNOWN},
      {"prepared stays prepared", "a begin 0 a prepare 1 x break 0 b attach 7 b prepare -4 b commit1 -4", ZDB_PREPARED},
      {"prepared rolled back", "a begin 0 a prepare 1 b attach_abort 7 b rollback 6", ZDB_UNKNOWN},
      {"forced by the operator", "a begin 0 a prepare 1 x commit 0 a commit -2 a rollback -2 a begin -3 a status -2",
       ZDB_HEUR_COMMITTED},
      {"forgotten", "a begin 0 a prepare 1 a forget -4 x rollback 0 a forget 0", ZDB_UNKNOWN},
      {"not prepared", "a begin 0 a commit -4 a end 1 a commit -4 a forget -4", ZDB_ENDED},
      {"unknown", "a attach -2 a end -2 a prepare -2 a commit -2 a abort -2 a forget -2 a bad_flags -5", ZDB_UNKNOWN},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(test.name);
    Client second;
    second.open();
    auto first = std::make_unique<Client>();
    first->open();
    std::istringstream steps(test.steps);
    std::string session;
    std::string step;
    int32_t answer = 0;
    while (steps >> session >> step >> answer) {
      SCOPED_TRACE(testing::Message() << session << " " << step);
      if (step == "break") {
        first.reset();
      } else if (session == "x") {
        EXPECT_EQ(zdb_force(server, "b1", step == "commit" ? 1 : 0), 1);
      } else {
        const Received received = (session == "a" ? *first : second).call(step);
        EXPECT_EQ(received.statuses, Codes{answer});
        EXPECT_EQ(received.types, (Codes{CS_STATUS_RESULT, CS_CMD_DONE}));
      }
    }
    EXPECT_EQ(zdb_branch_state(server, "b1"), test.state);
    second.call("abort");
    zdb_force(server, "b1", 1);
    second.call("forget");
    EXPECT_EQ(zdb_branch_count(server), 0);
  }
}

TEST_F(Platform, catalog_answers_queries_and_scan) {
  Client client;
  client.open();
  const std::string readiness = "select value from master.dbo.sysconfigures \t\t\t where name = \"enable DTM\" ";
  EXPECT_EQ(client.query(readiness).rows, std::vector<std::string>{"1"});
  for (const char *branch : {"z_first", "a_second", "m_ended"}) {
    client.call("begin", branch);
    client.call(branch[0] == 'm' ? "end" : "prepare", branch);
  }
  ASSERT_EQ(zdb_plant_prepared(server, "k_third"), 1);
  ASSERT_EQ(zdb_force(server, "a_second", 0), 1);
  const std::string state = "select state from master..systransactions where xactname = ";
  EXPECT_EQ(client.query(state + "\"a_second\" ").rows, std::vector<std::string>{"65549"});
  const Received unknown = client.query(state + "\"nobody\" ");
  EXPECT_EQ(unknown.types, (Codes{CS_ROW_RESULT, CS_CMD_SUCCEED, CS_CMD_DONE}));
  EXPECT_TRUE(unknown.rows.empty());
  EXPECT_EQ(client.query("drop everything").types, (Codes{CS_CMD_FAIL, CS_CMD_DONE}));
  client.send_scan();
  const Received scan = client.receive();
  EXPECT_EQ(scan.rows, (std::vector<std::string>{"z_first", "a_second", "k_third"}));
  EXPECT_EQ(scan.statuses, Codes{0});
  EXPECT_EQ(scan.types, (Codes{CS_ROW_RESULT, CS_STATUS_RESULT, CS_CMD_DONE}));
  zdb_set_dtm(server, ZDB_NO_CONFIG_ROW);
  EXPECT_TRUE(client.query(readiness).rows.empty());
}

TEST_F(Platform, dtm_needs_role_and_switch) {
  Client guest("guest");
  guest.open();
  for (const bool switched_off : {false, true}) {
    Client admin;
    admin.open();
    zdb_set_dtm(server, switched_off ? 0 : 1);
    const Client &refused = switched_off ? admin : guest;
    const Received received = refused.call("status");
    EXPECT_TRUE(received.statuses.empty());
    EXPECT_GT(received.outputs.at("@$rpcerror"), 0);
    refused.send_scan();
    EXPECT_EQ(refused.receive().types, (Codes{CS_CMD_FAIL, CS_CMD_DONE}));
  }
}

TEST_F(Platform, logins_are_checked) {
  const struct {
    const char *name, *target, *user;
    int32_t failover, expected;
  } cases[] = {{"unknown server", "nowhere", "sa", 0, CS_FAIL},
               {"unknown user", server, "nobody", 0, CS_FAIL},
               {"failover refused", server, "sa", 1, CS_FAIL},
               {"without failover", server, "sa", 0, CS_SUCCEED}};
  zdb_refuse_failover_logins(server, 1);
  for (const auto &test : cases) {
    SCOPED_TRACE(test.name);
    Client client(test.user);
    ASSERT_EQ(ct_diag(client.connection, CS_INIT, QLT_UNUSED, QLT_UNUSED, nullptr), CS_SUCCEED);
    EXPECT_EQ(client.set_integer(QLT_PROP_FAILOVER, test.failover), CS_SUCCEED);
    EXPECT_EQ(ct_connect(client.connection, test.target, QLT_NULLTERM), test.expected);
    EXPECT_EQ(client.status(), test.expected == CS_SUCCEED ? QLT_CON_OPEN : 0);
    QLT_CLIENT_MESSAGE told{};
    const int32_t stored = ct_diag(client.connection, CS_GET, QLT_CLIENT_MESSAGES, 1, &told);
    EXPECT_EQ(stored, test.expected == CS_SUCCEED ? CS_NOMSG : CS_SUCCEED);
    EXPECT_EQ(ct_diag(client.connection, QLT_CLEAR, QLT_CLIENT_MESSAGES, QLT_UNUSED, nullptr), CS_SUCCEED);
    EXPECT_EQ(ct_diag(client.connection, CS_GET, QLT_CLIENT_MESSAGES, 1, &told), CS_NOMSG);
  }
}

TEST_F(Platform, settings_know_their_codes_ranges_and_time) {
  Client client;
  EXPECT_EQ(client.set_integer(9107, 7), CS_FAIL);
  EXPECT_EQ(client.set_integer(9999, 1), CS_FAIL);
  EXPECT_EQ(client.set_integer(QLT_PROP_CON_STATUS, 1), CS_FAIL);
  int32_t value = 3;
  EXPECT_EQ(ct_options(client.connection, CS_SET, 5008, &value, QLT_UNUSED, nullptr), CS_FAIL) << "not logged in";
  client.open();
  EXPECT_EQ(ct_options(client.connection, CS_SET, 5008, &value, QLT_UNUSED, nullptr), CS_SUCCEED);
  value = 0;
  EXPECT_EQ(ct_options(client.connection, CS_GET, 5008, &value, QLT_UNUSED, nullptr), CS_SUCCEED);
  EXPECT_EQ(value, 3);
  EXPECT_EQ(ct_capability(client.connection, CS_SET, QLT_CAPABILITY_RESPONSE, 34, &value), CS_FAIL) << "logged in";
}

TEST_F(Platform, rows_are_bound_in_arrays_and_converted) {
  for (const char *branch : {"one", "two", "three"}) {
    ASSERT_EQ(zdb_plant_prepared(server, branch), 1);
  }
  Client client;
  client.open();
  script("*", ZDB_REPLY_FETCH_CODE, CS_BUSY);
  script("*", ZDB_REPLY_FETCH_CODE, CS_PENDING);
  client.send_scan();
  int32_t type = 0;
  ASSERT_EQ(ct_results(client.command, &type), CS_SUCCEED);
  QLT_FORMAT format{};
  ASSERT_EQ(ct_describe(client.command, 1, &format), CS_SUCCEED);
  EXPECT_EQ(format.fmt_datatype, QLT_CHAR_TYPE);
  EXPECT_EQ(format.fmt_maxlen, 255);
  format.fmt_format = QLT_FMT_NULLTERM;
  format.fmt_maxlen = 5;
  format.fmt_count = 2;
  char texts[2][5];
  int32_t lengths[2];
  int32_t indicators[2];
  ASSERT_EQ(ct_bind(client.command, 1, &format, texts, lengths, indicators), CS_SUCCEED);
  const auto fetch = [&](int32_t *rows) { return ct_fetch(client.command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, rows); };
  int32_t rows = -1;
  EXPECT_EQ(fetch(&rows), CS_BUSY);
  EXPECT_EQ(fetch(&rows), CS_PENDING);
  EXPECT_EQ(fetch(&rows), CS_SUCCEED);
  EXPECT_EQ(rows, 2);
  EXPECT_STREQ(texts[0], "one");
  EXPECT_STREQ(texts[1], "two");
  EXPECT_EQ(lengths[1], 3);
  EXPECT_EQ(indicators[1], 0);
  EXPECT_EQ(fetch(&rows), CS_ROW_FAIL) << "three does not fit";
  EXPECT_STREQ(texts[0], "thre");
  EXPECT_EQ(fetch(&rows), CS_END_DATA);
  EXPECT_EQ(rows, 0);
}

TEST_F(Platform, results_are_cancelled_one_or_all) {
  ASSERT_EQ(zdb_plant_prepared(server, "b2"), 1);
  Client client;
  client.open();
  QLT_COMMAND *other = nullptr;
  ASSERT_EQ(ct_cmd_alloc(client.connection, &other), CS_SUCCEED);
  int32_t type = 0;
  client.send_scan();
  EXPECT_EQ(ct_command(client.command, QLT_LANG_COMMAND, "x", 1, QLT_UNUSED), CS_FAIL) << "results are pending";
  EXPECT_EQ(ct_close(client.connection, QLT_UNUSED), CS_FAIL) << "results are pending";
  ASSERT_EQ(ct_results(client.command, &type), CS_SUCCEED);
  EXPECT_EQ(ct_cancel(nullptr, client.command, QLT_CANCEL_CURRENT), CS_SUCCEED);
  EXPECT_EQ(client.receive().types, (Codes{CS_STATUS_RESULT, CS_CMD_DONE}));
  client.send_scan();
  ASSERT_EQ(ct_results(client.command, &type), CS_SUCCEED);
  ASSERT_EQ(ct_results(client.command, &type), CS_SUCCEED);
  EXPECT_EQ(type, CS_STATUS_RESULT) << "unread rows do not hold the next result back";
  EXPECT_EQ(ct_cancel(client.connection, nullptr, CS_CANCEL_ALL), CS_SUCCEED);
  EXPECT_EQ(ct_results(client.command, &type), CS_FAIL);
  EXPECT_EQ(ct_send(client.command), CS_FAIL) << "nothing initiated";
  client.initiate("begin", "b3");
  client.initiate("status", "b3");
  EXPECT_EQ(ct_send(client.command), CS_SUCCEED);
  EXPECT_EQ(client.receive().statuses, Codes{-2}) << "the unsent begin was replaced";
  EXPECT_EQ(ct_close(client.connection, QLT_UNUSED), CS_SUCCEED);
}

TEST_F(Platform, broken_sessions_are_noticed_at_the_next_exchange) {
  const struct {
    const char *name;
    bool by_script;
    ZDB_REPLY_KIND kind;
    int32_t sent;
    int32_t state;
  } cases[] = {{"by the operator", false, ZDB_REPLY_STATUS, CS_FAIL, ZDB_UNKNOWN},
               {"before the work", true, ZDB_REPLY_DROP_BEFORE, CS_SUCCEED, ZDB_UNKNOWN},
               {"after the work", true, ZDB_REPLY_DROP_AFTER, CS_SUCCEED, ZDB_ABORT_ONLY}};
  for (const auto &test : cases) {
    SCOPED_TRACE(test.name);
    Client client;
    client.open();
    client.initiate("begin", "b1");
    if (test.by_script) {
      script("$beginTrvDtmXact", test.kind, 0);
    } else {
      EXPECT_EQ(zdb_break_sessions(server, "sa"), 1);
      EXPECT_EQ(client.status(), 1) << "not noticed yet";
    }
    EXPECT_EQ(ct_send(client.command), test.sent);
    EXPECT_EQ(client.receive().end, CS_FAIL);
    EXPECT_EQ(client.status(), 3);
    EXPECT_EQ(zdb_branch_state(server, "b1"), test.state);
    EXPECT_EQ(zdb_session_count(server), 0);
    EXPECT_EQ(ct_close(client.connection, QLT_UNUSED), CS_FAIL);
    EXPECT_EQ(ct_close(client.connection, QLT_CLOSE_FORCED), CS_SUCCEED);
    EXPECT_EQ(client.status(), 0);
  }
}

TEST_F(Platform, scripts_change_replies_in_their_turn) {
  Client client;
  client.open();
  script("$statusTrvDtmXact", ZDB_REPLY_STATUS, -9, nullptr, 1, 2);
  script("$statusTrvDtmXact", ZDB_REPLY_STATUS, -256, nullptr, 0, 2);
  script("$statusTrvDtmXact", ZDB_REPLY_XACTSTATUS, 5, nullptr, 4);
  Codes answers;
  for (int call = 0; call < 4; ++call) {
    answers.push_back(client.call("status").statuses.at(0));
  }
  EXPECT_EQ(answers, (Codes{-256, -9, -9, -256})) << "skipping leaves the turn to the next script, changing keeps it";
  script("$statusTrvDtmXact", ZDB_REPLY_TWO_STATUSES, 8);
  script("$statusTrvDtmXact", ZDB_REPLY_RPCERROR, 12);
  script("*", ZDB_REPLY_ROW, 3);
  const Received all = client.call("status");
  EXPECT_EQ(all.types,
            (Codes{CS_ROW_RESULT, CS_STATUS_RESULT, CS_STATUS_RESULT, CS_PARAM_RESULT, CS_PARAM_RESULT, CS_CMD_DONE}));
  EXPECT_EQ(all.statuses, (Codes{-2, 8}));
  EXPECT_EQ(all.outputs, (std::map<std::string, int32_t>{{"@$rpcerror", 12}, {"@xactstatus", 5}}));
  script("$beginTrvDtmXact", ZDB_REPLY_CMD_FAIL, 0);
  EXPECT_EQ(client.call("begin").types, (Codes{CS_CMD_FAIL, CS_CMD_DONE}));
  EXPECT_EQ(zdb_branch_count(server), 0);
  script("sp_transactions", ZDB_REPLY_SCAN_EXTRA_ROW, 0, "nonsense");
  script("sp_transactions", ZDB_REPLY_SCAN_STATUS, 1);
  client.send_scan();
  const Received scan = client.receive();
  EXPECT_EQ(scan.rows, std::vector<std::string>{"nonsense"});
  EXPECT_EQ(scan.statuses, Codes{1});
}

int32_t refuse_send(const char *operation, void *) {
  return std::strcmp(operation, "ct_send") == 0 ? -5 : 1;
}

TEST_F(Platform, calls_can_be_made_to_fail) {
  {
    Client client;
    client.open();
    client.initiate("status", "b1");
    qlt_fail_call(2, 0);
    EXPECT_EQ(client.status(), 1);
    EXPECT_EQ(ct_send(client.command), CS_FAIL);
    EXPECT_EQ(qlt_calls_made(), 2);
    qlt_set_call_hook(refuse_send, nullptr);
    EXPECT_EQ(ct_send(client.command), -5);
    qlt_set_call_hook(nullptr, nullptr);
    EXPECT_EQ(ct_send(client.command), CS_SUCCEED);
    qlt_fail_call(1, 1);
    EXPECT_EQ(ct_cmd_drop(client.command), CS_FAIL);
    EXPECT_EQ(ct_close(client.connection, QLT_UNUSED), CS_FAIL);
    EXPECT_EQ(zdb_session_count(server), 0) << "handles are given back all the same";
    EXPECT_EQ(qlt_live_commands(), 0);
    qlt_fail_call(0, 0);
  }
}

QLT_THREAD_TABLE primitives() {
  QLT_THREAD_TABLE table{};
  EXPECT_EQ(cs_config(context(), CS_GET, QLT_PROP_THREAD_TABLE, &table, QLT_UNUSED, nullptr), CS_SUCCEED);
  return table;
}

TEST_F(Platform, mutexes_exclude_and_know_their_holder) {
  const QLT_THREAD_TABLE table = primitives();
  int32_t mutex = 0;
  int32_t event = 0;
  ASSERT_EQ(table.create_mutex(&mutex), CS_SUCCEED);
  ASSERT_EQ(table.create_event(&event), CS_SUCCEED);
  EXPECT_EQ(table.waitfor_event(event, 1), CS_TIMED_OUT);
  EXPECT_EQ(table.release_mutex(mutex), CS_FAIL);
  EXPECT_EQ(table.take_mutex(event), CS_FAIL);
  ASSERT_EQ(table.take_mutex(mutex), CS_SUCCEED);
  EXPECT_EQ(table.take_mutex(mutex), CS_FAIL);
  EXPECT_EQ(table.delete_mutex(mutex), CS_FAIL) << "held";
  int sum = 0;
  const auto work = [&] {
    EXPECT_EQ(qlt_mutex_held_here(mutex), 0);
    EXPECT_EQ(table.release_mutex(mutex), CS_FAIL) << "held by another thread";
    EXPECT_EQ(table.signal_event(event), CS_SUCCEED);
    for (int turn = 0; turn < 1000; ++turn) {
      ASSERT_EQ(table.take_mutex(mutex), CS_SUCCEED);
      ++sum;
      ASSERT_EQ(table.release_mutex(mutex), CS_SUCCEED);
    }
  };
  std::thread first(work);
  EXPECT_EQ(table.waitfor_event(event, -1), CS_SUCCEED);
  EXPECT_EQ(sum, 0);
  EXPECT_EQ(qlt_mutexes_held(), 1);
  ASSERT_EQ(table.release_mutex(mutex), CS_SUCCEED);
  first.join();
  EXPECT_EQ(sum, 1000);
  EXPECT_EQ(table.delete_mutex(mutex), CS_SUCCEED);
  EXPECT_EQ(table.take_mutex(mutex), CS_FAIL) << "deleted";
  int32_t reused = 0;
  ASSERT_EQ(table.create_mutex(&reused), CS_SUCCEED);
  EXPECT_EQ(table.take_mutex(mutex), CS_FAIL) << "its place has a new owner";
  EXPECT_EQ(table.delete_mutex(reused), CS_SUCCEED);
  EXPECT_EQ(table.delete_event(event), CS_SUCCEED);
}

TEST_F(Platform, identities_are_per_thread_and_of_any_length) {
  const QLT_THREAD_TABLE table = primitives();
  for (const int32_t length : {1, 8, 16, 0, 17}) {
    SCOPED_TRACE(length);
    qlt_set_identity_length(length);
    unsigned char own[16] = {};
    unsigned char others[16] = {};
    int32_t reported = -1;
    EXPECT_EQ(table.thread_identity(own, 16, &reported), CS_SUCCEED);
    EXPECT_EQ(reported, length);
    std::thread([&] { table.thread_identity(others, 16, &reported); }).join();
    EXPECT_EQ(std::memcmp(own, others, 16) == 0, length < 1 || length > 16);
  }
  qlt_set_identity_length(8);
  qlt_set_thread_support(0);
  EXPECT_EQ(primitives().create_mutex, nullptr);
  qlt_set_thread_support(1);
}

QLT_OBJECT_NAME key(int32_t type, const char *last, const char *first) {
  QLT_OBJECT_NAME name{};
  name.obj_type = type;
  std::snprintf(name.last_name, sizeof name.last_name, "%s", last);
  name.lnlen = QLT_NULLTERM;
  std::snprintf(name.first_name, sizeof name.first_name, "%s", first == nullptr ? "" : first);
  name.fnlen = first == nullptr ? QLT_UNUSED : QLT_NULLTERM;
  name.scopelen = QLT_UNUSED;
  name.threadlen = QLT_UNUSED;
  return name;
}

TEST_F(Platform, registry_matches_exact_unused_and_wildcard_parts) {
  Client client;
  client.open();
  unsigned char thread[2] = {0, 7};
  ASSERT_EQ(qlt_announce_cursor(client.connection, "L1", "c1", "s1", thread, 2), CS_SUCCEED);
  ASSERT_EQ(qlt_announce_cursor(client.connection, "L1", "c2", nullptr, thread, 2), CS_SUCCEED);
  EXPECT_EQ(qlt_live_objects(), 5) << "two cursors, their table, a statement and its mapping";
  char bytes[153];
  const auto look_up = [&](QLT_OBJECT_NAME name) {
    QLT_OBJECT_DATA data{-1, nullptr, nullptr, bytes, sizeof bytes};
    EXPECT_EQ(cs_objects(context(), CS_GET, &name, &data), CS_SUCCEED);
    return data;
  };
  QLT_OBJECT_NAME name = key(QLT_OBJ_CURSOR, "L1", "c1");
  name.scopelen = QLT_WILDCARD;
  EXPECT_EQ(look_up(name).command, nullptr) << "an unused thread is not just any thread";
  name.thread = thread;
  name.threadlen = 2;
  EXPECT_EQ(look_up(name).buflen, 152);
  int32_t length = 0;
  std::memcpy(&length, bytes + 148, sizeof length);
  EXPECT_EQ(std::string(bytes + 16, static_cast<std::size_t>(length)), "s1");
  name.fnlen = QLT_WILDCARD;
  QLT_OBJECT_DATA found = look_up(name);
  char cursor[132];
  EXPECT_EQ(ct_cmd_props(found.command, CS_GET, CS_CUR_NAME, cursor, 132, &length), CS_SUCCEED);
  EXPECT_EQ(std::string(cursor, static_cast<std::size_t>(length)), std::string("c1\0", 3));
  EXPECT_EQ(cs_objects(context(), CS_SET, &name, &found), CS_FAIL) << "no entry under a wildcard";
  EXPECT_EQ(cs_objects(context(), QLT_CLEAR, &name, nullptr), CS_SUCCEED);
  EXPECT_EQ(look_up(name).actuallyexists, 0);
  name.think_exists = 1;
  EXPECT_EQ(cs_objects(context(), QLT_CLEAR, &name, nullptr), CS_FAIL);
  EXPECT_EQ(qlt_live_objects(), 3);
}

TEST_F(Platform, cursors_and_statements_are_dropped_on_the_server) {
  Client client;
  client.open();
  ASSERT_EQ(qlt_announce_cursor(client.connection, "L1", "c1", "s1", nullptr, QLT_UNUSED), CS_SUCCEED);
  QLT_OBJECT_NAME name = key(QLT_OBJ_CURSOR, "L1", "c1");
  QLT_OBJECT_DATA data{0, nullptr, nullptr, nullptr, QLT_UNUSED};
  ASSERT_EQ(cs_objects(context(), CS_GET, &name, &data), CS_SUCCEED);
  const auto close = [&](int32_t type, int32_t option) {
    return ct_cursor(data.command, type, nullptr, QLT_UNUSED, nullptr, QLT_UNUSED, option);
  };
  const auto finish = [&](QLT_COMMAND *command) {
    EXPECT_EQ(ct_send(command), CS_SUCCEED);
    int32_t type = 0;
    EXPECT_EQ(ct_results(command, &type), CS_SUCCEED);
    while (ct_results(command, &type) == CS_SUCCEED) {
    }
    int32_t status = -1;
    EXPECT_EQ(ct_cmd_props(command, CS_GET, CS_CUR_STATUS, &status, QLT_UNUSED, nullptr), CS_SUCCEED);
    return status;
  };
  EXPECT_EQ(close(CS_CURSOR_DEALLOC, QLT_UNUSED), CS_FAIL) << "still open";
  ASSERT_EQ(close(CS_CURSOR_CLOSE, QLT_UNUSED), CS_SUCCEED);
  EXPECT_EQ(finish(data.command), QLT_CURSOR_CLOSED);
  ASSERT_EQ(close(CS_CURSOR_DEALLOC, QLT_UNUSED), CS_SUCCEED);
  EXPECT_EQ(finish(data.command), 0);
  const auto drop_statement = [&] {
    EXPECT_EQ(ct_dynamic(client.command, CS_DEALLOC, "s1", 2, nullptr, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_send(client.command), CS_SUCCEED);
    return client.receive().types.front();
  };
  EXPECT_EQ(drop_statement(), CS_CMD_SUCCEED);
  EXPECT_EQ(drop_statement(), CS_CMD_FAIL) << "dropped already";
}

std::vector<std::string> heard;

int32_t hear_server(CS_CONTEXT *, QLT_CONNECTION *connection, QLT_SERVER_MESSAGE *message) {
  int32_t word = 0;
  EXPECT_EQ(ct_con_props(connection, CS_GET, QLT_PROP_CON_STATUS, &word, QLT_UNUSED, nullptr), CS_SUCCEED);
  heard.emplace_back(message->msg_server);
  return CS_SUCCEED;
}

TEST_F(Platform, callbacks_are_inherited_replaced_and_restored) {
  heard.clear();
  qlt_set_context_callbacks(nullptr, hear_server);
  Client client;
  void *inherited = nullptr;
  void *current = nullptr;
  const auto get = [&](void **callback) {
    EXPECT_EQ(ct_callback(nullptr, client.connection, CS_GET, QLT_SERVERMSG_CB, callback), CS_SUCCEED);
  };
  get(&inherited);
  EXPECT_EQ(inherited, reinterpret_cast<void *>(hear_server));
  client.open();
  client.query("nonsense");
  EXPECT_EQ(heard, std::vector<std::string>{server});
  EXPECT_EQ(ct_diag(client.connection, CS_INIT, QLT_UNUSED, QLT_UNUSED, nullptr), CS_SUCCEED);
  get(&current);
  EXPECT_NE(current, inherited);
  client.query("nonsense");
  QLT_SERVER_MESSAGE stored{};
  EXPECT_EQ(ct_diag(client.connection, CS_GET, QLT_SERVER_MESSAGES, 1, &stored), CS_SUCCEED);
  EXPECT_EQ(heard.size(), 1U);
  EXPECT_EQ(ct_callback(nullptr, client.connection, CS_SET, QLT_SERVERMSG_CB, inherited), CS_SUCCEED);
  client.query("nonsense");
  EXPECT_EQ(heard.size(), 2U);
}

TEST_F(Platform, threads_work_on_connections_of_their_own) {
  const auto work = [](int number) {
    Client client;
    client.open();
    for (int turn = 0; turn < 50; ++turn) {
      const std::string branch = std::to_string(number) + "_" + std::to_string(turn);
      EXPECT_EQ(client.call("begin", branch.c_str()).statuses, Codes{0});
      EXPECT_EQ(client.call("prepare", branch.c_str()).statuses, Codes{1});
      EXPECT_EQ(client.call("commit", branch.c_str()).statuses, Codes{7});
    }
  };
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back(work, number);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(zdb_branch_count(server), 0);
}

}  // namespace
