// The first byte chooses the kind of payload, the others are decoded. Whatever decodes must encode to
// the same bytes again.
#include <string>

#include "fuzz.h"
#include "wire/frame.h"

namespace {

std::string recoded(unsigned choice, std::string_view payload) {
  switch (choice % 4) {
    case 0:
      return zdb::encode_login(zdb::decode_login(payload));
    case 1:
      return zdb::encode_refusal(zdb::decode_refusal(payload));
    case 2:
      return zdb::encode_request(zdb::decode_request(payload));
    default:
      return zdb::encode_reply(zdb::decode_reply(payload));
  }
}

}  // namespace

void fuzz::frame(std::string_view input) {
  const unsigned choice = take_choice(input);
  // Nothing over the shortest limit, beyond which a login would be refused.
  if (input.size() > zdb::login_limit) {
    return;
  }
  try {
    const std::string frame = recoded(choice, input);
    require(frame.substr(zdb::frame_header_size) == input, "a payload encodes to the bytes it was decoded from");
    const zdb::FrameHeader header = zdb::decode_header(frame.substr(0, zdb::frame_header_size));
    require(header.length == input.size(), "a frame's header holds the payload's length");
  } catch (const zdb::FrameError &) {
    return;  // malformed bytes are refused in this way alone
  }
}
