// Converts the server's values to what the client binds, and parameters to the server's values.
//
// Sections: datatypes; the conversions, one function object for each kind of target; storing; reading.
#include "conversion.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>

#include "arguments.h"

namespace quillet {
namespace {

constexpr int32_t longest_parameter = 255;

// Datatypes.

bool is_number(int32_t datatype) {
  return datatype == QLT_INT_TYPE || datatype == QLT_BIGINT_TYPE || datatype == QLT_FLOAT_TYPE;
}

int32_t size_of_number(int32_t datatype) {
  return datatype == QLT_INT_TYPE ? 4 : 8;
}

// Conversions. Null becomes zero or empty; none stands for what cannot be converted.

// The number that the whole text is.
template <typename Number>
std::optional<Number> number_in(const std::string &text) {
  Number number{};
  const char *end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) {
    return std::nullopt;
  }
  return number;
}

struct ToInteger {
  std::optional<int64_t> operator()(std::monostate) const { return 0; }
  std::optional<int64_t> operator()(int64_t number) const { return number; }
  std::optional<int64_t> operator()(double number) const {
    constexpr double limit = 0x1p63;  // the first number above the range; its negative is the range's lowest
    if (!(number >= -limit && number < limit) || number != std::trunc(number)) {
      return std::nullopt;
    }
    return static_cast<int64_t>(number);
  }
  std::optional<int64_t> operator()(const std::string &text) const { return number_in<int64_t>(text); }
  std::optional<int64_t> operator()(const zdb::Binary &) const { return std::nullopt; }
};

struct ToFloat {
  std::optional<double> operator()(std::monostate) const { return 0; }
  std::optional<double> operator()(int64_t number) const { return static_cast<double>(number); }
  std::optional<double> operator()(double number) const { return number; }
  std::optional<double> operator()(const std::string &text) const {
    const auto number = number_in<double>(text);
    // The words for infinity and for no number at all are texts like any other.
    return number && std::isfinite(*number) ? number : std::nullopt;
  }
  std::optional<double> operator()(const zdb::Binary &) const { return std::nullopt; }
};

std::string hex_digits(const std::string &bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

struct ToText {
  std::optional<std::string> operator()(std::monostate) const { return std::string(); }
  std::optional<std::string> operator()(int64_t number) const { return std::to_string(number); }
  std::optional<std::string> operator()(double number) const {
    std::array<char, 32> digits{};
    // Without a precision: as few digits as read back to the same number.
    char *end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    return std::string(digits.data(), end);
  }
  std::optional<std::string> operator()(const std::string &text) const { return text; }
  std::optional<std::string> operator()(const zdb::Binary &binary) const { return hex_digits(binary.bytes); }
};

// The bytes of pairs of hexadecimal digits, as binaries are turned into texts.
std::optional<std::string> bytes_of_hex(const std::string &text) {
  std::string bytes;
  for (std::size_t at = 0; at < text.size(); at += 2) {
    unsigned char byte = 0;
    const char *first = text.data() + at;
    const char *last = text.data() + std::min(at + 2, text.size());
    if (last - first != 2 || std::from_chars(first, last, byte, 16).ptr != last) {
      return std::nullopt;
    }
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

struct ToBytes {
  std::optional<std::string> operator()(std::monostate) const { return std::string(); }
  std::optional<std::string> operator()(int64_t) const { return std::nullopt; }
  std::optional<std::string> operator()(double) const { return std::nullopt; }
  std::optional<std::string> operator()(const std::string &text) const { return bytes_of_hex(text); }
  std::optional<std::string> operator()(const zdb::Binary &binary) const { return binary.bytes; }
};

// Storing.

template <typename Number>
Stored store_number(std::optional<Number> number, char *place) {
  const Number stored = number.value_or(0);
  std::memcpy(place, &stored, sizeof stored);
  return {static_cast<int32_t>(sizeof stored), number.has_value()};
}

std::optional<int32_t> narrowed(std::optional<int64_t> number) {
  if (!number || !std::in_range<int32_t>(*number)) {
    return std::nullopt;
  }
  return static_cast<int32_t>(*number);
}

Stored store_bytes(const std::optional<std::string> &bytes, const QLT_FORMAT &format, char *place) {
  const bool ends_with_zero = format.fmt_format == QLT_FMT_NULLTERM;
  const std::size_t room = static_cast<std::size_t>(format.fmt_maxlen) - (ends_with_zero ? 1 : 0);
  const std::size_t size = bytes ? std::min(room, bytes->size()) : 0;
  if (size > 0) {
    std::memcpy(place, bytes->data(), size);
  }
  if (ends_with_zero) {
    place[size] = '\0';
  }
  return {static_cast<int32_t>(size), bytes && size == bytes->size()};
}

// Reading.

template <typename Number>
Number number_at(const void *data) {
  Number number{};
  std::memcpy(&number, data, sizeof number);
  return number;
}

std::optional<zdb::Value> read_number(int32_t datatype, const void *data, int32_t length) {
  if (length != QLT_UNUSED && length != size_of_number(datatype)) {
    return std::nullopt;
  }
  switch (datatype) {
    case QLT_INT_TYPE:
      return int64_t{number_at<int32_t>(data)};
    case QLT_BIGINT_TYPE:
      return number_at<int64_t>(data);
    default:
      return number_at<double>(data);
  }
}

}  // namespace

int32_t datatype_of(zdb::ColumnType type) {
  switch (type) {
    case zdb::ColumnType::text:
      return QLT_CHAR_TYPE;
    case zdb::ColumnType::integer:
      return QLT_INT_TYPE;
    case zdb::ColumnType::bigint:
      return QLT_BIGINT_TYPE;
    case zdb::ColumnType::real:
      return QLT_FLOAT_TYPE;
    case zdb::ColumnType::binary:
      break;
  }
  return QLT_BINARY_TYPE;
}

bool is_bindable(const QLT_FORMAT &format) {
  if (format.fmt_count < 1) {
    return false;
  }
  const bool plain = format.fmt_format == QLT_FMT_NONE;
  if (is_number(format.fmt_datatype)) {
    return plain && format.fmt_maxlen >= size_of_number(format.fmt_datatype);
  }
  const bool is_char = format.fmt_datatype == QLT_CHAR_TYPE;
  return (is_char || format.fmt_datatype == QLT_BINARY_TYPE) &&
         (plain || (is_char && format.fmt_format == QLT_FMT_NULLTERM)) && format.fmt_maxlen >= 1;
}

Stored store_value(const zdb::Value &value, const QLT_FORMAT &format, char *place) {
  switch (format.fmt_datatype) {
    case QLT_INT_TYPE:
      return store_number(narrowed(std::visit(ToInteger(), value)), place);
    case QLT_BIGINT_TYPE:
      return store_number(std::visit(ToInteger(), value), place);
    case QLT_FLOAT_TYPE:
      return store_number(std::visit(ToFloat(), value), place);
    case QLT_BINARY_TYPE:
      return store_bytes(std::visit(ToBytes(), value), format, place);
    default:
      return store_bytes(std::visit(ToText(), value), format, place);
  }
}

std::optional<zdb::Value> read_value(const QLT_FORMAT &format, const void *data, int32_t length) {
  if (data == nullptr) {
    return std::nullopt;
  }
  if (is_number(format.fmt_datatype)) {
    return read_number(format.fmt_datatype, data, length);
  }
  const bool is_binary = format.fmt_datatype == QLT_BINARY_TYPE;
  if ((!is_binary && format.fmt_datatype != QLT_CHAR_TYPE) || (is_binary && length == QLT_NULLTERM)) {
    return std::nullopt;
  }
  const int32_t max = format.fmt_maxlen > 0 ? std::min(format.fmt_maxlen, longest_parameter) : longest_parameter;
  auto bytes = text_argument(static_cast<const char *>(data), length, max);
  if (!bytes) {
    return std::nullopt;
  }
  return is_binary ? zdb::Value(zdb::Binary{std::move(*bytes)}) : zdb::Value(std::move(*bytes));
}

}  // namespace quillet
