// Takes the command line apart.
//
// getopt is not used: it would take a negative formatID for options, and prints what it does not know.
#include "arguments.h"

#include <cctype>
#include <string_view>

#include "commands.h"

namespace {

bool is_option(std::string_view word) {
  return word.size() > 1 && word[0] == '-' && std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

void set_flavour(Arguments &arguments, const std::string &name) {
  if (name != "mts" && name != "tux" && name != "txs") {
    throw UsageError("--flavour takes mts, tux or txs");
  }
  arguments.flavour = name;
  arguments.flavour_given = true;
}

class Reader {
 public:
  Reader(int argc, const char *const *argv) : words_(argv + (argc > 0 ? 1 : 0), argv + argc) {}

  Arguments read() {
    for (; at_ < words_.size(); ++at_) {
      if (words_[at_] == "--") {
        arguments_.words.insert(arguments_.words.end(), words_.begin() + static_cast<ptrdiff_t>(at_) + 1, words_.end());
        break;
      }
      if (is_option(words_[at_])) {
        option(words_[at_]);
      } else {
        arguments_.words.push_back(words_[at_]);
      }
    }
    return arguments_;
  }

 private:
  void option(const std::string &word) {
    if (word == "-o" || word == "--open") {
      arguments_.given.emplace_back("-o");
      arguments_.open_string = value("-o takes the open string in quotes, as in -o \"-NL1 -Uuser -Ppassword\"");
    } else if (word == "--flavour") {
      arguments_.given.push_back(word);
      set_flavour(arguments_, value("--flavour takes mts, tux or txs"));
    } else if (word.starts_with("--flavour=")) {
      arguments_.given.emplace_back("--flavour");
      set_flavour(arguments_, word.substr(sizeof "--flavour=" - 1));
    } else if (bool *mark = mark_of(word)) {
      arguments_.given.push_back(word);
      *mark = true;
    } else if (word == "--help" || word == "-h") {
      arguments_.help = true;
    } else {
      throw UsageError("word " + std::to_string(at_ + 1) +
                       " is no option that xadtm knows; if it belongs to the open string, put that in quotes: "
                       "-o \"-NL1 -Uuser -Ppassword\"");
    }
  }

  // What an option without a value sets; null for other words.
  bool *mark_of(const std::string &word) {
    if (word == "--json") {
      return &arguments_.json;
    }
    if (word == "--yes") {
      return &arguments_.yes;
    }
    return word == "--failures" ? &arguments_.failures : nullptr;
  }

  std::string value(const char *hint) {
    if (at_ + 1 >= words_.size()) {
      throw UsageError(hint);
    }
    return words_[++at_];
  }

  std::vector<std::string> words_;
  size_t at_ = 0;
  Arguments arguments_;
};

}  // namespace

Arguments read_arguments(int argc, const char *const *argv) {
  return Reader(argc, argv).read();
}
