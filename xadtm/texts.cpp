/* texts.cpp - how texts are shown. */
#include "texts.h"

#include <cctype>
#include <charconv>

#include "commands.h"

static constexpr char digits_of_hex[] = "0123456789abcdef";

static bool is_printing(unsigned char c) {
  return c >= ' ' && c != 0x7F;
}

std::string hex_of(std::string_view bytes) {
  std::string out;
  out.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += {digits_of_hex[byte >> 4], digits_of_hex[byte & 15]};
  }
  return out;
}

std::string bytes_of_hex(std::string_view digits, const std::string &what) {
  std::string bytes;
  if (digits == "-") {
    return bytes;
  }
  for (size_t at = 0; at < digits.size(); at += 2) {
    const std::string_view pair = digits.substr(at, 2);
    unsigned value = 0;
    const char *end = pair.data() + pair.size();
    if (pair.size() != 2 || std::from_chars(pair.data(), end, value, 16).ptr != end) {
      throw UsageError("the " + what +
                       " is no row of pairs of hexadecimal digits; write two digits a byte, as in 54310a");
    }
    bytes.push_back(static_cast<char>(value));
  }
  return bytes;
}

std::string json_text(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (!is_printing(byte) || byte >= 0x80) {
      out.append("\\u00").append({digits_of_hex[byte >> 4], digits_of_hex[byte & 15]});
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::string printable(std::string_view text) {
  std::string out(text);
  for (char &c : out) {
    c = is_printing(static_cast<unsigned char>(c)) ? c : '.';
  }
  return out;
}

std::string without_passwords(std::string_view text) {
  std::string out;
  for (size_t at = 0; at < text.size(); ++at) {
    out += text[at];
    if (text[at] != '-' || at + 1 == text.size() || std::toupper(static_cast<unsigned char>(text[at + 1])) != 'P') {
      continue;
    }
    out += text[++at];
    out += "***";
    while (at + 1 < text.size() && std::isspace(static_cast<unsigned char>(text[at + 1])) == 0) {
      ++at;
    }
  }
  return out;
}
