/*
 * open_string.h - an open string's options, taken apart as the library does it.
 */
#ifndef XADTM_TOOL_OPEN_STRING_H
#define XADTM_TOOL_OPEN_STRING_H

#include <string>
#include <string_view>
#include <vector>

struct OpenOption {
  char letter = '\0'; /* upper case; zero for a "-" at the string's end, white space for one before white space */
  std::string value;
};

std::vector<OpenOption> read_open_string(std::string_view text);

/* Whether there is text outside all options, which the library passes over. */
bool has_stray_text(std::string_view text);

/* The value of the option's last use, empty without any. */
std::string last_value(const std::vector<OpenOption> &options, char letter);

#endif /* XADTM_TOOL_OPEN_STRING_H */
