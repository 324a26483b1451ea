// The comparisons of the common routines.
//
// Characters compare as unsigned bytes and case is that of ASCII alone, so a result never depends on the locale of the
// application. A null text equals null and comes before every other text.
#include <cstring>

#include "common_routines.h"

namespace {

unsigned char folded(unsigned char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

int32_t order_of_nulls(const char *left, const char *right) {
  return (left != nullptr) - (right != nullptr);
}

}  // namespace

int32_t com_unsignstrcmp(const char *left, const char *right) {
  if (left == nullptr || right == nullptr) {
    return order_of_nulls(left, right);
  }
  return std::strcmp(left, right);
}

int32_t com_unsignstricmp(const char *left, const char *right) {
  if (left == nullptr || right == nullptr) {
    return order_of_nulls(left, right);
  }
  for (;; ++left, ++right) {
    const unsigned char a = folded(static_cast<unsigned char>(*left));
    const unsigned char b = folded(static_cast<unsigned char>(*right));
    if (a != b || a == 0) {
      return a - b;
    }
  }
}

int32_t com_unsignstrncmp(const char *left, const char *right, int32_t count) {
  if (count <= 0) {
    return 0;
  }
  if (left == nullptr || right == nullptr) {
    return order_of_nulls(left, right);
  }
  return std::strncmp(left, right, static_cast<size_t>(count));
}
