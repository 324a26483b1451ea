// Looks names up in the tables of the library, and in two of its own.
#include "xa_names.h"

#include <algorithm>
#include <span>

#include "base/xal_xa_names.h"
#include "dtm/dtm_state_names.h"
#include "hex_text.h"

namespace {

constexpr XaName sql_results[] = {
    {"ok", sql_ok},
    {"failed", sql_failed},
    {"none", sql_none},
};

constexpr XaName answers[] = {
    {"done", 1},
    {"refused", 0},
};

// Calls the operation with the table.
template <typename Operation>
auto with_table(Vocabulary vocabulary, const Operation &operation) {
  switch (vocabulary) {
    case Vocabulary::xa_codes:
      return operation(std::span(xa_code_names));
    case Vocabulary::branch_states:
      return operation(std::span(dtm_state_names));
    case Vocabulary::sql_results:
      return operation(std::span(sql_results));
    case Vocabulary::answers:
      break;
  }
  return operation(std::span(answers));
}

std::optional<int32_t> find(auto table, std::string_view name) {
  const auto found = std::find_if(table.begin(), table.end(), [=](const auto &row) { return row.name == name; });
  return found == table.end() ? std::nullopt : std::optional(found->number);
}

std::optional<int32_t> flag_of(std::string_view name) {
  return find(std::span(xa_flag_names), name);
}

}  // namespace

std::optional<int32_t> number_of(Vocabulary vocabulary, std::string_view name) {
  return with_table(vocabulary, [=](auto table) { return find(table, name); });
}

std::string name_of(Vocabulary vocabulary, int32_t number) {
  return with_table(vocabulary, [=](auto table) {
    const auto found = std::find_if(table.begin(), table.end(), [=](const auto &row) { return row.number == number; });
    return found == table.end() ? std::to_string(number) : std::string(found->name);
  });
}

std::string names_of(Vocabulary vocabulary) {
  return with_table(vocabulary, [](auto table) {
    std::string names;
    for (const auto &row : table) {
      names += names.empty() ? "" : &row == &table.back() ? " or " : ", ";
      names += row.name;
    }
    return names;
  });
}

bool is_flag_name(std::string_view name) {
  return flag_of(name).has_value();
}

std::optional<int32_t> flags_of(std::string_view text) {
  if (text.starts_with("0x")) {
    return integer_of(text);
  }
  int32_t word = 0;
  for (;;) {
    const size_t bar = text.find('|');
    const std::optional<int32_t> bit = flag_of(text.substr(0, bar));
    if (!bit) {
      return std::nullopt;
    }
    word |= *bit;
    if (bar == std::string_view::npos) {
      return word;
    }
    text.remove_prefix(bar + 1);
  }
}

std::string flags_text(int32_t word) {
  std::string text;
  int32_t unnamed = word;
  for (const XaName &flag : xa_flag_names) {
    if ((word & flag.number) != 0) {
      text += text.empty() ? "" : "|";
      text += flag.name;
      unnamed &= ~flag.number;
    }
  }
  if (unnamed != 0) {
    return std::string("0x").append(hex_number(static_cast<uint32_t>(word)));
  }
  return text.empty() ? "TMNOFLAGS" : text;
}
