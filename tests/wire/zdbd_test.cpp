// The server as a process: its log that nobody reads, its end while requests are at work, and clients
// that keep it from others. Waiting has ample time, which only a failing test uses up.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <thread>

#include "programs.h"
#include "wire/channel.h"
#include "wire/remote_session.h"

namespace {

using namespace zdb;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char *endless =
    "with recursive n(i) as (select 1 union all select i + 1 from n) select count(*) from n";
constexpr const char *long_function = "select instr(hex(zeroblob(6000000)), hex(zeroblob(3000000)) || '1')";

bool await(const std::function<bool()> &holds, milliseconds limit = seconds(30)) {
  const auto end = Clock::now() + limit;
  while (!holds()) {
    if (Clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(milliseconds(10));
  }
  return true;
}

// A pipe whose reading end has the number 0 and whose writing end has 1.
struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    out = Descriptor(ends[0]);
    in = Descriptor(ends[1]);
    EXPECT_GT(fcntl(ends[1], F_SETPIPE_SZ, 4096), 0);
  }
  Descriptor out;
  Descriptor in;
};

class Zdbd : public testing::Test {
 protected:
  Zdbd() {
    std::filesystem::create_directory(place_);
    command("--init " + folder());
    command("--admin " + folder() + " add-user sa dtm", "pw");
    command("--admin " + folder() + " add-user guest plain", "pw");
    command("--admin " + folder() + " lock-timeout 100");
  }
  ~Zdbd() override {
    if (process_ > 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
    }
  }

  std::string folder() const { return place_ + "/bank"; }
  std::string path() const { return place_ + "/socket"; }
  void command(const std::string &arguments, const std::string &input = "") const {
    const Outcome outcome = run_command("echo " + input + " | '" ZDBD "' " + arguments);
    EXPECT_EQ(outcome.status, 0) << arguments << ": " << outcome.output;
  }

  // Serves with this standard error; -1: none at all.
  void start(int errors) {
    ASSERT_LT(process_, 0) << "another one has not ended";
    process_ = fork();
    if (process_ == 0) {
      // An end that cannot wait leaves threads unjoined, which ThreadSanitizer would take for a fault.
      const char *options = getenv("TSAN_OPTIONS");
      setenv("TSAN_OPTIONS", std::string(options == nullptr ? "" : options).append(":report_thread_leaks=0").c_str(),
             1);
      errors < 0 ? close(STDERR_FILENO) : dup2(errors, STDERR_FILENO);
      execl(ZDBD, "zdbd", folder().c_str(), "--listen", path().c_str(), nullptr);
      _exit(127);
    }
    ASSERT_TRUE(await([&] { return connect() != nullptr; })) << refusal_.text;
  }
  std::unique_ptr<Session> connect(const char *user = "sa", const char *password = "pw") {
    return connect_session(path(), {user, password, "test", false}, refusal_);
  }
  Channel raw() const {
    int error = 0;
    return Channel(connect_socket(path(), true, error));
  }
  // A client that is logged in and has sent the command, but does not wait for the reply.
  Channel asking(const std::string &sql, const char *user = "sa") const {
    Channel channel = raw();
    channel.send(encode_login({user, "pw", "", false}));
    EXPECT_TRUE(channel.receive({FrameKind::accepted}, seconds(10)));
    channel.send(encode_request({RequestKind::language, sql, {}}));
    return channel;
  }
  static bool runs(Session &session, const std::string &sql) {
    const Reply reply = session.execute({RequestKind::language, sql, {}});
    return !reply.broken_off && reply.messages.empty();
  }
  static int32_t number_of(const Reply &reply) { return reply.messages.empty() ? 0 : reply.messages.front().number; }
  // The exit status after the signal; -1 when it does not end soon, which takes longer where everything does.
  int stop() {
    kill(process_, SIGTERM);
    int ended = 0;
    if (!await([&] { return waitpid(process_, &ended, WNOHANG) == process_; }, seconds(10))) {
      return -1;
    }
    process_ = -1;
    return WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
  }
  std::string log() const {
    std::string text(1 << 16, '\0');
    const ssize_t got = read(log_.out.number(), text.data(), text.size());
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return text;
  }

  static inline int made_ = 0;
  std::string place_ = scratch("place" + std::to_string(++made_));
  Message refusal_;
  pid_t process_ = -1;
  Pipe log_;
};

}  // namespace

