// A connected socket that carries whole frames. Whatever goes wrong throws FrameError, but for the end of
// the stream between two frames, with which the other side ends a session.
//
// One thread sends and receives; others may meanwhile ask whether the peer has gone or shut the channel down.
#pragma once

#include <chrono>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "wire/frame.h"
#include "wire/socket.h"

namespace zdb {

// Within this time after its first byte the whole frame must have come.
inline constexpr std::chrono::milliseconds default_stall_limit{10'000};

struct Frame {
  FrameKind kind;
  std::string payload;
};

class Channel {
 public:
  explicit Channel(Descriptor socket, std::chrono::milliseconds stall_limit = default_stall_limit);

  // Sends a frame as the encoders give it. With a limit the other side must not stop reading for so long.
  void send(std::string_view frame, std::optional<std::chrono::milliseconds> limit = std::nullopt) const;
  // The next frame, which must be of an expected kind; none at the end of the stream. With a limit the whole frame must
  // have come within it from now on, otherwise its beginning is waited for without end.
  std::optional<Frame> receive(std::initializer_list<FrameKind> expected,
                               std::optional<std::chrono::milliseconds> limit = std::nullopt) const;

  // Whoever sends or receives on either side is woken and finds the stream at its end.
  void shut_down() const noexcept;
  // Not while another thread uses the channel.
  void close() noexcept;
  // The other side has closed the connection and nothing that it sent before is left to be received. Does not wait.
  bool peer_gone() const noexcept;
  // The other side has closed the connection, whatever it sent before. Does not wait.
  bool hung_up() const noexcept;

 private:
  Descriptor socket_;
  std::chrono::milliseconds stall_limit_;
};

}  // namespace zdb
