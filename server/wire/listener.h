// The server's side of the wire: accepts clients on a socket file and serves each session in a thread of
// its own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "interface/session.h"
#include "wire/channel.h"
#include "wire/socket.h"

namespace zdb {

// More sessions than these are refused.
inline constexpr std::size_t session_max = 256;
inline constexpr int32_t message_too_many_sessions = 3302;

// What a listener serves. Called from many threads at once; what it or a session of it throws ends that session.
class Service {
 public:
  Service() = default;
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  virtual ~Service() = default;
  // Null with a refusal when the login is refused.
  virtual std::unique_ptr<Session> log_in(const Login &login, Message &refusal) = 0;
};

class Listener {
 public:
  // Takes a line of the server's log, from one thread at a time.
  using Log = std::function<void(const std::string &)>;

  // Throws std::runtime_error, with what to do about it, when the path cannot be listened on.
  Listener(const std::string &path, mode_t permissions, Service &service, Log log,
           std::chrono::milliseconds stall_limit = default_stall_limit);
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;
  ~Listener();

  // Removes the file and ends all sessions, but does not wait for the requests that are being executed; their replies
  // do not reach the clients. May be called again; never from the service or the log.
  void close();
  // Closes, and waits for the sessions' threads.
  void stop();

 private:
  // A client, from its acceptance to its end.
  struct Connection {
    uint64_t number;  // names it in the log
    Channel channel;
    bool finished = false;       // the thread has nothing left to do
    bool sent_away = false;      // it took too long to log in
    Session *session = nullptr;  // while its client is logged in
    std::jthread thread{};
  };

  bool stopping() const;
  void note(std::string_view what, std::string_view why) noexcept;
  void note_end(uint64_t session, std::string_view why) noexcept;
  void accept_clients() noexcept;
  void accept_client();
  void begin_session(Descriptor socket);
  bool make_room();
  void refuse_session(const Channel &channel);
  void join_finished();
  void serve(Connection &connection) noexcept;
  void converse(Connection &connection);
  bool put_session(Connection &connection, Session *session);
  void watch_clients() noexcept;

  SocketFile file_;
  Service &service_;
  Log log_;
  std::chrono::milliseconds stall_limit_;
  std::mutex stop_mutex_;  // one thread stops at a time
  std::mutex log_mutex_;
  // Guards the wish to stop, what is finished, sessions, and channels against being closed while they are shut down.
  mutable std::mutex mutex_;
  std::condition_variable stop_wanted_;
  bool stopping_ = false;
  // Changed by the acceptor alone, under the mutex, and after its end by whoever stops. Room for all is reserved.
  std::vector<std::unique_ptr<Connection>> connections_;
  uint64_t last_number_ = 0;
  std::thread acceptor_;
  std::thread watcher_;
};

}  // namespace zdb
