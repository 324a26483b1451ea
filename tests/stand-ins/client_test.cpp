// The client library on a server that is only a reply: conversions, row counts, parameters, what is pending or broken
// off, messages, mutexes, and the interfaces file that a login is given.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <thread>

#include "interface/session.h"
#include "quillet.h"
#include "quillet_control.h"

namespace {

using zdb::Binary;
using zdb::ColumnType;
using zdb::Value;

zdb::Reply next_reply;
zdb::Request last_request;
std::string interfaces_given;
bool session_lives = true;

class ReplyingSession final : public zdb::Session {
 public:
  zdb::Reply execute(const zdb::Request &request) override {
    last_request = request;
    return next_reply;
  }
  bool alive() const override { return session_lives; }
};

}  // namespace

std::unique_ptr<zdb::Session> zdb::open_session(const std::string &, const std::string &interfaces_file, const Login &,
                                                Message &) {
  interfaces_given = interfaces_file;
  return std::make_unique<ReplyingSession>();
}

namespace {

CS_CONTEXT *context() {
  CS_CONTEXT *made = nullptr;
  EXPECT_EQ(cs_ctx_global(QLT_VERSION, &made), CS_SUCCEED);
  EXPECT_EQ(ct_init(made, QLT_VERSION), CS_SUCCEED);
  return made;
}

class Client : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ct_con_alloc(context(), &connection), CS_SUCCEED);
    ASSERT_EQ(ct_diag(connection, CS_INIT, QLT_UNUSED, QLT_UNUSED, nullptr), CS_SUCCEED);
  }
  void TearDown() override {
    EXPECT_EQ(ct_con_drop(connection), CS_SUCCEED);
    EXPECT_EQ(qlt_live_connections(), 0);
    EXPECT_EQ(qlt_live_commands(), 0);
    EXPECT_EQ(qlt_mutexes_held(), 0);
  }

  void connect() {
    ASSERT_EQ(ct_connect(connection, "bank", QLT_NULLTERM), CS_SUCCEED);
    ASSERT_EQ(ct_cmd_alloc(connection, &command), CS_SUCCEED);
  }
  // Sends a language command that gets these results, and makes the first of them current.
  void query(std::vector<zdb::Result> results) const {
    next_reply.results = std::move(results);
    ASSERT_EQ(ct_cancel(connection, nullptr, CS_CANCEL_ALL), CS_SUCCEED);
    ASSERT_EQ(ct_command(command, QLT_LANG_COMMAND, "select", QLT_NULLTERM, QLT_UNUSED), CS_SUCCEED);
    ASSERT_EQ(ct_send(command), CS_SUCCEED);
    int32_t type = 0;
    ASSERT_EQ(ct_results(command, &type), CS_SUCCEED);
  }
  int32_t next_result() const {
    int32_t type = 0;
    const int32_t code = ct_results(command, &type);
    return code == CS_SUCCEED ? type : code;
  }
  int32_t fetch() const {
    int32_t rows = 0;
    return ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &rows);
  }

  QLT_CONNECTION *connection = nullptr;
  QLT_COMMAND *command = nullptr;
};

QLT_FORMAT format_of(int32_t datatype, int32_t maxlen) {
  QLT_FORMAT format{};
  format.fmt_datatype = datatype;
  format.fmt_maxlen = maxlen;
  format.fmt_count = 1;
  format.fmt_status = QLT_INPUT_PARAM;
  return format;
}

template <typename Number>
std::string bytes_of(Number number) {
  return {reinterpret_cast<const char *>(&number), sizeof number};
}

constexpr int64_t most = std::numeric_limits<int64_t>::max();
constexpr int64_t least = std::numeric_limits<int64_t>::min();
constexpr int32_t fails = CS_ROW_FAIL;

