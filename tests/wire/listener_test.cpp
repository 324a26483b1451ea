// Remote sessions against a listener with a small service, and what raw bytes do to it.
//
// The service's requests are words: "echo" gives the parameters back, "wait" blocks until it is released,
// "throw" throws, "break" breaks the session off. Nothing sleeps; whatever is
// waited for has ample time, which only a failing test uses up.
#include "wire/listener.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <latch>
#include <new>

#include "programs.h"
#include "steps/crash_points.h"
#include "wire/remote_session.h"

namespace {

using namespace zdb;
using std::chrono::milliseconds;

// Something that threads change and the test waits for.
class Watched {
 public:
  template <typename Change>
  void change(Change act) {
    const std::lock_guard<std::mutex> lock(mutex_);
    act();
    changed_.notify_all();
  }
  template <typename Condition>
  bool await(Condition holds) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(30), holds);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
};

struct FakeService final : Service, Watched {
  std::unique_ptr<Session> log_in(const Login &login, Message &refusal) override;

  bool await_sessions(int wanted) {
    return await([&] { return sessions == wanted; });
  }

  int sessions = 0;
  int waiting = 0;
  bool released = false;
};

class FakeSession final : public Session {
 public:
  explicit FakeSession(FakeService &service) : service_(service) {
    service_.change([&] { ++service_.sessions; });
  }
  ~FakeSession() override {
    service_.change([&] { --service_.sessions; });
  }
  bool alive() const override { return true; }

  Reply execute(const Request &request) override {
    if (request.text == "wait") {
      service_.change([&] { ++service_.waiting; });
      service_.await([&] { return service_.released; });
    } else if (request.text == "throw") {
      throw std::bad_alloc();
    } else if (request.text == "throw an int") {
      throw 5;
    }
    Reply reply;
    reply.broken_off = request.text == "break";
    for (const Parameter &parameter : request.parameters) {
      reply.results.push_back({ResultKind::rows, {}, {{parameter.value}}});
    }
    return reply;
  }

 private:
  FakeService &service_;
};

std::unique_ptr<Session> FakeService::log_in(const Login &login, Message &refusal) {
  if (login.user == "thrower") {
    throw std::bad_alloc();
  }
  if (login.password != "pw") {
    refusal = {77, 14, "Who is " + login.user + "?"};
    return nullptr;
  }
  return std::make_unique<FakeSession>(*this);
}

// A folder of the test's own.
class Folder {
 public:
  Folder() { std::filesystem::create_directory(path_); }
  std::string file(const std::string &name) const { return path_ + "/" + name; }

 private:
  static inline int made_ = 0;
  std::string path_ = scratch("folder" + std::to_string(++made_));
};

class World {
 public:
  explicit World(milliseconds stall_limit = default_stall_limit)
      : listener(
            path, 0600, service, [this](const std::string &line) { log_.change([&] { text_ += line + '\n'; }); },
            stall_limit) {}