TEST_F(Zdbd, serves_though_nobody_reads_its_log) {
  Pipe unread;
  Pipe left;
  left.out = Descriptor();
  for (const int errors : {unread.in.number(), left.in.number(), -1}) {
    start(errors);
    for (int i = 0; i < 150; ++i) {
      const Channel broken = raw();
      broken.send(encode_request({}));
      EXPECT_FALSE(broken.receive({FrameKind::refused}, seconds(10))) << i;
    }
    const auto session = connect();
    ASSERT_NE(session, nullptr) << refusal_.text;
    EXPECT_TRUE(runs(*session, "select 1"));
    EXPECT_EQ(stop(), 0) << errors;
  }
}

TEST_F(Zdbd, ends_soon_whatever_runs) {
  std::string many;
  while (many.size() < request_limit - 100) {
    many += "select 1;";
  }
  const std::string catalog = " from master..systransactions";
  const std::string table[] = {
      endless,
      long_function,
      many,
      "select instr(hex(zeroblob(30000)), hex(zeroblob(15000)) || '1')" + catalog,
      "create table t as " + std::string(long_function),
  };
  for (const std::string &sql : table) {
    start(log_.in.number());
    const Channel one = asking(sql);
    const Channel other = asking(sql, "guest");
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(stop(), 0) << sql.substr(0, 100);
    EXPECT_FALSE(std::filesystem::exists(path()));
  }
}

TEST_F(Zdbd, ends_a_statement_with_its_session) {
  start(log_.in.number());
  const auto writer = connect();
  ASSERT_NE(writer, nullptr);
  const std::string table = "create table t (id integer primary key, v integer)";
  ASSERT_TRUE(runs(*writer, table));
  const std::string holding =
      "insert into t with recursive n(i) as (select 1 union all select i + 1 from n) "
      "select 1, i from n where i < 0";
  const auto data_are_free = [&] { return runs(*writer, "delete from t"); };

  const std::function<void()> ends[] = {
      [&] {
        const Channel client = asking(holding + ";" + holding, "guest");
        client.send(encode_request({}));
        EXPECT_TRUE(await([&] { return !data_are_free(); }));
      },
      [&] {
        static std::vector<Channel> kept;
        kept.push_back(asking(holding, "guest"));
        EXPECT_TRUE(await([&] { return !data_are_free(); }));
        command("--admin " + folder() + " drop-user guest");
      },
  };
  for (const auto &end : ends) {
    end();
    EXPECT_TRUE(await(data_are_free, seconds(5)));
  }
  EXPECT_EQ(stop(), 0);
}

TEST_F(Zdbd, answers_while_others_ask_too_much) {
  start(log_.in.number());
  const auto client = connect();
  ASSERT_NE(client, nullptr);
  const std::string catalog = " from master..sysconfigures";
  std::string product = "select count(*)" + catalog + " as t0";
  for (int i = 1; i < 20; ++i) {
    product += ", master..sysconfigures as t" + std::to_string(i);
  }
  const Channel slow = asking(product, "guest");
  const auto before = Clock::now();
  const Reply ready = client->execute({RequestKind::language, "select value from master.dbo.sysconfigures", {}});
  EXPECT_TRUE(ready.messages.empty() && Clock::now() - before < seconds(1));
  std::string large = "select max(0";
  for (int i = 0; i < 12; ++i) {
    large += ", randomblob(16000000)";
  }
  const std::pair<std::string, int32_t> table[] = {
      {large + ") is null", 3113},
      {std::string(long_function) + catalog, 3105},
      {"select length('" + std::string(70'000, 'x') + "')" + catalog, 3101},
      {product, 3107},
      {"select count(*), max(lower(name)) " + catalog + " where name like 'enable%'", 0},
  };
  for (const auto &[sql, number] : table) {
    const Reply reply = client->execute({RequestKind::language, sql, {}});
    EXPECT_EQ(number_of(reply), number) << sql.substr(0, 100) << (reply.messages.empty() ? "" : reply.messages[0].text);
  }
  EXPECT_EQ(stop(), 0);
}

TEST_F(Zdbd, keeps_its_door_open) {
  start(log_.in.number());
  std::vector<Channel> silent;
  for (int i = 0; i < 300; ++i) {
    silent.push_back(raw());
  }
  EXPECT_NE(connect(), nullptr) << refusal_.text;
  for (const char *user : {"sa", "nobody"}) {
    const auto before = Clock::now();
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(connect(user, "wrong"), nullptr);
    }
    EXPECT_GT(Clock::now() - before, milliseconds(300)) << user;
  }
  EXPECT_NE(connect(), nullptr) << refusal_.text;
  EXPECT_NE(log().find("Login of user 'nobody' refused"), std::string::npos);
  EXPECT_EQ(connect("sa", std::string(500, 'x').c_str()), nullptr);
  EXPECT_EQ(stop(), 0);
}
