// Runs xadrive with scripts and checks what it prints and how it ends.
//
// The program is given the configuration file beside this test and a fresh log; its two output streams come back as
// one.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "programs.h"

namespace {

Outcome run_xadrive(const std::string &arguments) {
  const std::string log = scratch("xadrive.log");
  Outcome run = run_command("XACONFIGFILE=" SCRIPTS "/xa_config XALOGFILE=" + log + " " XADRIVE " " + arguments);
  std::filesystem::remove(log);
  return run;
}

Outcome run_script(const std::string &text) {
  const std::string path = scratch("script");
  write_text(path, text);
  Outcome run = run_xadrive(path);
  std::filesystem::remove(path);
  return run;
}

}  // namespace

TEST(Scripts, bad_lines_are_all_named_before_anything_runs) {
  struct Row {
    const char *line;
    const char *message;
  };
  const Row rows[] = {
      {"frob 1", "\"frob\" is no verb"},
      {"env A=B x", "\"A=B\" can be no variable's name"},
      {"env \"\" x", "\"\" can be no variable's name"},
      {"env A \"x\\x00y\"", "holds a null byte"},
      {"open 1 -NL1", "put the string -NL1 in double quotes"},
      {"open 1 \"abc", "no closing \""},
      {"open 1 \"a\\qb\"", "\\q means nothing"},
      {"start 1 TMJOIN", "TMJOIN is a flag"},
      {"end 1 X1", "the line's form is: end RMID XID FLAGS"},
      {"end 1 X1 TMFOO", "\"TMFOO\" is no flag word"},
      {"start 2147483648 X1", "RMID must be a number"},
      {"commit 1 X1 TMNOFLAGS extra", "\"extra\" is too much"},
      {"commit 1 X1 => XA_FINE", "\"XA_FINE\" is no result"},
      {"commit 1 X1 => XA_OK XA_OK", "one result is enough"},
      {"echo", nullptr},
      {"sleep 1 => XA_OK", "this line has no result"},
      {"recover 1 10 TMSTARTRSCAN => 2 X1", "names 1 XIDs but counts 2"},
      {"xid X1 1 01 02", "X1 exists already"},
      {"xid Z 1 012 02", "\"012\" is no row of hexadecimal digit pairs"},
      {"wait nobody", "names a thread that a line above uses"},
      {"@ close 1", "thread's name directly after @"},
      {"@main& close 1", "cannot run in the background"},
      {"flavour abc", "\"abc\" is no flavour"},
      {"open 1 \"-NL1\"", nullptr},
      {"env A B", "before the first open"},
      {"flavour tux", "before the first XA call"},
      {"sql 1 \"select 1\" => ok \"1\" \"2 | null\"", nullptr},
      {"sql 1 select", "put the SQL select in double quotes"},
      {"sql 1", "the line's form is: sql RMID \"SQL\""},
      {"sql 2 \"select 1\"", "no line above opens RMID 2 with an LRM name"},
      {"sql 1 \"select 1\" => done", "write ok (and perhaps rows in double quotes), failed or none"},
      {"sql 1 \"select 1\" => ok 1", "put the row 1 in double quotes"},
      {"sql 1 \"select 1\" => failed \"1\"", "one result is enough"},
  };
  std::string text;
  for (const Row &row : rows) {
    text += std::string(row.line) + "\n";
  }
  const Outcome run = run_script(text);
  EXPECT_EQ(run.status, 2);
  int number = 0;
  for (const Row &row : rows) {
    const std::string place = std::string(":").append(std::to_string(++number)).append(": ");
    const size_t at = run.output.find(place);
    const std::string message = at == std::string::npos ? "" : run.output.substr(at, run.output.find('\n', at) - at);
    if (row.message == nullptr) {
      EXPECT_EQ(message, "") << row.line;
    } else {
      EXPECT_NE(message.find(row.message), std::string::npos) << row.line << "\n" << message;
    }
  }
  EXPECT_FALSE(run.says("=> XA")) << "nothing may have run\n" << run.output;
}

TEST(Usage, what_cannot_run_ends_with_2_and_says_why) {
  struct Row {
    std::string arguments;
    const char *message;
  };
  const Row rows[] = {
      {"", "give one script"},
      {"--flavour '\x1b[2J' " SCRIPTS "/branches.xas", "\"\\x1b[2J\" is no flavour: give mts, tux or txs"},
      {"'--\x1b[2J' x", "unusable option, or one without its value: --\\x1b[2J"},
      {"'\xc2\x9b'", "cannot read \\xc2\\x9b"},
      {SCRIPTS "/branches.xas", "no flavour"},
      {SCRIPTS "/no_such_script", "cannot read"},
      {"--lib-dir /nonexistent --flavour tux " SCRIPTS "/branches.xas", "/nonexistent/libtrvcommon.so"},
  };
  for (const Row &row : rows) {
    const Outcome run = run_xadrive(row.arguments);
    EXPECT_EQ(run.status, 2) << row.arguments;
    EXPECT_TRUE(run.says(row.message)) << run.output;
  }
}

