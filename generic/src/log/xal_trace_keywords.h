// The words behind traceflags and -T, with the trace-mask bits that they switch on.
#pragma once

#include <cctype>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "log/xal_log.h"

struct TraceKeyword {
  const char *keyword;
  uint32_t bits;
};

// clang-format off
inline constexpr TraceKeyword trace_keywords[] = {
    // keyword  bits
    {"xa",      XATR_XA},
    {"xl",      XATR_RM},
    {"xc",      XATR_CONN},
    {"cmn",     XATR_FUNCTION},
    {"event",   XATR_EVENT},
    {"misc",    XATR_MISC},
    {"os",      XATR_ZDB},
    {"xs",      XATR_ZDB},
    {"ct",      XATR_QUILLET},
    {"v",       XATR_VERBOSE},
    {"all",     0xFFFFFFFF},
};
// clang-format on

// Up to white space.
inline size_t trace_word_length(std::string_view text) {
  size_t length = 0;
  while (length < text.size() && isspace(static_cast<unsigned char>(text[length])) == 0) {
    ++length;
  }
  return length;
}

// The first keyword that begins with the text's first word, null without any.
inline const TraceKeyword *find_trace_keyword(std::string_view text) {
  const size_t length = trace_word_length(text);
  for (const TraceKeyword &row : trace_keywords) {
    if (strncmp(row.keyword, text.data(), length) == 0) {
      return &row;
    }
  }
  return nullptr;
}
