// UTF-8 is read strictly: shortest forms, no surrogates, nothing beyond U+10FFFF.
#include "shown_text.h"

#include <algorithm>
#include <cstdint>

#include "hex_text.h"

namespace {

constexpr size_t escape_size = sizeof "\\xHH" - 1;

size_t length_by(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if (first < 0xC0) {
    return 0;
  }
  return first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF8 ? 4 : 0;
}

bool is_shown(uint32_t code, size_t length) {
  static constexpr uint32_t smallest[] = {0, 0x20, 0xA0, 0x800, 0x10000};
  return code >= smallest[length] && code != 0x7F && (code < 0xD800 || code > 0xDFFF) && code <= 0x10FFFF;
}

}  // namespace

size_t shown_length(std::string_view text) {
  const size_t length = text.empty() ? 0 : length_by(static_cast<unsigned char>(text[0]));
  if (length == 0 || length > text.size()) {
    return 0;
  }
  uint32_t code = static_cast<unsigned char>(text[0]) & (length == 1 ? 0x7FU : 0xFFU >> (length + 1));
  for (const char c : text.substr(1, length - 1)) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0U) != 0x80) {
      return 0;
    }
    code = (code << 6) | (byte & 0x3FU);
  }
  return is_shown(code, length) ? length : 0;
}

namespace {

std::string escape_of(char c) {
  return "\\x" + hex_of({&c, 1});
}

bool is_escape(std::string_view text) {
  return text.size() >= escape_size && text.starts_with("\\x") && bytes_of_hex(text.substr(2, 2)).has_value();
}

template <typename Escapes>
std::string escaped(std::string_view text, Escapes escapes) {
  std::string out;
  while (!text.empty()) {
    const size_t length = shown_length(text);
    const bool stays = !escapes(text, length);
    out += stays ? std::string(text.substr(0, std::max<size_t>(length, 1))) : escape_of(text[0]);
    text.remove_prefix(stays ? std::max<size_t>(length, 1) : 1);
  }
  return out;
}

}  // namespace

std::string visible(std::string_view text) {
  return escaped(
      text, [](std::string_view rest, size_t length) { return length == 0 && rest[0] != '\n' && rest[0] != '\t'; });
}

std::string pasteable(std::string_view text) {
  return escaped(text, [](std::string_view rest, size_t length) { return length == 0 || is_escape(rest); });
}

std::string pasteable_ascii(std::string_view text) {
  return escaped(text, [](std::string_view rest, size_t length) { return length != 1 || is_escape(rest); });
}

std::string original_of(std::string_view pasted) {
  std::string out;
  while (!pasted.empty()) {
    const bool is_one = is_escape(pasted);
    out += is_one ? *bytes_of_hex(pasted.substr(2, 2)) : std::string(1, pasted[0]);
    pasted.remove_prefix(is_one ? escape_size : 1);
  }
  return out;
}
