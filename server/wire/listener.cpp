// Accepting clients, serving their sessions and stopping; see the header.
#include "wire/listener.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include "steps/crash_points.h"

namespace zdb {
namespace {

constexpr int32_t full_severity = 17;
constexpr int32_t error_severity = 16;

// When the process has run out of descriptors or memory, some time must pass before another client is accepted.
constexpr std::chrono::milliseconds breather{100};

// Clients that have not logged in yet; and all, those that were sent away and have not gone yet among them.
constexpr std::size_t login_max = 64;
constexpr std::size_t connection_max = 2 * session_max;

// So long a request may go on before somebody sees that its client has gone.
constexpr std::chrono::milliseconds watch_interval{200};

// The reply to a request for which there is no memory.
Reply no_memory_reply() {
  Reply reply;
  reply.messages.push_back({message_no_memory, error_severity, no_memory});
  reply.results.push_back({ResultKind::failed, {}, {}});
  reply.results.push_back({ResultKind::done, {}, {}});
  return reply;
}

// None when there is no memory for it.
std::optional<Request> request_in(const Frame &frame) {
  try {
    return decode_request(frame.payload);
  } catch (const std::bad_alloc &) {
    return std::nullopt;
  }
}

// Answers the next request; false when there is none, or when the session has broken off.
bool answer_request(const Channel &channel, Session &session, std::chrono::milliseconds limit) {
  const std::optional<Frame> frame = channel.receive({FrameKind::request});
  if (!frame) {
    return false;
  }
  const std::optional<Request> request = request_in(*frame);
  const Reply reply = request ? session.execute(*request) : no_memory_reply();
  const std::string answer = encode_reply(reply);
  crash_point();
  channel.send(answer, limit);
  crash_point();
  return !reply.broken_off;
}

}  // namespace

Listener::Listener(const std::string &path, mode_t permissions, Service &service, Log log,
                   std::chrono::milliseconds stall_limit)
    : file_(path, permissions), service_(service), log_(std::move(log)), stall_limit_(stall_limit) {
  connections_.reserve(connection_max);
  acceptor_ = std::thread([this] { accept_clients(); });
  watcher_ = std::thread([this] { watch_clients(); });
}

Listener::~Listener() {
  stop();
}

void Listener::close() {
  const std::lock_guard<std::mutex> alone(stop_mutex_);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  stop_wanted_.notify_all();
  file_.shut_down();
  for (std::thread *thread : {&acceptor_, &watcher_}) {
    if (thread->joinable()) {
      thread->join();
    }
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &connection : connections_) {
      connection->channel.shut_down();
    }
  }
  file_.remove();
}

void Listener::stop() {
  close();
  const std::lock_guard<std::mutex> alone(stop_mutex_);
  std::vector<std::unique_ptr<Connection>> leaving;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    leaving.swap(connections_);
  }
  // Waits for the threads, which need the mutex to come to their end.
  leaving.clear();
}

bool Listener::stopping() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return stopping_;
}

// A log that fails must not take the session, or the process, with it; neither must a lack of memory for the line.
void Listener::note(std::string_view what, std::string_view why) noexcept {
  try {
    const std::string line = std::string(what).append(": ").append(why);
    const std::lock_guard<std::mutex> lock(log_mutex_);
    log_(line);
  } catch (...) {
    return;
  }
}

void Listener::note_end(uint64_t session, std::string_view why) noexcept {
  std::array<char, 48> what{};
  (void)std::snprintf(what.data(), what.size(), "Session %llu ended", static_cast<unsigned long long>(session));
  note(what.data(), why);
}

void Listener::accept_clients() noexcept {
  while (!stopping()) {
    try {
      accept_client();
    } catch (const std::exception &error) {
      note("Cannot accept a client", error.what());
      std::unique_lock<std::mutex> lock(mutex_);
      stop_wanted_.wait_for(lock, breather, [this] { return stopping_; });
    }
  }
}