TEST_F(Client, values_become_what_is_bound) {
  connect();
  const struct {
    int line;
    Value value;
    int32_t datatype;
    std::string bytes;  // where the fetch fails: zero, or what there was room for
    int32_t code = CS_SUCCEED;
    int32_t maxlen = 8;
  } cases[] = {
      {__LINE__, int64_t{-7}, QLT_INT_TYPE, bytes_of(int32_t{-7})},
      {__LINE__, int64_t{-7}, QLT_CHAR_TYPE, "-7"},
      {__LINE__, int64_t{-7}, QLT_BINARY_TYPE, "", fails},
      {__LINE__, int64_t{1} << 31, QLT_INT_TYPE, bytes_of(0), fails},
      {__LINE__, -(int64_t{1} << 31), QLT_INT_TYPE, bytes_of(std::numeric_limits<int32_t>::min())},
      {__LINE__, least, QLT_BIGINT_TYPE, bytes_of(least)},
      {__LINE__, least, QLT_CHAR_TYPE, "-9223372036854775808", CS_SUCCEED, 20},
      {__LINE__, least, QLT_CHAR_TYPE, "-922337203685477580", fails, 19},
      {__LINE__, 0.1, QLT_FLOAT_TYPE, bytes_of(0.1)},
      {__LINE__, 0.1, QLT_CHAR_TYPE, "0.1"},
      {__LINE__, 0.1 + 0.2, QLT_CHAR_TYPE, "0.30000000000000004", CS_SUCCEED, 32},
      {__LINE__, -3.0, QLT_INT_TYPE, bytes_of(-3)},
      {__LINE__, 2.5, QLT_INT_TYPE, bytes_of(0), fails},
      {__LINE__, -0x1p63, QLT_BIGINT_TYPE, bytes_of(least)},
      {__LINE__, 0x1p63, QLT_BIGINT_TYPE, bytes_of(int64_t{0}), fails},
      {__LINE__, std::nan(""), QLT_BIGINT_TYPE, bytes_of(int64_t{0}), fails},
      {__LINE__, "12", QLT_INT_TYPE, bytes_of(12)},
      {__LINE__, "12 ", QLT_INT_TYPE, bytes_of(0), fails},
      {__LINE__, "1.0", QLT_INT_TYPE, bytes_of(0), fails},
      {__LINE__, "9223372036854775807", QLT_BIGINT_TYPE, bytes_of(most)},
      {__LINE__, "9223372036854775808", QLT_BIGINT_TYPE, bytes_of(int64_t{0}), fails},
      {__LINE__, "1e999", QLT_FLOAT_TYPE, bytes_of(0.0), fails},
      {__LINE__, "00fF", QLT_BINARY_TYPE, std::string("\0\xff", 2)},
      {__LINE__, "0g", QLT_BINARY_TYPE, "", fails},
      {__LINE__, "123456789", QLT_CHAR_TYPE, "12345678", fails},
      {__LINE__, Binary{std::string("\0\xa1", 2)}, QLT_BINARY_TYPE, std::string("\0\xa1", 2)},
      {__LINE__, Binary{"123456789"}, QLT_BINARY_TYPE, "12345678", fails},
      {__LINE__, Binary{std::string("\0\xa1", 2)}, QLT_CHAR_TYPE, "00a1"},
      {__LINE__, Binary{"12345"}, QLT_CHAR_TYPE, "31323334", fails},
      {__LINE__, Binary{"1"}, QLT_INT_TYPE, bytes_of(0), fails},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(testing::Message() << "line " << test.line);
    query({{zdb::ResultKind::rows, {{"c", ColumnType::text, 99}}, {{test.value}}}});
    const QLT_FORMAT format = format_of(test.datatype, test.maxlen);
    std::string buffer(40, '#');
    int32_t length = -1;
    int32_t indicator = -5;
    ASSERT_EQ(ct_bind(command, 1, &format, buffer.data(), &length, &indicator), CS_SUCCEED);
    EXPECT_EQ(fetch(), test.code);
    EXPECT_EQ(buffer, test.bytes + std::string(40 - test.bytes.size(), '#'));
    EXPECT_EQ(static_cast<std::size_t>(length), test.bytes.size());
    EXPECT_EQ(indicator, 0);
    EXPECT_EQ(fetch(), CS_END_DATA);
  }
}

TEST_F(Client, rows_fill_bound_arrays) {
  connect();
  query({{zdb::ResultKind::rows, {{"c", ColumnType::text, 9}}, {{"one"}, {"three"}, {"4"}}}});
  QLT_FORMAT format = format_of(QLT_CHAR_TYPE, 5);
  format.fmt_format = QLT_FMT_NULLTERM;
  format.fmt_count = 2;
  char texts[2][5];
  int32_t lengths[2];
  int32_t rows = 0;
  ASSERT_EQ(ct_bind(command, 1, &format, texts, lengths, nullptr), CS_SUCCEED);
  EXPECT_EQ(ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &rows), CS_ROW_FAIL) << "three does not fit";
  EXPECT_EQ(rows, 2);
  EXPECT_STREQ(texts[0], "one");
  EXPECT_STREQ(texts[1], "thre");
  EXPECT_EQ(lengths[0], 3);
  EXPECT_EQ(fetch(), CS_SUCCEED);
  EXPECT_EQ(fetch(), CS_END_DATA);
}

