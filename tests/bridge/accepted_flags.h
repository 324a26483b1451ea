// The flag words that libxadtm accepts for the verbs on a branch.
#pragma once

#include <string>
#include <vector>

struct AcceptedWords {
  std::string verb;
  std::vector<long> words;
};

inline const std::vector<AcceptedWords> &accepted_words() {
  constexpr long onephase = 0x40000000;
  constexpr long fail = 0x20000000;
  constexpr long nowait = 0x10000000;
  constexpr long resume = 0x08000000;
  constexpr long success = 0x04000000;
  constexpr long suspend = 0x02000000;
  constexpr long join = 0x00200000;
  constexpr long migrate = 0x00100000;
  static const std::vector<AcceptedWords> all = {
      {"start", {0, join, resume, nowait, nowait | join, nowait | resume}},
      {"end", {success, suspend, suspend | migrate, fail}},
      {"rollback", {0}},
      {"prepare", {0}},
      {"commit", {0, onephase, nowait, onephase | nowait}},
      {"forget", {0}},
  };
  return all;
}
