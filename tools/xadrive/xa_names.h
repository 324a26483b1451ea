// The names that scripts use for result codes, flag words and branch states, and for results of SQL.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// A set of names for numbers.
enum class Vocabulary { xa_codes, branch_states, sql_results, answers };

inline constexpr int32_t sql_none = -1;  // no connection is published
inline constexpr int32_t sql_failed = 0;
inline constexpr int32_t sql_ok = 1;

std::optional<int32_t> number_of(Vocabulary vocabulary, std::string_view name);
// The number itself in decimal when it has no name.
std::string name_of(Vocabulary vocabulary, int32_t number);
// All of them, for messages: "a, b or c".
std::string names_of(Vocabulary vocabulary);

// "TMJOIN|TMNOWAIT", or a number of up to eight hexadecimal digits after 0x; nothing when it is neither.
std::optional<int32_t> flags_of(std::string_view text);
std::string flags_text(int32_t flags);
bool is_flag_name(std::string_view name);