TEST_F(Client, null_is_told_by_its_indicator_and_leaves_zero) {
  connect();
  for (const int32_t datatype : {QLT_INT_TYPE, QLT_BIGINT_TYPE, QLT_FLOAT_TYPE, QLT_CHAR_TYPE, QLT_BINARY_TYPE}) {
    SCOPED_TRACE(datatype);
    query({{zdb::ResultKind::rows, {{"c", ColumnType::bigint, 8}}, {{Value()}}}});
    QLT_FORMAT format = format_of(datatype, 8);
    format.fmt_format = datatype == QLT_CHAR_TYPE ? QLT_FMT_NULLTERM : QLT_FMT_NONE;
    char buffer[8] = "\1\1\1\1\1\1\1";
    int32_t length = -1;
    int32_t indicator = 0;
    ASSERT_EQ(ct_bind(command, 1, &format, buffer, &length, &indicator), CS_SUCCEED);
    EXPECT_EQ(fetch(), CS_SUCCEED);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(indicator, QLT_IND_NULL);
    EXPECT_EQ(buffer[0], datatype == QLT_BINARY_TYPE ? 1 : 0);
  }
}

TEST_F(Client, columns_are_described_and_formats_checked) {
  connect();
  query({{zdb::ResultKind::rows,
          {{"t", ColumnType::text, 30},
           {"i", ColumnType::integer, 4},
           {"b", ColumnType::bigint, 8},
           {"r", ColumnType::real, 8},
           {"y", ColumnType::binary, 16}},
          {}}});
  const struct {
    int32_t datatype, maxlen, least_maxlen;
    bool ends_with_zero;
  } columns[] = {{QLT_CHAR_TYPE, 30, 1, true},
                 {QLT_INT_TYPE, 4, 4, false},
                 {QLT_BIGINT_TYPE, 8, 8, false},
                 {QLT_FLOAT_TYPE, 8, 8, false},
                 {QLT_BINARY_TYPE, 16, 1, false}};
  int32_t number = 0;
  char buffer[32];
  const auto bind = [&](const QLT_FORMAT &format) { return ct_bind(command, 1, &format, buffer, nullptr, nullptr); };
  for (const auto &column : columns) {
    SCOPED_TRACE(++number);
    QLT_FORMAT format{};
    ASSERT_EQ(ct_describe(command, number, &format), CS_SUCCEED);
    EXPECT_EQ(format.fmt_datatype, column.datatype);
    EXPECT_EQ(format.fmt_maxlen, column.maxlen);
    EXPECT_EQ(bind(format_of(column.datatype, column.least_maxlen)), CS_SUCCEED);
    EXPECT_EQ(bind(format_of(column.datatype, column.least_maxlen - 1)), CS_FAIL);
    format.fmt_format = QLT_FMT_NULLTERM;
    EXPECT_EQ(bind(format), column.ends_with_zero ? CS_SUCCEED : CS_FAIL);
  }
  EXPECT_EQ(bind(format_of(9, 8)), CS_FAIL);
}

TEST_F(Client, rows_are_counted_at_the_end_of_a_command) {
  connect();
  const struct {
    int64_t count;
    int32_t told;
  } cases[] = {{0, 0}, {2147483647, 2147483647}, {2147483648, -1}, {-1, -1}, {-3, -1}};
  for (const auto &test : cases) {
    SCOPED_TRACE(test.count);
    query({{zdb::ResultKind::rows, {{"c"}}, {}},
           {zdb::ResultKind::succeeded, {}, {}},
           {zdb::ResultKind::done, {}, {}, test.count}});
    const auto ask = [&](int32_t what, int32_t &number) {
      return ct_res_info(command, what, &number, QLT_UNUSED, nullptr);
    };
    int32_t number = -7;
    int32_t type = 0;
    EXPECT_EQ(ask(QLT_NUM_COLUMNS, number), CS_SUCCEED);
    ASSERT_EQ(ct_results(command, &type), CS_SUCCEED);
    EXPECT_EQ(ask(QLT_ROW_COUNT, number), CS_FAIL);
    ASSERT_EQ(ct_results(command, &type), CS_SUCCEED);
    ASSERT_EQ(type, CS_CMD_DONE);
    EXPECT_EQ(ask(QLT_ROW_COUNT, number), CS_SUCCEED);
    EXPECT_EQ(number, test.told);
    EXPECT_EQ(ask(QLT_NUM_COLUMNS, number), CS_FAIL);
  }
}