  std::unique_ptr<Session> connect(const char *user = "sa", const char *password = "pw") {
    return connect_session(path, {user, password, "test", false}, refusal);
  }
  // A connection on which the bytes have been sent.
  Descriptor raw(const std::string &bytes) const {
    int error = 0;
    Descriptor made = connect_socket(path, true, error);
    EXPECT_TRUE(made) << error_text(error);
    (void)send(made.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return made;
  }
  bool await_log(const std::string &part) {
    return log_.await([&] { return text_.find(part) != std::string::npos; });
  }

 private:
  Folder folder_;
  Watched log_;
  std::string text_;

 public:
  FakeService service;
  Message refusal;
  std::string path = folder_.file("socket");
  Listener listener;
};

bool echoes(Session &session, const Value &value) {
  const Reply reply = session.execute({RequestKind::language, "echo", {{"@a", value}}});
  return !reply.broken_off && reply.results.size() == 1 && reply.results[0].rows[0][0] == value;
}

bool breaks(Session &session, const char *text) {
  return session.execute({RequestKind::language, text, {}}).broken_off;
}

bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

TEST(Wire, sessions_come_and_go) {
  World world;
  const uint64_t passed = crash_points_passed();
  auto first = world.connect();
  auto second = world.connect();
  ASSERT_TRUE(first && second) << world.refusal.text;
  EXPECT_TRUE(echoes(*first, 1.5) && echoes(*second, "b") && echoes(*first, std::string(request_limit / 2, 'x')));
  EXPECT_TRUE(first->alive() && second->alive());
  EXPECT_TRUE(world.service.await_sessions(2));
  first.reset();
  EXPECT_TRUE(world.service.await_sessions(1));
  EXPECT_TRUE(echoes(*second, Value()));
  second.reset();
  EXPECT_TRUE(world.service.await_sessions(0));
  // A point before and after each reply, and none at logins.
  EXPECT_EQ(crash_points_passed() - passed, 8U);
}

TEST(Wire, refused_logins) {
  World world;
  EXPECT_EQ(world.connect("eve", "guess"), nullptr);
  EXPECT_EQ(world.refusal.number, 77);
  EXPECT_EQ(world.refusal.severity, 14);
  EXPECT_EQ(world.refusal.text, "Who is eve?");
  EXPECT_EQ(world.connect("thrower"), nullptr);
  EXPECT_TRUE(has(world.refusal.text, "did not answer the login: it ended the connection")) << world.refusal.text;
  EXPECT_TRUE(world.await_log("Session 2 ended: std::bad_alloc"));
  EXPECT_EQ(world.connect(std::string(login_limit, 'u').c_str()), nullptr);
  EXPECT_TRUE(has(world.refusal.text, "too long")) << world.refusal.text;
  EXPECT_NE(world.connect(), nullptr);
}

TEST(Wire, whatever_ends_a_session_ends_no_other) {
  World world;
  auto other = world.connect();
  const std::pair<const char *, const char *> rows[] = {
      {"throw", "Session 2 ended: std::bad_alloc"}, {"throw an int", "Session 3 ended: an exception"}, {"break", ""}};
  for (const auto &[request, line] : rows) {
    auto session = world.connect();
    ASSERT_TRUE(session) << world.refusal.text;
    EXPECT_TRUE(breaks(*session, request)) << request;
    EXPECT_FALSE(session->alive());
    EXPECT_TRUE(breaks(*session, "echo"));
    EXPECT_TRUE(world.await_log(line)) << line;
    EXPECT_TRUE(world.service.await_sessions(1));
    EXPECT_TRUE(echoes(*other, "still"));
  }
  auto session = world.connect();
  const Reply refused = session->execute({RequestKind::language, std::string(request_limit, 'x'), {}});
  EXPECT_EQ(refused.messages.at(0).number, message_request_too_large);
  EXPECT_TRUE(echoes(*session, "still"));
}

TEST(Wire, broken_frames_end_their_session) {
  const std::string login = encode_login({"sa", "pw", "", false});
  const std::string request = encode_request({});
  const std::pair<std::string, const char *> rows[] = {
      {request, "a request where a login was due"},
      {std::string("\x01\x10\0\0\1", frame_header_size), "login of 4097 bytes"},
      {std::string("\2\0\0\0\1zz", 7), "malformed login"},
      {login + std::string("\1\0\x20\0\4", frame_header_size), "request of 2097153 bytes"},
      {login + std::string("\1\0\0\0\4\x63", 6), "unknown kind of request 99"},
      {login + request.substr(0, 3), "middle of a frame"},
      {login + request.substr(0, 6), "middle of a frame"},
      {login + encode_accepted(), "acceptance where a request was due"},
      {login + std::string("\0\0\0\0\6", 5), "unknown kind 6"},
      {login + std::string("\xff\xff\xff\xff\4", 5), "2097152 are allowed"},
  };
  World world;
  auto other = world.connect();
  int number = 1;
  for (const auto &[bytes, line] : rows) {
    const Descriptor raw = world.raw(bytes);
    EXPECT_EQ(shutdown(raw.number(), SHUT_WR), 0);
    EXPECT_TRUE(world.await_log("Session " + std::to_string(++number) + " ended: ")) << line;
    EXPECT_TRUE(world.await_log(line)) << line;
    EXPECT_TRUE(world.service.await_sessions(1)) << line;
    EXPECT_TRUE(echoes(*other, "still")) << line;
  }
}

TEST(Wire, frames_may_come_in_any_pieces) {
  World world;
  const Descriptor raw = world.raw("");
  for (const char byte : encode_login({"sa", "pw", "", false}) + encode_request({RequestKind::language, "wait", {}})) {
    EXPECT_EQ(send(raw.number(), &byte, 1, MSG_NOSIGNAL), 1);
  }
  EXPECT_TRUE(world.service.await([&] { return world.service.waiting == 1; }));
  world.service.change([&] { world.service.released = true; });
}

TEST(Wire, stalls_end_their_session) {
  World world(milliseconds(30));
  const Descriptor silent = world.raw("");
  EXPECT_TRUE(world.await_log("Session 1 ended: stalled"));
  const Descriptor halting = world.raw(encode_login({}).substr(0, 7));
  EXPECT_TRUE(world.await_log("Session 2 ended: stalled"));
  Request request{RequestKind::language, "echo", {{"@a", std::string(request_limit / 2, 'x')}}};
  const Descriptor unread = world.raw(encode_login({"sa", "pw", "", false}) + encode_request(request));
  EXPECT_TRUE(world.await_log("Session 3 ended: stalled: nothing was read"));
}

TEST(Wire, stopping_breaks_waiting_clients_off) {
  World world;
  auto waiting = world.connect();
  auto idle = world.connect();
  auto reply = std::async(std::launch::async, [&] { return breaks(*waiting, "wait"); });
  EXPECT_TRUE(world.service.await([&] { return world.service.waiting == 1; }));
  EXPECT_TRUE(waiting->alive());
  auto stopped = std::async(std::launch::async, [&] { world.listener.stop(); });
  // The client does not wait for the server to get ready.
  EXPECT_TRUE(reply.get());
  EXPECT_FALSE(waiting->alive());
  world.service.change([&] { world.service.released = true; });
  stopped.get();
  EXPECT_TRUE(world.service.await_sessions(0));
  EXPECT_FALSE(idle->alive());
  EXPECT_FALSE(std::filesystem::exists(world.path));
  EXPECT_EQ(world.connect(), nullptr);
  world.listener.stop();
}

TEST(Wire, sessions_are_bounded) {
  World world;
  std::vector<std::unique_ptr<Session>> sessions;
  for (std::size_t i = 0; i < session_max; ++i) {
    sessions.push_back(world.connect());
    ASSERT_TRUE(sessions.back()) << world.refusal.text;
  }
  EXPECT_EQ(world.connect(), nullptr);
  EXPECT_EQ(world.refusal.number, message_too_many_sessions) << world.refusal.text;
  EXPECT_TRUE(world.await_log("Client refused: there are 256 sessions"));
  sessions.clear();
  ASSERT_TRUE(world.service.await_sessions(0));
  EXPECT_TRUE(world.connect()) << world.refusal.text;
}

// A socket file whose server is gone.
void leave_stale(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(bind(socket.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
}

std::string why_not_listening(const std::string &path) {
  FakeService service;
  try {
    const Listener listener(path, 0600, service, [](const std::string &) {});
  } catch (const std::runtime_error &error) {
    return error.what();
  }
  return "listens";
}

TEST(Wire, paths_that_cannot_be_used) {
  const Folder folder;
  World world;
  leave_stale(folder.file("stale"));
  std::ofstream(folder.file("text")) << "keep me";
  const struct {
    std::string path;
    const char *listening;
    const char *connecting;
  } rows[] = {
      {folder.file("absent"), "listens", "There is no server listening on '"},
      {folder.file("stale"), "listens", "Start it with zdbd DIR --listen /"},
      {folder.file("text"), "is no socket", "There is no server listening on '"},
      {folder.file("none/socket"), "Check that its folder exists", "There is no server listening on '"},
      {folder.file("text/socket"), "Not a directory", "Not a directory"},
      {folder.file(std::string(100, 'p')), "too long", "too long"},
      {"", "needs the path", "needs the path"},
      {world.path, "a server is listening there already", ""},
  };
  for (const auto &[path, listening, connecting] : rows) {
    Message refusal;
    EXPECT_EQ(connect_session(path, {"sa", "pw", "", false}, refusal) != nullptr, path == world.path);
    EXPECT_TRUE(has(refusal.text, connecting)) << path << ": " << refusal.text;
    EXPECT_TRUE(has(why_not_listening(path), listening)) << path << ": " << why_not_listening(path);
  }
  EXPECT_EQ(std::filesystem::file_size(folder.file("text")), 7U);
  EXPECT_NE(world.connect(), nullptr);
}

TEST(Wire, a_stale_file_has_one_taker) {
  for (int round = 0; round < 100 && !testing::Test::HasFailure(); ++round) {
    const Folder folder;
    const std::string path = folder.file("socket");
    leave_stale(path);
    std::latch gate(3);
    std::atomic<int> takers{0};
    std::array<std::unique_ptr<SocketFile>, 3> files;
    std::vector<std::jthread> rivals;
    for (auto &file : files) {
      rivals.emplace_back([&] {
        gate.arrive_and_wait();
        try {
          file = std::make_unique<SocketFile>(path, 0600);
          ++takers;
        } catch (const std::runtime_error &) {
          return;
        }
      });
    }
    rivals.clear();
    EXPECT_EQ(takers, 1) << "round " << round;
    int error = 0;
    EXPECT_TRUE(connect_socket(path, true, error)) << "round " << round;
  }
}

TEST(Wire, another_servers_file_is_left_alone) {
  World world;
  std::filesystem::remove(world.path);
  FakeService service;
  const Listener successor(world.path, 0600, service, [](const std::string &) {});
  world.listener.stop();
  EXPECT_NE(world.connect(), nullptr);
}

TEST(Wire, permissions) {
  const Folder folder;
  const std::string path = folder.file("socket");
  FakeService service;
  for (const mode_t permissions : {mode_t{0600}, mode_t{0666}}) {
    const mode_t old = umask(077);
    const Listener listener(path, permissions, service, [](const std::string &) {});
    umask(old);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, permissions);
  }
  const Listener listener(path, 0, service, [](const std::string &) {});
  Message refusal;
  const bool root = geteuid() == 0;
  ASSERT_TRUE(!root || seteuid(65534) == 0);
  EXPECT_EQ(connect_session(path, {"sa", "pw", "", false}, refusal), nullptr);
  ASSERT_TRUE(!root || seteuid(0) == 0);
  EXPECT_TRUE(has(refusal.text, "may not connect")) << refusal.text;
}

}  // namespace