// Standard files that are closed or of no use; the script is played to its end in any case.
TEST(Usage, files_that_are_no_use_show_in_the_exit_status) {
  const std::string script = scratch("script");
  const std::string end = scratch("end");
  write_text(script, "server b\necho " + std::string(100000, 'x') + "\necho y\nuser b u pw\n");
  const struct {
    std::string command;
    int status;
    const char *message;
  } rows[] = {
      {XADRIVE " - < /", 2, "cannot read -"},
      {XADRIVE " - <&-", 2, "cannot read -"},
      {XADRIVE " " + script + " >/dev/full", 2, "output cannot be written"},
      {XADRIVE " " + script + " >&-", 2, "output cannot be written"},
      {XADRIVE " --help >/dev/full", 2, "output cannot be written"},
      {"{ " XADRIVE " " + script + "; echo $? >" + end + "; } | head -c 1 >/dev/null; cat " + end, 0, "2\n"},
      {XADRIVE " " + script + " <&- 2>&- | tail -n 1", 0, "4: @main user b u pw => done\n"},
  };
  for (const auto &[command, status, message] : rows) {
    const Outcome run = run_command(command);
    EXPECT_EQ(run.status, status) << command;
    EXPECT_TRUE(run.says(message)) << command << ": " << run.output.substr(0, 200);
  }
}

TEST(Scripts, texts_are_shown_without_control_characters) {
  const Outcome run = run_script("echo a\x1b[2J\xc2\x9b \"\xc2\x9b\x9b\xc3\xa4\"\n");
  EXPECT_EQ(run.output, "1: @main echo a\\x1b[2J\\xc2\\x9b \"\\xc2\\x9b\\x9b\xc3\xa4\"\n");
  EXPECT_FALSE(run_script("\x1b[2J\n").says("\x1b"));
}

TEST(Scripts, first_differing_result_ends_the_run) {
  const std::pair<std::string, const char *> rows[] = {
      {"\nclose 7 => XA_OK  # nothing was opened\n", ":3: @main close 7 TMNOFLAGS: expected XA_OK, got XAER_PROTO\n"},
      {"@a& sleep 0.05\n@a& close 1 => XA_OK\n@a& echo never\nwait a\n",
       ":3: @a close 1 TMNOFLAGS: expected XA_OK, got XAER_PROTO\n"},
      {"server bank1\nuser bank1 sa secret\nopen 1 \"-NL1 -Usa -Psecret -Sbank1\"\nstart 1 X1\nend 1 X1 TMSUCCESS\n"
       "prepare 1 X1\nrecover 1 9 TMSTARTRSCAN => 1 X2\n",
       ":8: @main recover 1 9 TMSTARTRSCAN: expected 1 X2, got 1 X1\n"},
  };
  for (const auto &[script, message] : rows) {
    const Outcome run = run_script("flavour tux\n" + script + "echo never\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.says(message)) << run.output;
    EXPECT_FALSE(run.says("never")) << run.output;
  }
}

class Flavours : public testing::TestWithParam<const char *> {};

TEST_P(Flavours, branch_script_plays_as_expected) {
  const Outcome run = run_xadrive(std::string("--flavour ").append(GetParam()).append(" " SCRIPTS "/branches.xas"));
  EXPECT_EQ(run.status, 0) << run.output;
}

// The readiness query is one that every server answers.
TEST_P(Flavours, sql_runs_where_the_library_has_published_a_connection) {
  const std::string head =
      std::string("flavour ")
          .append(GetParam())
          .append(
              "\nserver bank1\nuser bank1 sa secret\nopen 1 \"-NL0 -n L1 -nL1 -Usa -Psecret -Sbank1 -kk1\" => XA_OK\n"
              "sql 1 \"select 1\" => none\nstart 1 X1 => XA_OK\n");
  const std::string query = R"(sql 1 "select value from master.dbo.sysconfigures where name = \"enable DTM\"")";
  const Outcome good = run_script(head + query + " => ok \"1\"\nsql 1 \"no such thing\" => failed\n" +
                                  "end 1 X1 TMSUCCESS => XA_OK\nrollback 1 X1 => XA_OK\n");
  EXPECT_EQ(good.status, 0) << good.output;
  EXPECT_TRUE(good.says(" => ok\n    1\n")) << good.output;
  EXPECT_TRUE(good.says("\"no such thing\" => failed\n    message ")) << good.output;

  const Outcome bad = run_script(head + query + " => ok \"1\" \"2\"\n");
  EXPECT_EQ(bad.status, 1);
  EXPECT_TRUE(bad.says(": expected ok \"1\" \"2\", got ok \"1\"\n")) << bad.output;
  const Outcome lost = run_script(head + "break bank1\n" + query + " => failed\n");
  EXPECT_EQ(lost.status, 0) << lost.output;
  EXPECT_TRUE(lost.says("\n    client library: ct_send: the session has broken off")) << lost.output;
}

INSTANTIATE_TEST_SUITE_P(All, Flavours, testing::Values("mts", "tux", "txs"),
                         [](const auto &row) { return std::string(row.param); });

TEST(Example, two_banks_plays_and_leaves_its_trace_log) {
  const std::string log = scratch("two_banks.log");
  const Outcome run =
      run_command("XACONFIGFILE=" EXAMPLES "/xa_config XALOGFILE=" + log + " " XADRIVE " " EXAMPLES "/two_banks.xas");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_TRUE(run.says("trace log: " + log + "\n")) << run.output;
  EXPECT_NE(text_of(log).find("[xa_recover/"), std::string::npos) << "the log holds no trace of the scan";
  std::filesystem::remove(log);
}
