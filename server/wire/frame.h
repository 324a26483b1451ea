// The frames that clients and servers exchange, and what they hold. A frame is the payload's length (32
// bits), a kind (one byte) and the payload. Numbers are little-endian; a text is its length (32 bits) and its bytes, a
// list its count (32 bits) and its elements.
//
// The encoders give a whole frame, the decoders take its payload. A decoder either gives the object or throws
// FrameError, whatever bytes it is given, and an object encodes to the very bytes it was decoded from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "interface/session.h"

namespace zdb {

// The other side broke the rules of the wire, or the connection failed: its session is over.
class FrameError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class FrameKind : uint8_t {
  login = 1,  // the first frame, from the client; answered by one of the next two
  accepted,   // without payload
  refused,    // a message; the server ends the connection
  request,    // from the client; answered by a reply
  reply
};

// The longest payloads.
inline constexpr std::size_t login_limit = std::size_t{4} * 1024;
inline constexpr std::size_t refusal_limit = std::size_t{64} * 1024;
inline constexpr std::size_t request_limit = std::size_t{2} * 1024 * 1024;
inline constexpr std::size_t reply_limit = std::size_t{64} * 1024 * 1024;

inline constexpr std::size_t frame_header_size = 5;
inline constexpr int32_t message_reply_too_large = 3301;
inline constexpr int32_t message_request_too_large = 3303;

struct FrameHeader {
  std::size_t length;  // of the payload, within the kind's limit
  FrameKind kind;
};

// The bytes are frame_header_size many. Throws for an unknown kind or a payload over the kind's limit.
FrameHeader decode_header(std::string_view bytes);

const char *frame_kind_name(FrameKind kind);

// Logins and requests over their limits throw, the text of a refusal is cut.
std::string encode_login(const Login &login);
std::string encode_accepted();
std::string encode_refusal(const Message &refusal);
std::string encode_request(const Request &request);
// A reply over the limit becomes one that tells the client so: a message, failed and done.
std::string encode_reply(const Reply &reply);

Login decode_login(std::string_view payload);
Message decode_refusal(std::string_view payload);
Request decode_request(std::string_view payload);
Reply decode_reply(std::string_view payload);

}  // namespace zdb
