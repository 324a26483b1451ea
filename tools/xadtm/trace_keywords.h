// The words after traceflags and -T.
#pragma once

#include <string_view>

// All of them, for messages.
inline constexpr const char *trace_keywords = "xa, xl, xc, cmn, event, misc, os, xs, ct, v and all";

// A keyword's beginning is enough, and what stands behind white space does not count.
bool is_trace_keyword(std::string_view text);
