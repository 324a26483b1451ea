// Docs/trouble-shooting.md and xadtm's advice against the messages that the sources can write.
//
// A text is compared as the source spells it, adjacent literals joined, without blanks and line ends at its ends. In
// the document the code spans that a list item begins with are messages, and every item that begins so is one.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

using Texts = std::set<std::string>;

std::string replaced(const std::string &text, const char *pattern, const char *by) {
  return std::regex_replace(text, std::regex(pattern), by);
}

std::string read(const std::filesystem::path &file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream.is_open()) << file;
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The sources with adjacent literals joined and all white space single blanks.
std::string code_in(const std::vector<std::string> &folders) {
  std::string code;
  for (const std::string &folder : folders) {
    for (const auto &entry : std::filesystem::recursive_directory_iterator(SOURCE_FOLDER "/" + folder)) {
      if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h") {
        code += replaced(replaced(read(entry.path()), "\" *\n\\s*\"", ""), "\\s+", " ");
      }
    }
  }
  return code;
}

std::string tidy(const std::string &text) {
  return replaced(replaced(replaced(text, "\\s+", " "), R"(\\")", "\""), R"(^ +|(\\n| )+$)", "");
}

// What stands before a text that can become a message; each must lead to one at least.
constexpr const char *heads[] = {
    R"(\b(?:error|warning|message|note)\(\w*\)\()",
    R"(LogLine\([^()]*XALOG_(?:ERROR|WARNING|MESSAGE|NOTE)[^()]*\)\()",
    R"(xalog_msg\([^,;"]*, )",
    R"(xal_display_nolog\()",
    R"(snprintf\(text, sizeof text, )",                  // shown by xal_display_nolog
    R"(fprintf\(stderr, )",                              // the bridge's modules
    R"(create\([^,]*, [^,]*, )",                         // a flavour's mutexes and events
    R"(not_implemented = )",                             // a flavour's refusal
    R"(text_or\(message[^"]*)",                          // in place of a message's text...
    R"(text_or\(message[^"]*"[^"]*", )",                 // ... that is missing or too long
    R"(\("Return [^"]*", xacmn_log_xareturn\(\w+\), )",  // the reason behind a code
};

Texts texts_behind(const std::string &code, const std::string &head) {
  const std::regex pattern(head + R"#( ?"((?:[^"\\]|\\.)*)")#");
  Texts texts;
  for (std::sregex_iterator at(code.begin(), code.end(), pattern); at != std::sregex_iterator(); ++at) {
    texts.insert(tidy(at->str(1)));
  }
  return texts;
}

// Those of lines that are declared before they are written, as in "const LogLine failed = trace.error();".
Texts texts_of_named_lines(const std::string &code) {
  const std::regex pattern(R"(const LogLine (\w+) = [^;]*(?:error|warning|message|XALOG_MESSAGE))");
  Texts texts;
  for (std::sregex_iterator at(code.begin(), code.end(), pattern); at != std::sregex_iterator(); ++at) {
    const std::string scope = code.substr(static_cast<size_t>(at->position()), 600);
    texts.merge(texts_behind(scope, "\\b" + at->str(1) + "\\("));
  }
  return texts;
}

Texts scanned() {
  const std::string code = code_in({"generic", "bridge"});
  Texts all = texts_of_named_lines(code);
  for (const char *head : heads) {
    Texts found = texts_behind(code, head);
    EXPECT_FALSE(found.empty()) << head;
    all.merge(found);
  }
  EXPECT_GT(all.size(), 140U);
  EXPECT_EQ(all.erase("%s"), 1U);  // stands for the texts of create() and of the decoders
  return all;
}

const Texts &messages() {
  static const Texts texts = scanned();
  return texts;
}

Texts documented() {
  const std::string document = read(SOURCE_FOLDER "/docs/trouble-shooting.md");
  const std::regex item(R"(\n- (`[^`]+`(?:(?:\s+\([^`)]*\))?,\s+`[^`]+`)*))");
  const std::regex span("`([^`]+)`");
  Texts texts;
  for (std::sregex_iterator at(document.begin(), document.end(), item); at != std::sregex_iterator(); ++at) {
    const std::string spans = at->str(1);
    for (std::sregex_iterator one(spans.begin(), spans.end(), span); one != std::sregex_iterator(); ++one) {
      texts.insert(tidy(one->str(1)));
    }
  }
  return texts;
}

TEST(Messages, the_document_has_all_and_quotes_no_others) {
  const Texts quoted = documented();
  for (const std::string &text : messages()) {
    EXPECT_TRUE(quoted.contains(text)) << "docs/trouble-shooting.md has no item for: " << text;
  }
  // Traces and parts of what the stand-ins say may be quoted as well.
  const std::string sources = replaced(code_in({"generic", "server", "stand-ins"}), R"(\\")", "\"");
  for (const std::string &text : quoted) {
    EXPECT_TRUE(messages().contains(text) || sources.find(text) != std::string::npos) << "in no source: " << text;
  }
}

TEST(Messages, advice_is_about_messages_that_there_are) {
  const std::string code = code_in({"tools/xadtm"});
  const size_t begin = code.find("advices[] = {");
  ASSERT_NE(begin, std::string::npos);
  const Texts parts = texts_behind(code.substr(begin, code.find("};", begin) - begin), "\\{");
  EXPECT_GT(parts.size(), 20U);
  for (const std::string &part : parts) {
    EXPECT_TRUE(std::any_of(messages().begin(), messages().end(),
                            [&](const std::string &text) { return text.find(part) != std::string::npos; }))
        << "no message has: " << part;
  }
}

}  // namespace
