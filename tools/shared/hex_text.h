// Numbers and bytes as users write and read them: bytes in pairs of hexadecimal digits, numbers in decimal
// or behind 0x.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

std::string hex_of(std::string_view bytes);
// Nothing when the text is no row of pairs of hexadecimal digits.
std::optional<std::string> bytes_of_hex(std::string_view digits);

// Lower case, without leading zeros.
std::string hex_number(uint32_t number);
// Of 32 bits, in digits of either case; nothing for anything else.
std::optional<uint32_t> number_of_hex(std::string_view digits);
// A whole decimal number within 32 bits, or 0x and hexadecimal digits for its bits; nothing for anything else.
std::optional<int32_t> integer_of(std::string_view text);
