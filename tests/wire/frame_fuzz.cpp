/*
 * frame_fuzz.cpp - entry of a fuzzer: the first byte chooses the kind of payload, the others are decoded. Whatever
 * decodes must encode to the same bytes again.
 */
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "frame.h"

namespace {

using zdb::frame_header_size;

std::string recoded(uint8_t choice, std::string_view payload) {
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

void require(bool kept) {
  if (!kept) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
  /* Nothing longer than the shortest limit, over which a login would be refused. */
  if (size == 0 || size > zdb::login_limit) {
    return 0;
  }
  const std::string_view payload(reinterpret_cast<const char *>(data) + 1, size - 1);
  try {
    const std::string frame = recoded(data[0], payload);
    require(frame.substr(frame_header_size) == payload);
    require(zdb::decode_header(frame.substr(0, frame_header_size)).length == payload.size());
  } catch (const zdb::FrameError &) {
    return 0;
  }
  return 0;
}
