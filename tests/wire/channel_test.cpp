/* channel_test.cpp - a channel on one end of a socket pair, raw bytes on the other. */
#include "channel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <thread>

namespace {

using namespace zdb;
using std::chrono::milliseconds;

struct Pair {
  explicit Pair(milliseconds stall_limit = default_stall_limit) {
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    channel = Channel(Descriptor(ends[0]), stall_limit);
    raw = Descriptor(ends[1]);
  }
  void put(const std::string &bytes) const {
    EXPECT_EQ(send(raw.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }

  Channel channel{Descriptor()};
  Descriptor raw;
};

/* What receiving a request comes to. */
std::string outcome(const Channel &channel, std::optional<milliseconds> limit = std::nullopt) {
  try {
    const std::optional<Frame> frame = channel.receive({FrameKind::request}, limit);
    return frame ? decode_request(frame->payload).text : "end";
  } catch (const FrameError &error) {
    return error.what();
  }
}

const std::string request = encode_request({RequestKind::language, "select", {}});

std::string header(uint8_t kind, uint32_t length) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>((length >> shift) & 0xff);
  }
  return bytes + static_cast<char>(kind);
}

TEST(Channel, WhatComesBeforeTheEndOfTheStream) {
  const struct {
    const char *name;
    std::string bytes;
    const char *wanted;
  } rows[] = {
      {"nothing", "", "end"},
      {"a request", request, "select"},
      {"part of a header", request.substr(0, 3), "middle of a frame"},
      {"a header", request.substr(0, frame_header_size), "middle of a frame"},
      {"part of a payload", request.substr(0, request.size() - 1), "middle of a frame"},
      {"a login", encode_login({}), "a login where a request was due"},
      {"a long reply's header", header(5, reply_limit), "a reply where a request was due"},
      {"kind 0", header(0, 0), "unknown kind 0"},
      {"kind 6", header(6, 0), "unknown kind 6"},
      {"too long a request", header(4, request_limit + 1), "2097152 are allowed"},
      {"a request of all of 32 bits", header(4, 0xffffffff), "2097152 are allowed"},
      {"too long an acceptance", header(2, 1), "0 are allowed"},
      {"a malformed request", header(4, 1) + "\xff", "malformed request"},
  };
  for (const auto &[name, bytes, wanted] : rows) {
    Pair pair;
    pair.put(bytes);
    pair.raw = Descriptor();
    EXPECT_NE(outcome(pair.channel).find(wanted), std::string::npos) << name;
  }
}

TEST(Channel, FramesMayComeInAnyPieces) {
  const Pair pair;
  pair.put(request.substr(0, 2));
  std::thread sender([&] {
    for (const char byte : request.substr(2) + request) {
      pair.put(std::string(1, byte));
    }
  });
  EXPECT_EQ(outcome(pair.channel), "select");
  EXPECT_EQ(outcome(pair.channel), "select");
  sender.join();
}

TEST(Channel, StallsAreNoticed) {
  for (const std::size_t length : {std::size_t{1}, frame_header_size, request.size() - 1}) {
    const Pair pair(milliseconds(20));
    pair.put(request.substr(0, length));
    EXPECT_NE(outcome(pair.channel).find("within 20 ms"), std::string::npos) << length;
  }
  const Pair silent;
  EXPECT_NE(outcome(silent.channel, milliseconds(10)).find("within 10 ms"), std::string::npos);
}

TEST(Channel, ThePeersEndIsSeenWithoutWaiting) {
  Pair pair;
  EXPECT_FALSE(pair.channel.peer_gone());
  pair.put(request);
  pair.channel.send(request);
  pair.raw = Descriptor();
  /* It left without reading, which resets the connection: still an end like any other. */
  EXPECT_EQ(outcome(pair.channel), "select");
  EXPECT_TRUE(pair.channel.peer_gone());
  EXPECT_EQ(outcome(pair.channel), "end");
  EXPECT_THROW(pair.channel.send(request), FrameError);
}

}  // namespace
