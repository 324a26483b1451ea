// White space ends a value; the first "-" behind it begins the next option, and what stands between them is passed
// over.
#include "config/xal_open_options.h"

#include <cctype>

namespace {

bool is_blank(char c) {
  return isspace(static_cast<unsigned char>(c)) != 0;
}

char upper_case(char c) {
  return static_cast<char>(toupper(static_cast<unsigned char>(c)));
}

size_t value_end(std::string_view text, size_t at) {
  while (at < text.size() && !is_blank(text[at])) {
    ++at;
  }
  return at;
}

}  // namespace

OpenStringReader::OpenStringReader(std::string_view text, bool has_key, std::string_view wanted)
    : text_(text),
      has_key_(has_key),
      wanted_(wanted),
      lacks_name_(wanted.find('N') != std::string_view::npos),
      lacks_key_(is_value('K')) {}

bool OpenStringReader::is_value(char letter) const {
  return letter != '\0' && wanted_.find(letter) != std::string_view::npos && (letter != 'K' || has_key_);
}

OpenFault OpenStringReader::fault_of(const OpenOption &option, bool at_end) const {
  switch (option.letter) {
    case 'N':
    case 'U':
    case 'P':
    case 'S':
    case 'L':
    case 'T':
      break;
    case 'K':
      if (!has_key_) {
        return OpenFault::unknown;
      }
      break;
    case 'V':
      return option.value == "11" && !at_end ? OpenFault::none : OpenFault::bad_version;
    case 'C':
      return OpenFault::connection_limit;
    default:
      return OpenFault::unknown;
  }
  return option.is_stored && option.value.size() > longest_open_value ? OpenFault::too_long : OpenFault::none;
}

bool OpenStringReader::next(OpenOption &option) {
  const size_t dash = text_.find('-', at_);
  if (dash == std::string_view::npos) {
    at_ = text_.size();
    return next_missing(option);
  }
  const size_t letter = dash + 1;
  at_ = value_end(text_, letter);
  option.place = dash;
  option.letter = letter < text_.size() ? upper_case(text_[letter]) : '\0';
  option.value = at_ > letter ? std::string_view(text_.data() + letter + 1, at_ - letter - 1) : std::string_view();
  option.is_stored = !failed_ && is_value(option.letter);
  option.fault = fault_of(option, at_ == text_.size());
  if (option.is_stored) {
    lacks_name_ = option.letter == 'N' ? option.value.empty() : lacks_name_;
    lacks_key_ = option.letter == 'K' ? option.value.empty() : lacks_key_;
  }
  failed_ = failed_ || (option.fault != OpenFault::none && option.fault != OpenFault::unknown);
  return true;
}

// Each once.
bool OpenStringReader::next_missing(OpenOption &option) {
  option = {at_, '\0', {}, lacks_name_ ? OpenFault::no_name : OpenFault::no_key, false};
  bool &lack = lacks_name_ ? lacks_name_ : lacks_key_;
  const bool lacked = lack;
  lack = false;
  return lacked;
}

std::optional<OpenMark> find_open_mark(std::string_view text, char letter, size_t from) {
  for (size_t at = text.find('-', from); at != std::string_view::npos; at = text.find('-', at + 1)) {
    if (at + 1 < text.size() && upper_case(text[at + 1]) == letter) {
      const size_t begin = at + 2;
      return OpenMark{at, {text.data() + begin, value_end(text, begin) - begin}};
    }
  }
  return std::nullopt;
}
