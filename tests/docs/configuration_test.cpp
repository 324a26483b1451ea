// The configuration reference, the man page and the sample against the library: against its tables where it has them,
// else against what it does with every letter, word or name. Both documents are read into rows of words: a row of a
// Markdown table that begins with a name, an item of a man page's list without its macros.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "config/xal_config.h"
#include "config/xal_open_string.h"
#include "config/xal_settings.h"
#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"

namespace {

using Words = std::vector<std::string>;
using Lines = std::set<std::string>;
using Document = std::map<std::string, std::vector<Words>>;  // the rows below each heading

std::string text_of(const std::string &path) {
  std::ifstream file(path);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

Words found(const std::string &text, const std::string &pattern) {
  const std::regex regex(pattern);
  return {std::sregex_token_iterator(text.begin(), text.end(), regex, 1), {}};
}

std::string joined(const auto &words) {
  std::string line;
  for (const std::string &word : words) {
    line.append(line.empty() ? "" : " ").append(word);
  }
  return line;
}

Document read_document(const std::string &text, const char *form) {
  Document document;
  std::smatch match;
  std::string under;
  for (const std::string &line : found(text, "([^\n]+)")) {
    if (std::regex_match(line, match, std::regex(form)) && match[1].matched) {
      under = match[1] == "ENVIRONMENT" ? "Environment" : match[1].str();
    } else if (!match.empty()) {
      const std::string words = std::regex_replace(match[2].str(), std::regex("\\b(Cm|Ev|Ar|Ns|Pq|Ta) "), "");
      document[under].push_back(found(std::regex_replace(words, std::regex("^Fl "), "-"), "([^ ,|`]+)"));
    }
  }
  return document;
}

// The library with its log in a file, reading texts as configuration files.
class Configuration : public testing::Test {
 protected:
  Configuration() {
    EXPECT_EQ(xalog_open_file(at("/log").c_str()), 1);
    trvxal_tm_personality.store(&trvxal_tux_threaded_personality);
    complaints();
  }

  static void TearDownTestSuite() { std::filesystem::remove_all(at("")); }

  static std::string at(const char *name) {
    static const std::string folder = [] {
      std::string made = testing::TempDir() + "configuration.XXXXXX";
      return std::string(mkdtemp(made.data()));
    }();
    return folder + name;
  }

  // The errors and warnings since the last time.
  std::string complaints() {
    const std::string text = text_of(at("/log")).substr(log_read);
    log_read += text.size();
    return joined(found(text, "\\] (?:Error|Warning): ([^\n]*)"));
  }

  // What the library complains of when it reads the text as xa_config, for the process and for L1.
  std::string read(const std::string &text) {
    std::ofstream(at("/xa_config")) << text;
    setenv("XACONFIGFILE", at("/xa_config").c_str(), 1);
    xa_config_file[0] = '\0';
    XA_SETTING list[54] = {};
    list[53].xs_flags = XS_END;
    char server[32];
    xal_configure("-NL1", list);
    xal_lrm_lookup("L1", server, list, list, list);
    xacmn_clean_val(list, 0);
    return complaints();
  }

  // What the parser and the log say about an open string that begins with the option.
  std::string parse(const std::string &option) {
    const std::string info = option + " -Nx";
    char fields[5][32];
    xacmn_parse_open_info(info.c_str(), fields[0], fields[1], fields[2], fields[3], fields[4]);
    xalog_init(info.c_str(), "stderr");
    return complaints();
  }

  // Both documents have just these rows under the heading, as far as their first words go.
  void expect(const char *heading, const Lines &rows, size_t words = 1) {
    for (Document *document : {&reference, &page}) {
      Lines lines;
      for (Words row : (*document)[heading]) {
        row.resize(std::min(words, row.size()));
        EXPECT_TRUE(lines.insert(joined(row)).second) << joined(row) << " stands there twice";
      }
      EXPECT_EQ(lines, rows) << (document == &page ? "xa_config.5, " : "configuration.md, ") << heading;
    }
  }

  size_t log_read = 0;
  const std::string reference_text = text_of(SOURCE_FOLDER "/docs/configuration.md");
  Document reference = read_document(reference_text, "##+ (.*)|\\| (`.*)");
  Document page = read_document(text_of(SOURCE_FOLDER "/docs/man/xa_config.5"), "\\.S[hs] (.*)|\\.It (?!Em|Pa)(.*)");
};

const struct {
  const char *heading;
  std::string entry;
  const XA_KEYWORD *rows;
} tables[] = {{"Context properties", "all properties", XaCtxPropLookupTab},
              {"Date settings", "all cs_dt_info", XaCSDTInfoLookupTab},
              {"Connection properties", "xa properties", XaPropLookupTab},
              {"Capabilities", "xa capabilities", XaCapLookupTab},
              {"Server options", "xa options", XaOptLookupTab}};

// The rows for a keyword's kind of values: the values that stand for the same number, in the table's order.
Lines kind_rows(const std::string &kind, const XA_KEYVALUE *value) {
  std::map<std::string, std::string> numbers;
  for (; value->kv_name != nullptr; ++value) {
    const std::string name = value->kv_name;
    const bool itself = name.starts_with('$');
    const char *shown = name == "$use_the_string$" ? "any text" : (itself ? "a whole number" : "no value");
    numbers[itself ? "itself" : std::to_string(value->kv_value)] += " " + (name.empty() || itself ? shown : name);
  }
  Lines rows;
  for (const auto &[number, names] : numbers) {
    rows.insert(joined(Words{kind + names, number}));
  }
  return rows;
}

TEST_F(Configuration, settings_are_those_of_the_tables) {
  Lines kinds;
  for (const auto &table : tables) {
    std::map<std::string, std::string> kind_of;
    for (const Words &row : reference[table.heading]) {
      kind_of[row.at(0)] = row.at(1);
    }
    Lines expected;
    for (const XA_KEYWORD *row = table.rows; row->kw_name != nullptr; ++row) {
      expected.insert(joined(Words{row->kw_name, kind_of[row->kw_name], std::to_string(row->kw_code)}));
      kinds.merge(kind_rows(kind_of[row->kw_name], row->kw_values));
    }
    expect(table.heading, expected, 3);
  }
  expect("Kinds of values", kinds, 9);
  Lines own;
  for (const XA_SETTING *row = dtm_set_list; row->xs_flags != XS_END; ++row) {
    const auto has = [&](uint32_t flag) { return (row->xs_flags & flag) != 0; };
    const char *when = has(XS_CTX) ? "for the context" : (has(XS_PRECONN) ? "before login" : "after login");
    own.insert(
        joined(Words{found(row->xs_label, "(\\w+)").at(0), std::to_string(row->xs_code), std::to_string(row->xs_int),
                     has(XS_FORCED) ? "forced" : "default", when, has(XS_FATAL) ? "yes" : "no"}));
  }
  expect("What the library sets itself", own, 9);
}

TEST_F(Configuration, entries_and_options_are_those_that_the_library_takes) {
  Lines all, xa, options;
  for (const std::string &name : found(text_of(SOURCE_FOLDER "/generic/src/config/xal_keywords.cpp"), "\"(\\w+)\"")) {
    const std::string entry = name + "=" + std::string(40, 'x') + "\n";  // too long, or no keyword, wherever it is read
    if (read("[all]\n" + entry + "[xa]\nlrm=L1\n").find("Invalid entry in [all]") == std::string::npos) {
      all.insert(name);
    }
    if (!read("[xa]\nlrm=L1\n" + entry).empty()) {
      xa.insert(name);
    }
  }
  expect("The [all] section", all);
  expect("The [xa] section", xa);
  Lines common;
  for (const bool mts : {false, true}) {
    trvxal_tm_personality.store(mts ? &trvxal_mts_personality : &trvxal_tux_threaded_personality);
    for (char letter = '!'; letter <= '~'; ++letter) {
      const std::string option{'-', static_cast<char>(toupper(letter))};
      if (parse(option).find("invalid open string") == std::string::npos) {
        (mts ? options : common).insert(option);
      }
    }
  }
  expect("Options", options);
  for (const Words &row : reference["Options"]) {
    const bool limited = isdigit(row.at(1)[0]) != 0;
    const size_t longest = limited ? std::stoul(row[1]) : 1000;
    EXPECT_EQ(row[limited ? 2 : 1], common.contains(row[0]) ? "all" : "MTS");
    EXPECT_EQ(parse(row[0] + std::string(longest, 'x')).find("long"), std::string::npos) << row[0];
    EXPECT_EQ(parse(row[0] + std::string(longest + 1, 'x')).find("long") != std::string::npos, limited) << row[0];
  }
}

// The words that select something and cannot be continued, with the bits that they add.
Lines keywords_from(const std::string &word) {
  Lines keywords;
  for (char next = '!'; next <= '~'; ++next) {
    xacmn_log_tracing.store(0);
    xacmn_log_trace_add((word + next).c_str());
    char line[64];
    snprintf(line, sizeof line, "%s%c 0x%X", word.c_str(), next, xacmn_log_tracing.load());
    if (xacmn_log_tracing.load() != 0) {
      const Lines longer = keywords_from(word + next);
      keywords.merge(longer.empty() ? Lines{line} : Lines(longer));
    }
  }
  return keywords;
}

TEST_F(Configuration, trace_keywords_variables_and_messages_are_those_of_the_sources) {
  expect("Trace keywords", keywords_from(""), 2);
  std::string sources;
  for (const char *folder_name :
       {SOURCE_FOLDER "/generic", SOURCE_FOLDER "/bridge", SOURCE_FOLDER "/server", SOURCE_FOLDER "/stand-ins"}) {
    for (const auto &file : std::filesystem::recursive_directory_iterator(folder_name)) {
      sources += file.is_regular_file() ? text_of(file.path()) : "";
    }
  }
  const Words variables = found(sources, "get_?env\\(\"(\\w+)\"\\)");
  expect("Environment", Lines(variables.begin(), variables.end()));
  sources = std::regex_replace(sources, std::regex("%[a-z]"), "…");
  const Words messages = found(reference_text.substr(reference_text.find("\n| Message ")), "\n\\| `([^`]+)` \\|");
  EXPECT_GT(messages.size(), 20U);
  for (const std::string &message : messages) {
    EXPECT_NE(sources.find(message), std::string::npos) << "no source has the message " << message;
  }
}

TEST_F(Configuration, the_sample_shows_everything_and_nothing_of_it_is_rejected) {
  Lines expected{"all logfile", "xa lrm", "xa dsn", "xa server"}, shown;
  for (const auto &table : tables) {
    for (const XA_KEYWORD *row = table.rows; row->kw_name != nullptr; ++row) {
      expected.insert(table.entry + " " + row->kw_name);
    }
  }
  for (const Words &row : reference["Trace keywords"]) {
    expected.insert("all traceflags " + row.at(0));
  }
  const std::string sample = text_of(SOURCE_FOLDER "/examples/config/xa_config");
  EXPECT_EQ(read(sample), "") << "as shipped";
  const std::regex line("\n(#?)(\\w+)=(\\w*)[^\n]*");
  for (std::sregex_iterator at(sample.begin(), sample.end(), line), end; at != end; ++at) {
    const std::smatch &match = *at;
    const bool in_all = static_cast<size_t>(match.position()) < sample.find("\n[xa]");
    const std::string entry = (in_all ? "all " : "xa ") + match[2].str();
    shown.insert(expected.contains(entry) ? entry : entry + " " + match[3].str());
    std::string switched_on = sample;
    switched_on.erase(static_cast<size_t>(match.position(1)), match[1].str().size());
    xacmn_log_tracing.store(0);
    EXPECT_EQ(read(switched_on), "") << match[0];
    EXPECT_EQ(xacmn_log_tracing.load() != 0, match[2] == "traceflags") << match[0];
  }
  EXPECT_EQ(shown, expected);
}

}  // namespace
