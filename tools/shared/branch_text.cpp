// Six bits a character, the last ones filled up with zero bits and not padded.
#include "branch_text.h"

#include <cstdint>

#include "hex_text.h"
#include "xid_bytes.h"

namespace {

constexpr std::string_view alphabet = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ@#";

std::string branch_text_of(std::string_view bytes) {
  std::string text;
  uint32_t pending = 0;
  int bits = 0;
  for (const char c : bytes) {
    pending = (pending << 8) | static_cast<unsigned char>(c);
    for (bits += 8; bits >= 6; bits -= 6) {
      text += alphabet[(pending >> (bits - 6)) & 63];
    }
  }
  if (bits > 0) {
    text += alphabet[(pending << (6 - bits)) & 63];
  }
  return text;
}

}  // namespace

std::optional<std::string> bytes_of_branch_text(std::string_view text) {
  std::string bytes;
  uint32_t pending = 0;
  int bits = 0;
  for (const char c : text) {
    const size_t value = alphabet.find(c);
    if (value == std::string_view::npos) {
      return std::nullopt;
    }
    pending = (pending << 6) | static_cast<uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>(pending >> bits));
    }
  }
  return bytes;
}

std::string branch_name(const XID &xid, std::string_view lrm) {
  std::string name = hex_number(static_cast<uint32_t>(xid.formatID));
  name.append("_").append(branch_text_of(gtrid_of(xid)));
  name.append("_").append(branch_text_of(bqual_of(xid)));
  return name.append("_:").append(lrm);
}
