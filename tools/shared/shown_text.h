// Texts of strangers (servers, files, command lines) as they are shown, so that none of them can play
// with the terminal. Control characters are those of ASCII, U+0080 to U+009F, and every byte that is no UTF-8.
#pragma once

#include <string>
#include <string_view>

// How many bytes the character has that the text begins with; 0 when it is a control character, or the text empty.
size_t shown_length(std::string_view text);

// Each byte of a control character becomes \xHH; tabs and line ends stay.
std::string visible(std::string_view text);

// The same with tabs and line ends, and so that original_of gives the text back: "\x5c" for a backslash before xHH.
std::string pasteable(std::string_view text);
// The same in ASCII.
std::string pasteable_ascii(std::string_view text);
std::string original_of(std::string_view pasted);
