// The contents of frames: what is sent arrives unchanged, and nothing malformed is taken for an
// object.
//
// That objects arrive unchanged is shown by their bytes: objects that differ in any member have different frames, and
// the object that a frame decodes to has the same frame again.
#include "wire/frame.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace {

using namespace zdb;

const std::vector<Value> values = {std::monostate{},
                                   int64_t{0},
                                   std::numeric_limits<int64_t>::min(),
                                   std::numeric_limits<int64_t>::max(),
                                   -0.0,
                                   std::numeric_limits<double>::infinity(),
                                   std::numeric_limits<double>::quiet_NaN(),
                                   std::numeric_limits<double>::denorm_min(),
                                   std::string(),
                                   std::string("a\0\xff", 3),
                                   Binary{},
                                   Binary{std::string(300, '\x80')}};

std::vector<Login> logins() {
  return {{}, {"sa", "", "", false}, {"", "sa", "", false}, {"", "", "sa", false}, {"", "", "", true}};
}

std::vector<Message> refusals() {
  return {{}, {-1, 0, ""}, {0, std::numeric_limits<int32_t>::min(), ""}, {0, 0, "no"}};
}

// Every kind, name and value.
std::vector<Request> requests() {
  std::vector<Request> made = {{RequestKind::language, "select", {}}, {RequestKind::language, "", {{"@a", {}}}}};
  for (int kind = 0; kind <= static_cast<int>(RequestKind::administer); ++kind) {
    made.push_back({static_cast<RequestKind>(kind), "", {}});
  }
  for (const Value &value : values) {
    made.push_back({RequestKind::procedure, "", {{"", value}}});
  }
  return made;
}

// Every member of a reply and its parts, every kind and type, every value in rows of different lengths.
std::vector<Reply> replies() {
  std::vector<Reply> made(4);
  made[1].broken_off = true;
  made[2].messages = {{1, 2, "three"}, {-4, -5, ""}};
  made[3].fetch_codes = {-200, 0, 7};
  const auto add = [&](const Result &result) { made.emplace_back().results = {{}, result}; };
  for (int kind = 0; kind <= static_cast<int>(ResultKind::failed); ++kind) {
    add({static_cast<ResultKind>(kind), {}, {}});
  }
  for (int type = 0; type <= static_cast<int>(ColumnType::binary); ++type) {
    add({ResultKind::rows, {{"", static_cast<ColumnType>(type), 4}}, {}});
  }
  add({ResultKind::rows, {{"a", {}, 4}}, {}});
  add({ResultKind::rows, {{"", {}, -255}, {}}, {}});
  add({ResultKind::rows, {}, {values, {}, {int64_t{7}}}});
  add({ResultKind::rows, {}, {}, int64_t{1} << 40});
  return made;
}

template <typename Object>
struct Codec {
  std::string (*encode)(const Object &);
  Object (*decode)(std::string_view);
  FrameKind kind;
};

const Codec<Login> login_codec = {encode_login, decode_login, FrameKind::login};
const Codec<Message> refusal_codec = {encode_refusal, decode_refusal, FrameKind::refused};
const Codec<Request> request_codec = {encode_request, decode_request, FrameKind::request};
const Codec<Reply> reply_codec = {encode_reply, decode_reply, FrameKind::reply};

// The payload in memory of exactly its size, so that an AddressSanitizer sees a read beyond it.
template <typename Object>
Object decode(const Codec<Object> &codec, std::string_view payload) {
  const std::vector<char> exact(payload.begin(), payload.end());
  return codec.decode({exact.data(), exact.size()});
}

// No byte may stand for another one, and a list of 4 billion elements is none that is due.
template <typename Object>
void check_overwritten(const Codec<Object> &codec, const std::string &payload) {
  for (std::size_t at = 0; at < payload.size(); ++at) {
    for (const std::string &bytes : {std::string("\xff"), std::string("\xff\xff\xff\xff"), std::string("\7")}) {
      std::string changed = payload;
      changed.replace(at, bytes.size(), bytes);
      try {
        EXPECT_EQ(codec.encode(decode(codec, changed)).substr(frame_header_size), changed) << at;
      } catch (const FrameError &) {
        continue;
      }
    }
  }
}

// Every beginning of a payload, and the payload with a byte more, is refused.
template <typename Object>
void check_all(const Codec<Object> &codec, const std::vector<Object> &objects) {
  std::set<std::string> frames;
  for (const Object &object : objects) {
    const std::string frame = codec.encode(object);
    SCOPED_TRACE(testing::PrintToString(frame));
    EXPECT_TRUE(frames.insert(frame).second);
    const FrameHeader header = decode_header(frame.substr(0, frame_header_size));
    const std::string payload = frame.substr(frame_header_size);
    EXPECT_EQ(header.kind, codec.kind);
    EXPECT_EQ(header.length, payload.size());
    EXPECT_EQ(codec.encode(decode(codec, payload)), frame);
    for (std::size_t length = 0; length < payload.size(); ++length) {
      EXPECT_THROW(decode(codec, payload.substr(0, length)), FrameError) << length;
    }
    EXPECT_THROW(decode(codec, payload + '\0'), FrameError);
    check_overwritten(codec, payload);
  }
}

TEST(Frame, contents_arrive_whole_or_not_at_all) {
  check_all(login_codec, logins());
  check_all(refusal_codec, refusals());
  check_all(request_codec, requests());
  check_all(reply_codec, replies());
}

TEST(Frame, numbers_are_little_endian) {
  EXPECT_EQ(encode_request({RequestKind::procedure, "ab", {}}), std::string("\x0b\0\0\0\4\1\2\0\0\0ab\0\0\0\0", 16));
}

Reply reply_of(const Result &result) {
  Reply reply;
  reply.results.push_back(result);
  return reply;
}

TEST(Frame, limits_hold) {
  EXPECT_NO_THROW(encode_login({std::string(login_limit - 13, 'u'), "", "", false}));
  EXPECT_THROW(encode_login({std::string(login_limit - 12, 'u'), "", "", false}), FrameError);
  EXPECT_NO_THROW(encode_request({RequestKind::language, std::string(request_limit - 9, ' '), {}}));
  EXPECT_THROW(encode_request({RequestKind::language, std::string(request_limit - 8, ' '), {}}), FrameError);
  const std::string refusal = encode_refusal({1, 2, std::string(refusal_limit, 'm')});
  EXPECT_EQ(refusal.size(), frame_header_size + refusal_limit);
  EXPECT_EQ(decode_refusal(refusal.substr(frame_header_size)).number, 1);
}

TEST(Frame, too_large_a_reply_becomes_a_message) {
  const std::size_t rest = encode_reply(reply_of({ResultKind::rows, {}, {{std::string()}}})).size() - frame_header_size;
  Reply reply = reply_of({ResultKind::rows, {}, {{std::string(reply_limit - rest, 'r')}}});
  EXPECT_EQ(encode_reply(reply).size(), frame_header_size + reply_limit);
  std::get<std::string>(reply.results[0].rows[0][0]) += 'r';
  const Reply sent = decode_reply(encode_reply(reply).substr(frame_header_size));
  ASSERT_EQ(sent.messages.size(), 1U);
  EXPECT_EQ(sent.messages[0].number, message_reply_too_large);
  ASSERT_EQ(sent.results.size(), 2U);
  EXPECT_EQ(sent.results[0].kind, ResultKind::failed);
  EXPECT_EQ(sent.results[1].kind, ResultKind::done);
}

}  // namespace
