// Passes over SQL piece by piece: quoted pieces and comments as they are, words with a look at them.
#include "disk/sql_text.h"

#include <strings.h>

#include <algorithm>
#include <cctype>

namespace zdb {
namespace {

bool is_word_character(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$' || (c & 0x80) != 0;
}

// The end of the piece that begins with a quote or a comment mark; 0 when none begins here.
std::size_t quoted_length(std::string_view text) {
  const auto through = [&](std::string_view mark, std::size_t from) {
    const std::size_t found = text.find(mark, from);
    return found == std::string_view::npos ? text.size() : found + mark.size();
  };
  if (text.starts_with("--")) {
    return through("\n", 2);
  }
  if (text.starts_with("/*")) {
    return through("*/", 2);
  }
  switch (text.front()) {
    case '\'':
    case '"':
    case '`':
      return through(text.substr(0, 1), 1);  // a doubled quote begins the next piece
    case '[':
      return through("]", 1);
    default:
      return 0;
  }
}

std::size_t word_length(std::string_view text) {
  const auto *end = std::find_if_not(text.begin(), text.end(), is_word_character);
  return static_cast<std::size_t>(end - text.begin());
}

bool same_word(std::string_view left, std::string_view right) {
  return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

// The dots and the owner between "master" and the table's name: their length, 0 when there are none.
std::size_t qualifier_length(std::string_view text) {
  if (text.starts_with("..")) {
    return 2;
  }
  if (text.size() > 5 && text.front() == '.' && same_word(text.substr(1, 3), "dbo") && text[4] == '.') {
    return 5;
  }
  return text.starts_with(".") ? 1 : 0;
}

}  // namespace

CatalogText catalog_text(std::string_view sql) {
  CatalogText result;
  bool after_dot = false;
  while (!sql.empty()) {
    std::size_t length = quoted_length(sql);
    const std::size_t word = length == 0 ? word_length(sql) : 0;
    if (word != 0 && !after_dot && same_word(sql.substr(0, word), "master")) {
      const std::size_t qualifier = qualifier_length(sql.substr(word));
      if (qualifier != 0) {
        result.sql += "master.";
        result.names_catalog = true;
        sql.remove_prefix(word + qualifier);
        after_dot = true;
        continue;
      }
    }
    length = std::max({length, word, std::size_t{1}});
    after_dot = length == 1 && sql.front() == '.';
    result.sql += sql.substr(0, length);
    sql.remove_prefix(length);
  }
  return result;
}

}  // namespace zdb
