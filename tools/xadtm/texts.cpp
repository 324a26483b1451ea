// How texts are shown.
#include "texts.h"

#include <algorithm>
#include <cctype>

#include "hex_text.h"
#include "shown_text.h"

namespace {

bool is_printing(unsigned char c) {
  return c >= ' ' && c < 0x7F;
}

}  // namespace

std::string json_text(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (!is_printing(byte)) {
      out.append("\\u00").append(hex_of({&c, 1}));
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::string printable(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const size_t length = shown_length(text);
    out += length == 0 ? "." : text.substr(0, length);
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return out;
}

namespace {

bool is_blank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

size_t skip(std::string_view text, size_t at, bool blanks) {
  while (at < text.size() && is_blank(text[at]) == blanks) {
    ++at;
  }
  return at;
}

// Where the password ends that begins at the place: it may stand behind white space by mistake.
size_t password_end(std::string_view text, size_t at) {
  if (at == text.size() || !is_blank(text[at])) {
    return skip(text, at, false);
  }
  const size_t next = skip(text, at, true);
  return next == text.size() || text[next] == '-' ? at : skip(text, next, false);
}

}  // namespace

std::string without_passwords(std::string_view text) {
  std::string out;
  for (size_t at = 0; at < text.size(); ++at) {
    out += text[at];
    if (text[at] != '-' || at + 1 == text.size() || std::toupper(static_cast<unsigned char>(text[at + 1])) != 'P') {
      continue;
    }
    out += text[++at];
    out += "***";
    at = password_end(text, at + 1) - 1;
  }
  return out;
}

std::string lower_case(std::string_view text) {
  std::string out(text);
  for (char &c : out) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

std::string replaced(std::string text, std::string_view part, std::string_view by) {
  for (size_t at = text.find(part); !part.empty() && at != std::string::npos; at = text.find(part, at + by.size())) {
    text.replace(at, part.size(), by);
  }
  return text;
}

namespace {

bool is_part_of_word(char c) {
  return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

bool holds_word(std::string_view text, std::string_view word) {
  for (size_t at = text.find(word); !word.empty() && at != std::string_view::npos; at = text.find(word, at + 1)) {
    const size_t end = at + word.size();
    const bool begins = at == 0 || !is_part_of_word(text[at - 1]) || !is_part_of_word(word.front());
    if (begins && (end == text.size() || !is_part_of_word(text[end]) || !is_part_of_word(word.back()))) {
      return true;
    }
  }
  return false;
}
