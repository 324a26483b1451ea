// Sends and receives whole frames; see the header.
#include "wire/channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace zdb {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A payload is received in steps of this size: one that is only announced takes no memory.
constexpr std::size_t step_size = std::size_t{256} * 1024;

// Until when input is waited for; without end when no time is given.
struct Patience {
  milliseconds limit{};
  std::optional<Clock::time_point> end;
};

Patience patience_for(milliseconds limit) {
  return {limit, Clock::now() + limit};
}

// What is left, as poll wants it: rounded up, so that it does not spin before the end.
int poll_timeout(const Patience &patience) {
  if (!patience.end) {
    return -1;
  }
  const auto left = std::chrono::ceil<milliseconds>(*patience.end - Clock::now());
  return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 3'600'000));
}

void await_input(int socket, const Patience &patience) {
  pollfd watched = {socket, POLLIN, 0};
  const int ready = poll(&watched, 1, poll_timeout(patience));
  if (ready < 0 && errno != EINTR) {
    throw FrameError("cannot wait for input: " + error_text(errno));
  }
  if (ready == 0 && patience.end && Clock::now() >= *patience.end) {
    throw FrameError("stalled: no whole frame came within " + std::to_string(patience.limit.count()) + " ms");
  }
}

void await_room(int socket, milliseconds limit) {
  pollfd watched = {socket, POLLOUT, 0};
  const int ready = poll(&watched, 1, static_cast<int>(limit.count()));
  if (ready < 0 && errno != EINTR) {
    throw FrameError("cannot wait for room: " + error_text(errno));
  }
  if (ready == 0) {
    throw FrameError("stalled: nothing was read within " + std::to_string(limit.count()) + " ms");
  }
}

// Receives at least one byte and tells how many; 0 at the end of the stream.
std::size_t receive_some(int socket, char *bytes, std::size_t size, const Patience &patience) {
  while (true) {
    const ssize_t got = recv(socket, bytes, size, patience.end ? MSG_DONTWAIT : 0);
    if (got >= 0) {
      return static_cast<std::size_t>(got);
    }
    if (errno == EAGAIN) {
      await_input(socket, patience);
    } else if (errno == ECONNRESET) {
      // The other side closed without having read everything: an end like any other.
      return 0;
    } else if (errno != EINTR) {
      throw FrameError("cannot receive: " + error_text(errno));
    }
  }
}

void receive_all(int socket, char *bytes, std::size_t size, const Patience &patience) {
  while (size > 0) {
    const std::size_t got = receive_some(socket, bytes, size, patience);
    if (got == 0) {
      throw FrameError("the stream ended in the middle of a frame");
    }
    bytes += got;
    size -= got;
  }
}

std::string receive_payload(int socket, std::size_t length, const Patience &patience) {
  std::string payload;
  while (payload.size() < length) {
    const std::size_t start = payload.size();
    payload.resize(std::min(length, start + step_size));
    receive_all(socket, payload.data() + start, payload.size() - start, patience);
  }
  return payload;
}

}  // namespace

Channel::Channel(Descriptor socket, milliseconds stall_limit) : socket_(std::move(socket)), stall_limit_(stall_limit) {}

void Channel::send(std::string_view frame, std::optional<milliseconds> limit) const {
  const int flags = MSG_NOSIGNAL | (limit ? MSG_DONTWAIT : 0);
  while (!frame.empty()) {
    const ssize_t sent = ::send(socket_.number(), frame.data(), frame.size(), flags);
    if (sent >= 0) {
      frame.remove_prefix(static_cast<std::size_t>(sent));
    } else if (limit && errno == EAGAIN) {
      await_room(socket_.number(), *limit);
    } else if (errno != EINTR) {
      throw FrameError("cannot send: " + error_text(errno));
    }
  }
}

std::optional<Frame> Channel::receive(std::initializer_list<FrameKind> expected,
                                      std::optional<milliseconds> limit) const {
  const int socket = socket_.number();
  Patience patience = limit ? patience_for(*limit) : Patience{};
  std::array<char, frame_header_size> bytes{};
  const std::size_t got = receive_some(socket, bytes.data(), bytes.size(), patience);
  if (got == 0) {
    return std::nullopt;
  }
  if (!limit) {
    patience = patience_for(stall_limit_);
  }
  receive_all(socket, bytes.data() + got, bytes.size() - got, patience);
  const FrameHeader header = decode_header({bytes.data(), bytes.size()});
  if (std::find(expected.begin(), expected.end(), header.kind) == expected.end()) {
    throw FrameError(std::string("a ") + frame_kind_name(header.kind) + " where a " +
                     frame_kind_name(*expected.begin()) + " was due");
  }
  return Frame{header.kind, receive_payload(socket, header.length, patience)};
}

void Channel::shut_down() const noexcept {
  (void)shutdown(socket_.number(), SHUT_RDWR);
}

void Channel::close() noexcept {
  socket_ = Descriptor();
}

bool Channel::hung_up() const noexcept {
  pollfd watched = {socket_.number(), 0, 0};
  return poll(&watched, 1, 0) > 0 && (watched.revents & (POLLHUP | POLLERR)) != 0;
}

bool Channel::peer_gone() const noexcept {
  pollfd watched = {socket_.number(), POLLIN, 0};
  if (poll(&watched, 1, 0) <= 0) {
    return false;
  }
  char byte = 0;
  const ssize_t got = recv(socket_.number(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR);
}

}  // namespace zdb
