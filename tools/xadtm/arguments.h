// The words of the command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct Arguments {
  std::vector<std::string> words;  // what is no option, the command first
  std::optional<std::string> open_string;
  std::string flavour = "txs";
  bool flavour_given = false;
  bool json = false;
  bool yes = false;
  bool failures = false;
  bool help = false;
  std::vector<std::string> given;  // the options, each in its usual spelling
};

// Options may stand anywhere; "-" and negative numbers are words, and so is all that follows "--". Throws UsageError,
// whose text never shows a word, since it may be a password that has lost its quotes.
Arguments read_arguments(int argc, const char *const *argv);
