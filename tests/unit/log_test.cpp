// The log file, its lines, the trace keywords and the decoders.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

#include "log/xal_log.h"
#include "scene.h"

using namespace fake;

namespace {

std::string content_of(const std::string &path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

class Log : public testing::Test {
 protected:
  Log() {
    library().reset();
    if (log_is_open()) {
      ADD_FAILURE() << "run these tests in processes of their own: another test has opened the log";
    }
  }
};

TEST_F(Log, without_a_log_only_errors_show_and_bare) {
  testing::internal::CaptureStderr();
  xalog_msg("f", "an error\n", 1, XALOG_ERROR);
  xalog_msg("f", "a fatal error", 1, XALOG_FATAL);
  xalog_msg("f", nullptr, 1, XALOG_ERROR);
  for (const int32_t type : {XALOG_XA, XALOG_MISC, XALOG_MESSAGE, XALOG_WARNING, XALOG_NOTE, 7}) {
    xalog_msg("f", "dropped", 1, type);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "an error\na fatal error<nil>");
}

TEST_F(Log, lines_have_the_fixed_layout) {
  const std::string path = file_with("");
  EXPECT_TRUE(in_own_process([&] {
    xalog_open_file(path.c_str());
    xalog_msg("f", "t", 12, 7);
    xalog_msg(nullptr, nullptr, -3, XALOG_FATAL);
    for (const int32_t type : {0, 1, 2, 3, 4, 5, 6, 10, 11, 100, 101, 102}) {
      xalog_msg("f", "two\nlines", type, type);
    }
    return content_of(path).find(text(": 0x%x,N/A: [", static_cast<unsigned>(getpid()))) != std::string::npos;
  }));
  std::string log = std::regex_replace(
      content_of(path), std::regex("(^|\n)[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: 0x[1-9a-f][0-9a-f]*,"),
      "$1#");
  log = std::regex_replace(log, std::regex("xalog_open_file/[0-9]+"), "xalog_open_file/n");
  std::string expected = "#N/A: [xalog_open_file/n] Message: ";
  expected.append(xadtm__getVdate()).append(" started\n#N/A: [f/12] : t\n#N/A: [<nil>/-3] Fatal Error: <nil>\n");
  const std::pair<int, const char *> types[] = {{0, "XA trace"},      {1, "RM trace"},        {2, "Connection trace"},
                                                {3, "ZDB I/F trace"}, {4, "Misc trace"},      {5, "Event trace"},
                                                {6, "Verbose trace"}, {10, "Function trace"}, {11, "Quillet trace"},
                                                {100, "Message"},     {101, "Warning"},       {102, "Note"}};
  for (const auto &[type, name] : types) {
    expected.append(text("#N/A: [f/%d] %s: two\nlines\n", type, name));
  }
  EXPECT_EQ(log, expected);
}

TEST_F(Log, a_long_text_is_written_whole_and_a_line_after_a_full_disk_starts_a_line) {
  const std::string path = file_with("");
  const std::string whole(10000, 'x');
  EXPECT_TRUE(in_own_process([&] {
    signal(SIGXFSZ, SIG_IGN);
    xalog_open_file(path.c_str());
    LogLine("f", XALOG_ERROR, 1)("%s", whole.c_str());
    const auto full = static_cast<rlim_t>(content_of(path).size() + 30);
    const rlimit limit{full, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    xalog_msg("f", "cut off", 2, XALOG_ERROR);
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    xalog_msg("f", "after", 3, XALOG_ERROR);
    return content_of(path).size() > full;
  }));
  const std::string log = content_of(path);
  EXPECT_NE(log.find("Error: " + whole + "\n"), std::string::npos);
  EXPECT_EQ(log.find("cut off"), std::string::npos);
  EXPECT_TRUE(std::regex_search(log, std::regex("\n[0-9/]+ [0-9:]+ 0x[0-9a-f]+,N/A: \\[f/3\\] Error: after\n$")));
}

TEST_F(Log, a_file_that_cannot_be_opened_leaves_no_log_and_standard_error_is_one) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(xalog_open_file("/nonexistent/xa.log"), 0);
  EXPECT_EQ(xalog_open_file(nullptr), 0);
  EXPECT_TRUE(in_own_process([] { return xalog_open_file("stderr") == 1; }));
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_NE(shown.find(" started\n"), std::string::npos);
  EXPECT_EQ(shown.find("xalog_open_file: cannot open /nonexistent/xa.log: errno 2\n"), 0U) << shown;
}

TEST_F(Log, the_first_log_stays) {
  const std::string first = file_with("kept\n");
  const std::string second = file_with("");
  EXPECT_TRUE(in_own_process([&] {
    return xalog_open_file(first.c_str()) == 1 && xalog_open_file(second.c_str()) == 1 &&
           xalog_open_file("stderr") == 1;
  }));
  EXPECT_EQ(content_of(second), "");
  const std::string log = content_of(first);
  EXPECT_EQ(log.rfind("kept\n", 0), 0U) << "the log is opened for appending";
  EXPECT_NE(log.find(std::string("Message: skipped open of ") + second + ". log file already open\n"),
            std::string::npos);
}

TEST_F(Log, the_open_string_names_the_log_before_the_default) {
  const std::string named = file_with("");
  const std::string other = file_with("");
  const struct {
    const char *name;
    std::string open_string;
    bool uses_named;
  } rows[] = {
      {"-L with a path", std::string("-NL1 -L") + named + " -Usa", true},
      {"-l at the end", std::string("-NL1 -l") + named, true},
      {"ended by a tab", std::string("-L") + named + "\t-L" + other, true},
      {"-L and a blank", std::string("-L ") + named, false},
      {"-L as the last", "-NL1 -L", false},
      {"no -L", named, false},
      {"the first -L counts, empty as it is", std::string("-L -L") + named, false},
      {"a path of 512 characters", std::string("-L") + named + std::string(512 - named.size(), 'x'), false},
  };
  for (const auto &row : rows) {
    const std::string fallback = file_with("");
    std::ofstream(named).close();
    EXPECT_TRUE(in_own_process([&] { return xalog_init(row.open_string.c_str(), fallback.c_str()) == 1; }));
    EXPECT_EQ(!content_of(named).empty(), row.uses_named) << row.name;
    EXPECT_EQ(content_of(fallback).empty(), row.uses_named) << row.name;
  }
}

TEST_F(Log, lines_carry_the_thread_identity) {
  const struct {
    const char *name;
    std::string identity;
    int32_t claim;
    const char *failing;
    std::string shown;
  } rows[] = {
      {"four bytes", {"\0\0\0\7", 4}, 0, "", "00000007"},
      {"eight bytes", {"\0\0\0\7\xab\xcd\xef\1", 8}, 0, "", "00000007.ABCDEF01"},
      {"no bytes", "", 0, "", "N/A"},
      {"more than the buffer holds", std::string(16, 'a'), 17, "", "61616161.61616161.61616161.61616161"},
      {"fewer than it claims", "abcd", 8, "", "61626364.00000000"},
      {"no context", "abcd", 0, "cs_ctx_global", "N/A"},
      {"no thread table", "abcd", 0, "cs_config", "N/A"},
  };
  for (const auto &row : rows) {
    const std::string path = file_with("");
    EXPECT_TRUE(in_own_process([&] {
      library().identity = row.identity;
      library().identity_claim = row.claim;
      library().fail(row.failing);
      return xalog_init("", path.c_str()) == 1;
    }));
    EXPECT_NE(content_of(path).find(std::string(",") + row.shown + ": [xalog_open_file/"), std::string::npos)
        << row.name;
  }
}

TEST(Keywords, prefixes_select_the_first_keyword_that_begins_with_them) {
  const std::pair<const char *, uint32_t> rows[] = {
      {"xa", 0x1}, {"xl", 0x2}, {"xc", 0x4},   {"cmn", 0x400}, {"event", 0x20},     {"misc", 0x10},
      {"os", 0x8}, {"xs", 0x8}, {"ct", 0x800}, {"v", 0x40},    {"x", 0x1},          {"c", 0x400},
      {"e", 0x20}, {"", 0x1},   {"xax", 0},    {"XA", 0},      {"all", 0xFFFFFFFF}, {"a", 0xFFFFFFFF}};
  for (const auto &[keyword, bits] : rows) {
    for (const char *rest : {"", " rest", "\nrest"}) {
      xacmn_log_tracing.store(0);
      const std::string words = std::string(keyword) + rest;
      EXPECT_STREQ(xacmn_log_trace_add(words.c_str()), rest);
      EXPECT_EQ(xacmn_log_tracing.load(), bits) << keyword;
    }
  }
}

TEST(Decoders, codes_and_flags) {
  EXPECT_STREQ(xacmn_log_xareturn(XAER_NOTA), " retstat: -4 ([XAER_NOTA])");
  EXPECT_STREQ(xacmn_log_xareturn(1), " retstat: 1 ([])");
  EXPECT_STREQ(xacmn_log_csreturn(-205), "return, retstat: -205 ([CS_END_RESULTS])");
  EXPECT_STREQ(xacmn_log_hexreturn(0), "value: <nil>");
  EXPECT_STREQ(xacmn_log_hexreturn(-1), "value: ffffffff ");
  const std::pair<int32_t, const char *> flags[] = {
      {0, "[]"},
      {0x8, "[]"},
      {TMJOIN | TMNOWAIT, "[TMNOWAIT|TMJOIN]"},
      {-1,
       "[TMREGISTER|TMNOMIGRATE|TMUSEASYNC|TMASYNC|TMONEPHASE|TMFAIL|TMNOWAIT|TMRESUME|TMSUCCESS|TMSUSPEND|"
       "TMSTARTRSCAN|TMENDRSCAN|TMMULTIPLE|TMJOIN|TMMIGRATE]"}};
  for (const auto &[word, shown] : flags) {
    EXPECT_STREQ(xacmn_log_dump_xaflags(word), shown);
  }
}

TEST(Decoders, bytes_and_xids) {
  char out[200];
  const std::string zeros(70, '\0');
  EXPECT_EQ(xacmn_log_hex_sprintf(out, "\x00\x11\x22\x33\x44\xf5", 6), out + 13);
  EXPECT_STREQ(out, "00112233.44F5");
  EXPECT_EQ(xacmn_log_hex_sprintf(out, zeros.data(), 70), out + 128 + 15);
  EXPECT_EQ(xacmn_log_hex_sprintf(out, zeros.data(), -1), out);
  EXPECT_STREQ(out, "");
  const XID xid = branch();
  EXPECT_STREQ(xacmn_log_dump_xid(&xid), "\t4660.3.2\n\t010203\n\t0405\n");
  EXPECT_STREQ(xacmn_log_dump_xid(nullptr), "<nil>");
  XID odd = branch();
  odd.gtrid_length = -7;
  odd.bqual_length = 3;
  EXPECT_STREQ(xacmn_log_dump_xid(&odd), "\t4660.-7.3\n\t\n\t010203\n");
  odd.gtrid_length = 9999;
  odd.bqual_length = 9999;
  EXPECT_EQ(strlen(xacmn_log_dump_xid(&odd)), strlen("\t4660.9999.9999\n\t\n\t\n") + 2 * (128 + 15));
}

}  // namespace