TEST_F(Client, parameters_of_all_types_reach_the_server) {
  connect();
  const struct {
    int line;
    int32_t datatype;
    std::string bytes;
    int32_t length;
    int32_t code;
    Value sent;
  } cases[] = {
      {__LINE__, QLT_BIGINT_TYPE, bytes_of(least), 8, CS_SUCCEED, least},
      {__LINE__, QLT_FLOAT_TYPE, bytes_of(0.1), QLT_UNUSED, CS_SUCCEED, 0.1},
      {__LINE__, QLT_BINARY_TYPE, std::string("\0\1", 2), 2, CS_SUCCEED, Binary{std::string("\0\1", 2)}},
      {__LINE__, QLT_BINARY_TYPE, "ab", 0, CS_SUCCEED, Binary{}},
      {__LINE__, QLT_CHAR_TYPE, "ab", QLT_NULLTERM, CS_SUCCEED, "ab"},
      {__LINE__, QLT_BIGINT_TYPE, bytes_of(least), 4, CS_FAIL, {}},
      {__LINE__, QLT_FLOAT_TYPE, bytes_of(0.1), 4, CS_FAIL, {}},
      {__LINE__, QLT_BINARY_TYPE, "ab", QLT_NULLTERM, CS_FAIL, {}},
      {__LINE__, QLT_BINARY_TYPE, std::string(256, 'b'), 256, CS_FAIL, {}},
      {__LINE__, 9, bytes_of(1), 4, CS_FAIL, {}},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(testing::Message() << "line " << test.line);
    ASSERT_EQ(ct_cancel(connection, nullptr, CS_CANCEL_ALL), CS_SUCCEED);
    ASSERT_EQ(ct_command(command, QLT_RPC_COMMAND, "p", QLT_NULLTERM, QLT_UNUSED), CS_SUCCEED);
    const QLT_FORMAT format = format_of(test.datatype, QLT_UNUSED);
    EXPECT_EQ(ct_param(command, &format, test.bytes.data(), test.length, 0), test.code);
    EXPECT_EQ(ct_param(command, &format, nullptr, QLT_UNUSED, QLT_IND_NULL), CS_SUCCEED);
    ASSERT_EQ(ct_send(command), CS_SUCCEED);
    ASSERT_EQ(last_request.parameters.size(), test.code == CS_SUCCEED ? 2U : 1U);
    EXPECT_EQ(last_request.parameters.front().value, test.sent);
    EXPECT_EQ(last_request.parameters.back().value, Value());
  }
}

TEST_F(Client, results_are_cancelled_one_or_all) {
  connect();
  const std::vector<zdb::Result> results = {{zdb::ResultKind::rows, {{"c"}}, {{"x"}}}, {zdb::ResultKind::done, {}, {}}};
  query(results);
  EXPECT_EQ(ct_command(command, QLT_LANG_COMMAND, "x", 1, QLT_UNUSED), CS_FAIL) << "results are pending";
  EXPECT_EQ(ct_close(connection, QLT_UNUSED), CS_FAIL) << "results are pending";
  EXPECT_EQ(ct_cancel(nullptr, command, QLT_CANCEL_CURRENT), CS_SUCCEED);
  EXPECT_EQ(next_result(), CS_CMD_DONE);
  query(results);
  EXPECT_EQ(ct_cancel(connection, nullptr, CS_CANCEL_ALL), CS_SUCCEED);
  EXPECT_EQ(next_result(), CS_FAIL);
  EXPECT_EQ(ct_send(command), CS_FAIL) << "nothing initiated";
  EXPECT_EQ(ct_close(connection, QLT_UNUSED), CS_SUCCEED);
}

