// Reads the text arguments of operations: a pointer with a byte count or QLT_NULLTERM.
#pragma once

#include <cstring>
#include <optional>
#include <string>

#include "exports.h"

namespace quillet {

// None when the length is neither a count up to max nor QLT_NULLTERM, or the text is missing or too long.
inline std::optional<std::string> text_argument(const char *text, int32_t length, int32_t max) {
  if (length == 0) {
    return std::string();
  }
  if (text == nullptr || (length < 0 && length != QLT_NULLTERM) || length > max) {
    return std::nullopt;
  }
  const auto limit = static_cast<std::size_t>(max);
  const std::size_t size = length == QLT_NULLTERM ? ::strnlen(text, limit + 1) : static_cast<std::size_t>(length);
  if (size > limit) {
    return std::nullopt;
  }
  return std::string(text, size);
}

}  // namespace quillet
