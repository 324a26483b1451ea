// The client's side of the wire: connecting, logging in, and requests.
#include "wire/remote_session.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include "wire/channel.h"

namespace zdb {
namespace {

constexpr int32_t message_no_server = 3000;
constexpr int32_t no_server_severity = 18;
constexpr int32_t error_severity = 16;

// A server that is busy may take its time, but a client should not hang on one that has been stopped for good.
constexpr std::chrono::milliseconds login_answer_limit{60'000};

class RemoteSession final : public Session {
 public:
  explicit RemoteSession(Channel channel) : channel_(std::move(channel)) {}

  Reply execute(const Request &request) override;
  bool alive() const override { return !broken_ && !channel_.peer_gone(); }

 private:
  Reply exchange(const Request &request) const;

  // Never closed before the destructor: alive() may be looking at it.
  Channel channel_;
  std::atomic<bool> broken_{false};
};

Reply broken_reply() {
  Reply reply;
  reply.broken_off = true;
  return reply;
}

Reply too_large_reply() {
  Reply reply;
  reply.messages.push_back({message_request_too_large, error_severity,
                            "The request has more than " + std::to_string(request_limit) +
                                " bytes, which the server does not take. Send less at a time."});
  reply.results.push_back({ResultKind::failed, {}, {}});
  reply.results.push_back({ResultKind::done, {}, {}});
  return reply;
}

// The request as a frame; none when it is too long for one.
std::optional<std::string> request_frame(const Request &request) {
  try {
    return encode_request(request);
  } catch (const FrameError &) {
    return std::nullopt;
  }
}

// After any failure nobody can say which reply would belong to which request, so the session is over.
Reply RemoteSession::execute(const Request &request) {
  if (broken_) {
    return broken_reply();
  }
  Reply reply = exchange(request);
  if (reply.broken_off) {
    broken_ = true;
    channel_.shut_down();
  }
  return reply;
}

Reply RemoteSession::exchange(const Request &request) const {
  try {
    const std::optional<std::string> sent = request_frame(request);
    if (!sent) {
      return too_large_reply();
    }
    channel_.send(*sent);
    const std::optional<Frame> frame = channel_.receive({FrameKind::reply});
    return frame ? decode_reply(frame->payload) : broken_reply();
  } catch (const std::exception &) {
    return broken_reply();
  }
}

Message unreachable(const std::string &path, int error) {
  std::string text;
  if (error == ENOENT || error == ECONNREFUSED) {
    text = "There is no server listening on '" + path + "'. Start it with zdbd DIR --listen " + path;
  } else if (error == EACCES || error == EPERM) {
    text = "This user may not connect to '" + path +
           "'. Ask the server's owner for write permission on it, and check that its folders may be entered.";
  } else {
    text = "Cannot connect to '" + path + "': " + error_text(error) + ". Check the path and this process's limits.";
  }
  return {message_no_server, no_server_severity, std::move(text)};
}

Message unanswered(const std::string &path, const std::string &why) {
  return {message_no_server, no_server_severity,
          "The server listening on '" + path + "' did not answer the login: " + why +
              ". Check that it is a zdbd of this version and look into its log."};
}

// The frame that a server answers a login with.
std::optional<Frame> answer_to(const std::string &login_frame, const Channel &channel) {
  try {
    channel.send(login_frame);
  } catch (const FrameError &) {
    // A server that is full refuses without reading the login; its answer has come all the same.
  }
  return channel.receive({FrameKind::accepted, FrameKind::refused}, login_answer_limit);
}

// The login is accepted: true. Otherwise refusal is set.
bool log_in(const Channel &channel, const std::string &path, const std::string &login_frame, Message &refusal) {
  try {
    const std::optional<Frame> answer = answer_to(login_frame, channel);
    if (!answer) {
      refusal = unanswered(path, "it ended the connection");
      return false;
    }
    if (answer->kind == FrameKind::refused) {
      refusal = decode_refusal(answer->payload);
      return false;
    }
    return true;
  } catch (const FrameError &error) {
    refusal = unanswered(path, error.what());
    return false;
  }
}

// The login as a frame; empty when it is too long for one.
std::string login_frame(const Login &login, Message &refusal) {
  try {
    return encode_login(login);
  } catch (const FrameError &) {
    refusal = {message_no_server, no_server_severity,
               "User name, password and application name are too long: together they may have about " +
                   std::to_string(login_limit) + " bytes. Shorten them."};
    return {};
  }
}

}  // namespace

std::unique_ptr<Session> connect_session(const std::string &socket_path, const Login &login, Message &refusal) {
  try {
    check_socket_path(socket_path);
  } catch (const std::runtime_error &error) {
    refusal = {message_no_server, no_server_severity, error.what()};
    return nullptr;
  }
  const std::string frame = login_frame(login, refusal);
  if (frame.empty()) {
    return nullptr;
  }
  int error = 0;
  Descriptor socket = connect_socket(socket_path, true, error);
  if (!socket) {
    refusal = unreachable(socket_path, error);
    return nullptr;
  }
  Channel channel(std::move(socket));
  if (!log_in(channel, socket_path, frame, refusal)) {
    return nullptr;
  }
  return std::make_unique<RemoteSession>(std::move(channel));
}

}  // namespace zdb
