// Texts as they are shown: JSON, without control characters and without passwords.
#pragma once

#include <string>
#include <string_view>

// With quotes around it; a byte that is no printing ASCII character becomes \u00 and two digits.
std::string json_text(std::string_view text);

// Control characters become dots, so that a text from a file or a server cannot play with the terminal.
std::string printable(std::string_view text);

// Every -P that may be a password's option keeps the letter only: what stands behind it up to white space is masked, or
// the next word when nothing does.
std::string without_passwords(std::string_view text);

std::string lower_case(std::string_view text);
std::string replaced(std::string text, std::string_view part, std::string_view by);
// Whether the word stands in the text, not as a part of a longer word.
bool holds_word(std::string_view text, std::string_view word);
