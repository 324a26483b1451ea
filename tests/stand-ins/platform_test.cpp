// The client library and the embedded server, through their public interfaces.
//
// A Client is one logged-in connection with one command. Every test has a server of its own, "bank", with a user "sa"
// that may use DTM and a user "guest" that may not; afterwards no handle may be left.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "dtm/dtm_protocol.h"
#include "interface/zdb_control.h"
#include "quillet.h"
#include "quillet_control.h"

namespace {

constexpr const char *server = "bank";

struct Received {
  std::vector<int32_t> types;  // as ct_results told them
  std::vector<int32_t> statuses;
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
  int32_t status() const {
    int32_t word = -1;
    EXPECT_EQ(ct_con_props(connection, CS_GET, QLT_PROP_CON_STATUS, &word, QLT_UNUSED, nullptr), CS_SUCCEED);
    return word;
  }
  Received call(const std::string &name) const {
    const ServerOperation &operation = operations.at(name);
    EXPECT_EQ(ct_command(command, QLT_RPC_COMMAND, operation.procedure, QLT_NULLTERM, QLT_NO_RECOMPILE), CS_SUCCEED);
    const QLT_FORMAT name_format = input("@name", QLT_CHAR_TYPE);
    const QLT_FORMAT status_format = input("@status", QLT_INT_TYPE);
    const QLT_FORMAT flags_format = input("@flags", QLT_INT_TYPE);
    EXPECT_EQ(ct_param(command, &name_format, "b1", QLT_NULLTERM, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_param(command, &status_format, &operation.wanted, 4, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_param(command, &flags_format, &operation.flags, 4, QLT_UNUSED), CS_SUCCEED);
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
    while (ct_results(command, &type) == CS_SUCCEED) {
      received.types.push_back(type);
      if (type == CS_STATUS_RESULT) {
        received.statuses.push_back(read_status());
      }
    }
    return received;
  }

  QLT_CONNECTION *connection = nullptr;
  QLT_COMMAND *command = nullptr;

 private:
  int32_t read_status() const {
    QLT_FORMAT format{};
    EXPECT_EQ(ct_describe(command, 1, &format), CS_SUCCEED);
    int32_t status = 0;
    EXPECT_EQ(ct_bind(command, 1, &format, &status, nullptr, nullptr), CS_SUCCEED);
    EXPECT_EQ(ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, nullptr), CS_SUCCEED);
    return status;
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
    qlt_set_context_callbacks(nullptr, nullptr);
  }
};

using Codes = std::vector<int32_t>;

TEST_F(Platform, branches_follow_the_rules) {
  // Steps "session operation answer"; session x breaks off or forces an outcome instead.
  const struct {
    const char *name;
    const char *steps;
    int32_t state;
  } cases[] = {
      {"two phases", "a begin 0 a end 1 b try_attach 2 b detach 1 b prepare 2 a commit 7 a status -2",
       DTM_STATE_UNKNOWN},
      {"one phase", "a begin 0 a commit1 1", DTM_STATE_UNKNOWN},
      {"begun twice", "a begin 0 a begin -3 b begin -3 a attach 1", DTM_STATE_ATTACHED},
      {"held elsewhere", "a begin 0 b attach -4 b end -4 b prepare -4 b commit1 -4 b status 1", DTM_STATE_ATTACHED},
      {"rolled back elsewhere", "a begin 0 b rollback -128 b forced_rollback -1 b abort 1 a end -2", DTM_STATE_UNKNOWN},
      {"joined in turn", "a begin 0 a end 1 b attach 2 a attach -4 b end 1 a end 2", DTM_STATE_ENDED},
      {"suspended is like ended", "a begin 0 a suspend 1 b status 3 b prepare 3", DTM_STATE_PREPARED},
      {"migrated needs an attach", "a begin 0 a migrate 1 b prepare -4 b commit1 -4 b attach 4 b end 1",
       DTM_STATE_ENDED},
      {"migrated is not forced", "a begin 0 a migrate 1 b forced_prepare -4 b forced_commit1 -4", DTM_STATE_DETACHED},
      {"aborted then prepared", "a begin 0 x break 0 b status 6 b end 6 b prepare -2 b status -2", DTM_STATE_UNKNOWN},
      {"aborted then attached", "a begin 0 x break 0 b attach 6 b commit1 -4 b try_attach 6", DTM_STATE_UNKNOWN},
      {"attached to be rolled back", "a begin 0 a end 1 b attach_abort 2 b rollback 6", DTM_STATE_UNKNOWN},
      {"prepared stays prepared", "a begin 0 a prepare 1 x break 0 b attach 7 b prepare -4 b commit1 -4",
       DTM_STATE_PREPARED},
      {"prepared rolled back", "a begin 0 a prepare 1 b attach_abort 7 b rollback 6", DTM_STATE_UNKNOWN},
      {"forced by the operator", "a begin 0 a prepare 1 x commit 0 a commit -2 a rollback -2 a begin -3 a status -2",
       DTM_STATE_HEUR_COMMITTED},
      {"forgotten", "a begin 0 a prepare 1 a forget -4 x rollback 0 a forget 0", DTM_STATE_UNKNOWN},
      {"not prepared", "a begin 0 a commit -4 a end 1 a commit -4 a forget -4", DTM_STATE_ENDED},
      {"unknown", "a attach -2 a end -2 a prepare -2 a commit -2 a abort -2 a forget -2 a bad_flags -5",
       DTM_STATE_UNKNOWN},
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

TEST_F(Platform, a_scan_needs_the_role_and_the_switch) {
  const auto scan = [](const char *user) {
    Client client(user);
    client.open();
    client.send_scan();
    return client.receive().types;
  };
  const Codes refused{CS_CMD_FAIL, CS_CMD_DONE};
  EXPECT_NE(scan("sa"), refused);
  EXPECT_EQ(scan("guest"), refused);
  zdb_set_dtm(server, 0);
  EXPECT_EQ(scan("sa"), refused);
}

TEST_F(Platform, results_are_cancelled_one_or_all) {
  ASSERT_EQ(zdb_plant_prepared(server, "b2"), 1);
  Client client;
  client.open();
  int32_t type = 0;
  client.send_scan();
  EXPECT_EQ(ct_command(client.command, QLT_LANG_COMMAND, "x", 1, QLT_UNUSED), CS_FAIL) << "results are pending";
  EXPECT_EQ(ct_close(client.connection, QLT_UNUSED), CS_FAIL) << "results are pending";
  ASSERT_EQ(ct_results(client.command, &type), CS_SUCCEED);
  EXPECT_EQ(ct_cancel(nullptr, client.command, QLT_CANCEL_CURRENT), CS_SUCCEED);
  EXPECT_EQ(client.receive().types, (Codes{CS_STATUS_RESULT, CS_CMD_DONE}));
  client.send_scan();
  ASSERT_EQ(ct_results(client.command, &type), CS_SUCCEED);
  EXPECT_EQ(ct_cancel(client.connection, nullptr, CS_CANCEL_ALL), CS_SUCCEED);
  EXPECT_EQ(ct_results(client.command, &type), CS_FAIL);
  EXPECT_EQ(ct_send(client.command), CS_FAIL) << "nothing initiated";
  EXPECT_EQ(ct_close(client.connection, QLT_UNUSED), CS_SUCCEED);
}

TEST_F(Platform, broken_sessions_are_noticed_at_the_next_exchange) {
  for (const bool by_operator : {false, true}) {
    Client client;
    client.open();
    const ZDB_SCRIPT drop{"language", 0, 1, ZDB_REPLY_DROP_AFTER, 0, nullptr};
    EXPECT_EQ(by_operator ? zdb_break_sessions(server, "sa") : zdb_add_script(server, &drop), 1);
    EXPECT_EQ(client.status(), QLT_CON_OPEN) << "not noticed yet";
    EXPECT_EQ(ct_command(client.command, QLT_LANG_COMMAND, "x", 1, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_send(client.command), by_operator ? CS_FAIL : CS_SUCCEED);
    client.receive();
    EXPECT_EQ(client.status(), QLT_CON_OPEN | QLT_CON_BROKEN);
    EXPECT_EQ(ct_close(client.connection, QLT_UNUSED), CS_FAIL);
    EXPECT_EQ(ct_close(client.connection, QLT_CLOSE_FORCED), CS_SUCCEED);
  }
}

TEST_F(Platform, mutexes_exclude_and_know_their_holder) {
  QLT_THREAD_TABLE table{};
  ASSERT_EQ(cs_config(context(), CS_GET, QLT_PROP_THREAD_TABLE, &table, QLT_UNUSED, nullptr), CS_SUCCEED);
  int32_t mutex = 0;
  int32_t event = 0;
  ASSERT_EQ(table.create_mutex(&mutex), CS_SUCCEED);
  ASSERT_EQ(table.create_event(&event), CS_SUCCEED);
  EXPECT_EQ(table.waitfor_event(event, 1), CS_TIMED_OUT);
  EXPECT_EQ(table.release_mutex(mutex), CS_FAIL);
  ASSERT_EQ(table.take_mutex(mutex), CS_SUCCEED);
  EXPECT_EQ(table.take_mutex(mutex), CS_FAIL);
  EXPECT_EQ(table.delete_mutex(mutex), CS_FAIL) << "held";
  bool free = false;
  std::thread other([&] {
    EXPECT_EQ(qlt_mutex_held_here(mutex), 0);
    EXPECT_EQ(table.release_mutex(mutex), CS_FAIL) << "held by another thread";
    EXPECT_EQ(table.signal_event(event), CS_SUCCEED);
    EXPECT_EQ(table.take_mutex(mutex), CS_SUCCEED);
    EXPECT_TRUE(free);
    EXPECT_EQ(table.release_mutex(mutex), CS_SUCCEED);
  });
  EXPECT_EQ(table.waitfor_event(event, -1), CS_SUCCEED);
  free = true;
  EXPECT_EQ(table.release_mutex(mutex), CS_SUCCEED);
  other.join();
  EXPECT_EQ(table.delete_mutex(mutex), CS_SUCCEED);
  int32_t reused = 0;
  ASSERT_EQ(table.create_mutex(&reused), CS_SUCCEED);
  EXPECT_EQ(table.take_mutex(mutex), CS_FAIL) << "its place has a new owner";
  EXPECT_EQ(table.delete_mutex(reused), CS_SUCCEED);
  EXPECT_EQ(table.delete_event(event), CS_SUCCEED);
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

}  // namespace
