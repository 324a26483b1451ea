// What may be a password, and what is cut or hidden for its sake.
#include "discretion.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "texts.h"

namespace {

constexpr std::string_view letters_shown = "NUSKL";
constexpr std::string_view letters_known = "NUSKLTVC";
constexpr std::string_view quote = "open string ";

bool is_any_of(char letter, std::string_view letters) {
  return letter != '\0' && letters.find(letter) != std::string_view::npos;
}

}  // namespace

Discretion::Discretion(std::string open_string, const std::vector<OptionGiven> &options,
                       const std::vector<std::string> &known_values)
    : open_string_(std::move(open_string)), passwords_(stray_texts(open_string_)) {
  for (const OptionGiven &option : options) {
    if (!is_any_of(option.letter, letters_known) || option.may_be_password) {
      passwords_.push_back(option.value);
    }
  }
  if (const std::optional<LogOption> log = log_option(open_string_); log && log->is_part) {
    passwords_.push_back(log->path);
  }
  const auto is_public = [&](const std::string &password) {
    return password.empty() || std::find(known_values.begin(), known_values.end(), password) != known_values.end() ||
           std::any_of(options.begin(), options.end(), [&](const OptionGiven &option) {
             return is_any_of(option.letter, letters_shown) && !option.may_be_password && option.value == password;
           });
  };
  passwords_.erase(std::remove_if(passwords_.begin(), passwords_.end(), is_public), passwords_.end());
}

bool Discretion::holds_password(std::string_view text) const {
  return std::any_of(passwords_.begin(), passwords_.end(),
                     [&](const std::string &password) { return holds_word(text, password); });
}

// A message that quotes the open string does so at its end; it may be cut anywhere, so it goes as a whole.
std::string Discretion::of_library(std::string text) const {
  if (const size_t at = text.find(quote); at != std::string::npos) {
    text.resize(at + quote.size() - 1);
  }
  if (holds_password(text)) {
    return "(not shown, since the password may stand in it)";
  }
  return printable(without_passwords(text));
}

std::vector<std::string> Discretion::of_errors(std::string text) const {
  static constexpr std::string_view result = "Return  retstat: ";
  const std::string info = std::string("info: ").append(open_string_);
  for (size_t at = text.find(result); at != std::string::npos; at = text.find(result, at)) {
    const size_t end = text.find(info, at);
    text.erase(at, end == std::string::npos ? result.size() : end + info.size() - at);
  }
  text = replaced(std::move(text), info, "info: ***");
  text = replaced(std::move(text), std::string(quote) + open_string_, quote);
  text = replaced(std::move(text), "Configuration file search path", "\nConfiguration file search path");
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    if (end > begin && !text.substr(begin, end - begin).ends_with(" Error: ")) {
      lines.push_back(of_library(text.substr(begin, end - begin)));
    }
    begin = end + 1;
  }
  return lines;
}