TEST_F(Client, broken_sessions_are_noticed_at_the_next_exchange) {
  const auto status = [&] {
    int32_t word = -1;
    EXPECT_EQ(ct_con_props(connection, CS_GET, QLT_PROP_CON_STATUS, &word, QLT_UNUSED, nullptr), CS_SUCCEED);
    return word;
  };
  for (const bool before_it : {false, true}) {
    connect();
    session_lives = !before_it;
    next_reply = {};
    next_reply.broken_off = !before_it;
    EXPECT_EQ(status(), QLT_CON_OPEN) << "not noticed yet";
    EXPECT_EQ(ct_command(command, QLT_LANG_COMMAND, "x", 1, QLT_UNUSED), CS_SUCCEED);
    EXPECT_EQ(ct_send(command), before_it ? CS_FAIL : CS_SUCCEED);
    EXPECT_EQ(next_result(), CS_FAIL);
    EXPECT_EQ(status(), QLT_CON_OPEN | QLT_CON_BROKEN);
    EXPECT_EQ(ct_close(connection, QLT_UNUSED), CS_FAIL);
    EXPECT_EQ(ct_close(connection, QLT_CLOSE_FORCED), CS_SUCCEED);
    session_lives = true;
    next_reply = {};
  }
}

TEST_F(Client, mutexes_exclude_and_know_their_holder) {
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

int32_t heard = 0;

int32_t hear_server(CS_CONTEXT *, QLT_CONNECTION *, QLT_SERVER_MESSAGE *) {
  ++heard;
  return CS_SUCCEED;
}

TEST_F(Client, callbacks_are_inherited_replaced_and_restored) {
  const auto current = [](QLT_CONNECTION *of) {
    void *callback = nullptr;
    EXPECT_EQ(ct_callback(nullptr, of, CS_GET, QLT_SERVERMSG_CB, &callback), CS_SUCCEED);
    return callback;
  };
  const auto own = reinterpret_cast<void *>(hear_server);
  qlt_set_context_callbacks(nullptr, hear_server);
  QLT_CONNECTION *inheriting = nullptr;
  EXPECT_EQ(ct_con_alloc(context(), &inheriting), CS_SUCCEED);
  EXPECT_EQ(current(inheriting), own);
  EXPECT_EQ(ct_con_drop(inheriting), CS_SUCCEED);
  qlt_set_context_callbacks(nullptr, nullptr);
  EXPECT_NE(current(connection), own) << "its messages are kept for ct_diag";
  connect();
  next_reply.messages = {{1, 2, "nonsense"}};
  query({{zdb::ResultKind::done, {}, {}}});
  QLT_SERVER_MESSAGE stored{};
  EXPECT_EQ(ct_diag(connection, CS_GET, QLT_SERVER_MESSAGES, 1, &stored), CS_SUCCEED);
  EXPECT_EQ(heard, 0);
  EXPECT_EQ(ct_callback(nullptr, connection, CS_SET, QLT_SERVERMSG_CB, own), CS_SUCCEED);
  query({{zdb::ResultKind::done, {}, {}}});
  EXPECT_EQ(heard, 1);
  next_reply = {};
}

TEST_F(Client, logins_are_given_the_nearest_interfaces_file) {
  const auto reconnect = [&] {
    EXPECT_EQ(ct_connect(connection, "bank", QLT_NULLTERM), CS_SUCCEED);
    EXPECT_EQ(ct_close(connection, QLT_UNUSED), CS_SUCCEED);
    return interfaces_given;
  };
  std::string folder = testing::TempDir() + "client.XXXXXX";
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  char own[] = "/own";
  char common[] = "/common";
  ::unsetenv("TARVEX");
  EXPECT_EQ(reconnect(), "");
  ::setenv("TARVEX", folder.c_str(), 1);
  EXPECT_EQ(reconnect(), "") << "there is no such file in the folder";
  std::ofstream(folder + "/interfaces") << "";
  EXPECT_EQ(reconnect(), folder + "/interfaces");
  ASSERT_EQ(ct_config(context(), CS_SET, QLT_PROP_IFILE, common, QLT_NULLTERM, nullptr), CS_SUCCEED);
  EXPECT_EQ(reconnect(), "/common") << "though the connection is older";
  ASSERT_EQ(ct_con_props(connection, CS_SET, QLT_PROP_IFILE, own, QLT_NULLTERM, nullptr), CS_SUCCEED);
  EXPECT_EQ(reconnect(), "/own");
  ASSERT_EQ(ct_con_props(connection, QLT_CLEAR, QLT_PROP_IFILE, nullptr, QLT_UNUSED, nullptr), CS_SUCCEED);
  EXPECT_EQ(reconnect(), "/common");
  ASSERT_EQ(ct_config(context(), QLT_CLEAR, QLT_PROP_IFILE, nullptr, QLT_UNUSED, nullptr), CS_SUCCEED);
  ::unsetenv("TARVEX");
  std::filesystem::remove_all(folder);
}

}  // namespace
