// Conversions that take a text as a whole or not at all.
#include "hex_text.h"

#include <array>
#include <charconv>

namespace {

template <typename Number>
std::optional<Number> whole_number(std::string_view text, int base) {
  Number number = 0;
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (text.empty() || error != std::errc() || stop != end) {
    return std::nullopt;
  }
  return number;
}

}  // namespace

std::string hex_of(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string out;
  out.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += {digits[byte >> 4], digits[byte & 15]};
  }
  return out;
}

std::optional<std::string> bytes_of_hex(std::string_view digits) {
  std::string bytes;
  for (size_t at = 0; at < digits.size(); at += 2) {
    const std::string_view pair = digits.substr(at, 2);
    const std::optional<uint8_t> byte = whole_number<uint8_t>(pair, 16);
    if (pair.size() != 2 || !byte) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<char>(*byte));
  }
  return bytes;
}

std::string hex_number(uint32_t number) {
  std::array<char, 8> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
  return {digits.data(), end};
}

std::optional<uint32_t> number_of_hex(std::string_view digits) {
  return whole_number<uint32_t>(digits, 16);
}

std::optional<int32_t> integer_of(std::string_view text) {
  if (!text.starts_with("0x")) {
    return whole_number<int32_t>(text, 10);
  }
  const std::optional<uint32_t> bits = number_of_hex(text.substr(2));
  return bits ? std::optional(static_cast<int32_t>(*bits)) : std::nullopt;
}
