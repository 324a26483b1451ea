/*
 * texts.h - texts as they are shown: bytes in hexadecimal, JSON, without control characters and without passwords.
 */
#ifndef XADTM_TOOL_TEXTS_H
#define XADTM_TOOL_TEXTS_H

#include <string>
#include <string_view>

std::string hex_of(std::string_view bytes);
/* The bytes of an even number of hexadecimal digits; throws UsageError, naming what the digits are of. */
std::string bytes_of_hex(std::string_view digits, const std::string &what);

/* With quotes around it; a byte that is no printing ASCII character becomes \u00 and two digits. */
std::string json_text(std::string_view text);

/* Control characters become dots, so that a text from a file or a server cannot play with the terminal. */
std::string printable(std::string_view text);

/* Every -P that may be a password's option keeps the letter only: what stands behind it up to white space is masked. */
std::string without_passwords(std::string_view text);

#endif /* XADTM_TOOL_TEXTS_H */