void Listener::accept_client() {
  Descriptor socket(accept4(file_.number(), nullptr, nullptr, SOCK_CLOEXEC));
  if (socket) {
    join_finished();
    begin_session(std::move(socket));
    return;
  }
  const int error = errno;
  if (error != EINTR && error != ECONNABORTED && !stopping()) {
    throw std::runtime_error(error_text(error));
  }
}

void Listener::join_finished() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::erase_if(connections_, [](const auto &connection) { return connection->finished; });
}

void Listener::begin_session(Descriptor socket) {
  if (!make_room()) {
    refuse_session(Channel(std::move(socket)));
    return;
  }
  auto connection = std::make_unique<Connection>(Connection{++last_number_, Channel(std::move(socket), stall_limit_)});
  Connection &served = *connection;
  served.thread = std::jthread([this, &served] { serve(served); });
  // There is room: this cannot fail and leave the thread without its connection.
  const std::lock_guard<std::mutex> lock(mutex_);
  connections_.push_back(std::move(connection));
}

// Whoever does not log in must not keep out those who do: the oldest one goes. False when nobody can be sent away, or
// those who were have not gone yet.
bool Listener::make_room() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::size_t waiting = 0;
  Connection *oldest = nullptr;
  for (const auto &connection : connections_) {
    if (connection->session == nullptr && !connection->sent_away && !connection->finished) {
      ++waiting;
      oldest = oldest == nullptr ? connection.get() : oldest;
    }
  }
  if (waiting >= login_max) {
    oldest->sent_away = true;
    oldest->channel.shut_down();
  }
  return connections_.size() < connection_max && connections_.size() - waiting < session_max + login_max;
}

// A new socket has room for this much, so sending it does not hold up the other clients.
void Listener::refuse_session(const Channel &channel) {
  const std::string most = std::to_string(session_max);
  note("Client refused", "there are " + most + " sessions");
  try {
    channel.send(
        encode_refusal({message_too_many_sessions, full_severity,
                        "The server has " + most + " sessions, as many as it can. Log some out or try again later."}),
        breather);
  } catch (const FrameError &) {
    // The client has gone already.
    return;
  }
}

void Listener::serve(Connection &connection) noexcept {
  try {
    converse(connection);
  } catch (const std::exception &error) {
    note_end(connection.number, error.what());
  } catch (...) {
    note_end(connection.number, "an exception of an unknown type");
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  connection.channel.close();
  connection.finished = true;
}

// The session is logged out on return, before the client can see that the connection is closed.
void Listener::converse(Connection &connection) {
  const Channel &channel = connection.channel;
  const std::optional<Frame> frame = channel.receive({FrameKind::login}, stall_limit_);
  if (!frame) {
    return;
  }
  Message refusal;
  const Login login = decode_login(frame->payload);
  const std::unique_ptr<Session> session = service_.log_in(login, refusal);
  if (session == nullptr) {
    note("Client refused", refusal.text);
    channel.send(encode_refusal(refusal), stall_limit_);
    return;
  }
  if (!put_session(connection, session.get())) {
    refuse_session(channel);
    return;
  }
  struct Withdrawal {
    Listener &listener;
    Connection &connection;
    ~Withdrawal() { listener.put_session(connection, nullptr); }
  } const withdrawal{*this, connection};
  channel.send(encode_accepted(), stall_limit_);
  while (answer_request(channel, *session, stall_limit_)) {
  }
}

// False when there are as many as there may be.
bool Listener::put_session(Connection &connection, Session *session) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto sessions = std::count_if(connections_.begin(), connections_.end(),
                                      [](const auto &other) { return other->session != nullptr; });
  if (session != nullptr && static_cast<std::size_t>(sessions) >= session_max) {
    return false;
  }
  connection.session = session;
  return true;
}

// A session's own thread does not look at its client while it is at a request.
void Listener::watch_clients() noexcept {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_wanted_.wait_for(lock, watch_interval, [this] { return stopping_; })) {
    for (const auto &connection : connections_) {
      if (connection->session != nullptr && connection->channel.hung_up()) {
        connection->session->abandon();
      }
    }
  }
}

}  // namespace zdb
