// The library's keywords.
#include "trace_keywords.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::string_view, 11> keywords = {"xa", "xl", "xc", "cmn", "event", "misc",
                                                       "os", "xs", "ct", "v",   "all"};

}  // namespace

bool is_trace_keyword(std::string_view text) {
  const std::string_view word = text.substr(0, text.find_first_of(" \t\n\v\f\r"));
  return std::any_of(keywords.begin(), keywords.end(),
                     [&](std::string_view keyword) { return keyword.starts_with(word); });
}
