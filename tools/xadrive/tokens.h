// Splits one script line into words and quoted texts.
//
// Words are separated by blanks; a text in double quotes keeps its blanks and knows the escapes \" \\ \n \t \xHH. A "#"
// at the start of a word begins a comment.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// What is wrong with a line, and what to write instead.
struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Token {
  std::string text;
  bool quoted = false;

  bool is(std::string_view word) const { return !quoted && text == word; }
};

// Throws ScriptError.
std::vector<Token> tokens_of(std::string_view line);
// The text in quotes, escaped so that it reads back.
std::string quoted(std::string_view text);
