// Splits one script line into words and quoted texts.
#include "tokens.h"

#include <algorithm>
#include <charconv>

#include "hex_text.h"
#include "shown_text.h"

namespace {

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

// Takes the two digits after \x.
char take_hex_escape(std::string_view &rest) {
  unsigned value = 0;
  const std::string_view digits = rest.substr(0, 2);
  const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
  if (digits.size() != 2 || end.ptr != digits.data() + 2) {
    throw ScriptError("\\x in a quoted text needs two hexadecimal digits");
  }
  rest.remove_prefix(2);
  return static_cast<char>(value);
}

// Takes what stands after a backslash.
char take_escape(std::string_view &rest) {
  if (rest.empty()) {
    throw ScriptError("a quoted text has no closing \"; add it");
  }
  const char letter = rest.front();
  rest.remove_prefix(1);
  switch (letter) {
    case '"':
    case '\\':
      return letter;
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case 'x':
      return take_hex_escape(rest);
    default:
      throw ScriptError(std::string("\\") + letter + " means nothing in a quoted text; write \\\\ for a backslash");
  }
}

// Takes a text behind its opening quote, the closing one included.
Token take_quoted(std::string_view &rest) {
  Token token{"", true};
  while (!rest.empty() && rest.front() != '"') {
    const char c = rest.front();
    rest.remove_prefix(1);
    token.text.push_back(c == '\\' ? take_escape(rest) : c);
  }
  if (rest.empty()) {
    throw ScriptError("a quoted text has no closing \"; add it");
  }
  rest.remove_prefix(1);
  if (!rest.empty() && !is_blank(rest.front())) {
    throw ScriptError("put a blank after the closing \" of " + quoted(token.text));
  }
  return token;
}

Token take_word(std::string_view &rest) {
  size_t end = 0;
  while (end < rest.size() && !is_blank(rest[end])) {
    if (rest[end] == '"') {
      throw ScriptError("a \" stands inside a word; put the whole text in quotes");
    }
    ++end;
  }
  Token token{std::string(rest.substr(0, end)), false};
  rest.remove_prefix(end);
  return token;
}

}  // namespace

std::vector<Token> tokens_of(std::string_view line) {
  std::vector<Token> tokens;
  for (;;) {
    while (!line.empty() && is_blank(line.front())) {
      line.remove_prefix(1);
    }
    if (line.empty() || line.front() == '#') {
      return tokens;
    }
    if (line.front() == '"') {
      line.remove_prefix(1);
      tokens.push_back(take_quoted(line));
    } else {
      tokens.push_back(take_word(line));
    }
  }
}

std::string quoted(std::string_view text) {
  std::string out = "\"";
  while (!text.empty()) {
    const char c = text.front();
    const size_t length = shown_length(text);
    if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (length == 0) {
      out += "\\x" + hex_of({&c, 1});
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return out + "\"";
}
