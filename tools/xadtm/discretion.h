// Keeps an open string's password out of what others say while it is used.
//
// Besides the values of -P, all that may be a password which was written wrongly counts as one: stray texts, and values
// of letters that mean nothing. A text that holds one is hidden as a whole: if only the password were masked, the rest
// of a well-known message would tell it. A password that is also a value which is shown anyway, such as the user's
// name, is not looked for: hiding that value would tell that they are the same.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "open_string.h"

class Discretion {
 public:
  // Known values are shown whatever the password is, besides those of the open string.
  Discretion(std::string open_string, const std::vector<OptionGiven> &options,
             const std::vector<std::string> &known_values = {});

  bool holds_password(std::string_view text) const;
  // A message of the library, fit to be shown: without the open strings that it quotes.
  std::string of_library(std::string text) const;
  // All that the library wrote before it had a log, its results left out; a line each.
  std::vector<std::string> of_errors(std::string text) const;

 private:
  std::string open_string_;
  std::vector<std::string> passwords_;
};
