// Xadtm log, on logs made by hand and on one that the library wrote.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tool.h"

namespace {

Outcome log_of(const std::string &text, const std::string &options = "") {
  const std::string path = scratch("xadtm_log");
  write_text(path, text);
  Outcome outcome = xadtm("log " + path + " " + options);
  std::filesystem::remove(path);
  return outcome;
}

// A line of thread A0 of process 0x10, at one of the first nine seconds of a minute.
std::string line(int second, const std::string &function, const std::string &text, const std::string &who = "0x10,A0") {
  std::string out = "2026/01/02 03:04:0";
  out.append(std::to_string(second)).append(": ").append(who).append(": [").append(function);
  return out.append("/7] ").append(text).append("\n");
}

TEST(Log, calls_nest_with_results_durations_and_arguments) {
  const Outcome shown =
      log_of(line(1, "xa_start", "XA trace: Enter") +
             line(1, "xa_start", "XA trace: rmid: 3, flags:[TMJOIN] XID:\t7.1.1\n\tAB\n\tCD\n") +
             line(2, "xc_get", "Connection trace: Enter") + line(2, "xl_x", "Misc trace: Enter", "0x10,B0") +
             line(3, "xc_get", "Event trace: looking") + line(3, "xl_x", "Misc trace: return: Void", "0x10,B0") +
             line(4, "xc_get", "Connection trace:  retstat: 2002 ([XCRET_CONN -- Found unused connection])") +
             line(9, "xa_start", "XA trace:  retstat: 0 ([XA_OK])") + line(9, "xa_recover", "XA trace: Enter") +
             line(9, "xa_recover", "XA trace: value: 2 "));
  ASSERT_EQ(shown.status, 0);
  EXPECT_EQ(shown.output,
            "process 0x10 (16), thread B0\n"
            "2026/01/02 03:04:02  xl_x  1 s\n\n"
            "process 0x10 (16), thread A0\n"
            "2026/01/02 03:04:01  xa_start  XA_OK  8 s  rmid: 3, flags:[TMJOIN] XID: 7.1.1 AB CD\n"
            "2026/01/02 03:04:02    xc_get  XCRET_CONN -- Found unused connection  2 s\n"
            "2026/01/02 03:04:03      Event trace: looking\n"
            "2026/01/02 03:04:09  xa_recover  0x2  0 s\n\n"
            "calls: 4, failed: 0, without a return: 0, returns without their beginning: 0, lines that could not be "
            "read: 0\n");
}

TEST(Log, an_entry_that_traces_itself_holds_its_verb) {
  std::string opens;
  for (int second = 1; second < 3; ++second) {
    opens += line(second, "trv_mts_xa_open", "XA trace: Enter") + line(second, "xa_open", "XA trace: Enter") +
             line(second, "xa_open", "XA trace:  retstat: 0 ([XA_OK])") +
             line(second, "trv_mts_xa_open", "XA trace:  retstat: 0 ([XA_OK])");
  }
  const Outcome shown = log_of(opens);
  EXPECT_TRUE(shown.says("calls: 4, failed: 0, without a return: 0, returns without their beginning: 0"))
      << shown.output;
}

TEST(Log, failures_come_with_what_led_to_them_and_nothing_else) {
  const std::string fine =
      line(1, "xa_prepare", "XA trace: Enter") + line(1, "xa_prepare", "XA trace:  retstat: 0 ([XA_OK])");
  const Outcome shown = log_of(
      fine + line(2, "xa_commit", "XA trace: Enter") + line(2, "rpc", "ZDB I/F trace: Enter") +
          line(2, "rpc", "Message: Server bank1, Sev=16, Nr=1; Msg: it\nwent wrong") +
          line(2, "rpc", "ZDB I/F trace: return, retstat: 0 ([CS_FAIL])") + line(3, "xa_close", "XA trace: Enter") +
          line(3, "xa_close", "XA trace:  retstat: 0 ([XA_OK])") +
          line(3, "xa_commit",
               "Error: Return  retstat: -7 ([XAER_RMFAIL])\nrmid: 1, flags:[] XID:\t7.1.0\n\tAB\n\t\n") +
          line(3, "xa_commit", "XA trace:  retstat: -7 ([XAER_RMFAIL])") + fine +
          line(4, "connect", "Error: no server", "0x11,N/A") +
          line(4, "xa_open", "Error: Return  retstat: -3 ([XAER_RMERR])\nrmid: 1, flags:[], info: -NL1 -pSECRET -UU",
               "0x11,N/A"),
      "--failures");
  EXPECT_EQ(shown.output,
            "process 0x10 (16), thread A0\n"
            "2026/01/02 03:04:02  xa_commit  FAILED  XAER_RMFAIL  1 s  rmid: 1, flags:[] XID: 7.1.0 AB\n"
            "2026/01/02 03:04:02    rpc  CS_FAIL  0 s\n"
            "2026/01/02 03:04:02      Message: Server bank1, Sev=16, Nr=1; Msg: it went wrong\n"
            "2026/01/02 03:04:03    xa_close  XA_OK  0 s\n\n"
            "process 0x11 (17), thread N/A\n"
            "2026/01/02 03:04:04  Error: no server\n"
            "2026/01/02 03:04:04  xa_open  FAILED  XAER_RMERR  rmid: 1, flags:[], info: -NL1 -p*** -UU\n\n"
            "calls: 6, failed: 2, without a return: 0, returns without their beginning: 0, lines that could not be "
            "read: 0\n");
}

TEST(Log, passwords_are_masked_in_every_form) {
  const std::pair<std::string, std::string> rows[] = {
      {"rmid: 1, flags:[], info: -NL1 -pSECRET -UU", "rmid: 1, flags:[], info: -NL1 -p*** -UU"},
      {"rmid: 1, flags:[], info: -NL1 -P SECRET SECRET -", "info: -NL1 -P *** *** -"},
      {"rmid: 1, flags:[], info: SE-CRET -xSECRET -L.log", "info: ***-C*** -x*** -L.log"},
      {"rmid: 1, flags:[], info: <nil>", "info: <nil>"},
      {"rmid: 1, flags:[], info: -NL1\n-PSECRET\nSECRET", "info: -NL1\n"},
  };
  for (const auto &[given, shown] : rows) {
    const Outcome outcome = log_of(line(1, "xa_open", "XA trace: Enter") + line(1, "xa_open", "XA trace: " + given) +
                                   line(1, "x", "Error: Invalid open string -P SECRET -NL1 -SECRET -xSECRET") +
                                   line(1, "x", "Error: LRM Name Too long, Truncated:\n\tL1-PSECRET") +
                                   line(1, "x", "Message: it was -P SECRET"));
    EXPECT_TRUE(outcome.says(shown)) << given << ": " << outcome.output;
    EXPECT_TRUE(outcome.says("Invalid open string -P *** -NL1 -SECRET -x***\n")) << outcome.output;
    EXPECT_TRUE(outcome.says("L1-P***\n") && outcome.says("it was -P***\n")) << outcome.output;
  }
}

// A failed call inside one that did not fail is shown in its place.
TEST(Log, what_is_around_a_failure_is_shown) {
  const Outcome shown =
      log_of(line(1, "xa_rollback", "XA trace: Enter") + line(1, "xc_get", "Connection trace: Enter") +
                 line(1, "xc_get", "Connection trace:  retstat: 2001 ([])") + line(1, "xa_end", "XA trace: Enter") +
                 line(2, "xa_end", "XA trace:  retstat: 100 ([XA_RBROLLBACK])") +
                 line(2, "xa_rollback", "XA trace:  retstat: 0 ([XA_OK])"),
             "--failures");
  EXPECT_TRUE(shown.says("01  xa_rollback  XA_OK  1 s\n2026/01/02 03:04:01    xa_end  FAILED  XA_RBROLLBACK  1 s\n\n"))
      << shown.output;
  EXPECT_FALSE(shown.says("xc_get"));
}

TEST(Log, cut_logs_are_read_as_far_as_they_make_sense) {
  const std::string enter = line(1, "xa_start", "XA trace: Enter");
  const std::string back = line(2, "xa_start", "XA trace:  retstat: 0 ([XA_OK])");
  struct {
    std::string text;
    std::string shown;
    std::string counts;
  } const rows[] = {
      {back + enter, "xa_start  XA_OK  (beginning not in the log)\n2026/01/02 03:04:01  xa_start  (return not in",
       "calls: 2, failed: 0, without a return: 1, returns without their beginning: 1, lines that could not be read: 0"},
      {enter + line(1, "xc_get", "Connection trace: Enter") + back, "    xc_get  (return not in the log)",
       "without a return: 1"},
      {enter + enter + back, "xa_start  (return not in the log)\n2026/01/02 03:04:01  xa_start  XA_OK  1 s",
       "without a return: 1"},
      {line(2, "xa_start", "XA trace: Enter") + line(1, "xa_start", "XA trace:  retstat: 0 ([XA_OK])"),
       "xa_start  XA_OK  (the clock was set back)", "without a return: 0"},
      {"a shell's line\n" + enter + "another one\n\tand its tab\n" + back.substr(0, 50), "xa_start  (return not in",
       "could not be read: 4"},
      {line(1, "xl_x", "Misc trace: Enter") + line(3, "xalog_open_file", "Message: Version 1 started") +
           line(4, "xl_x", "Misc trace: return: Void"),
       "xl_x  (beginning not in the log)", "without a return: 1, returns without their beginning: 1"},
      {line(1, "f\x1b[2J", "Message: bell\a"), "Message: bell.", "no calls are in the log"},
      {"", "", "calls: 0"},
  };
  for (const auto &[text, expected, counts] : rows) {
    const Outcome shown = log_of(text);
    EXPECT_EQ(shown.status, 0);
    EXPECT_TRUE(shown.says(expected) && shown.says(counts)) << text << "\n" << shown.output;
  }
}

TEST(Log, lines_that_only_look_alike_are_no_records) {
  const std::string good = line(1, "f", "Message: m");
  const std::pair<std::string, std::string> changes[] = {
      {"2026/", "2026-"}, {"0x10", "10"}, {"0x10", "0x123456789"},
      {",A0", ",X0"},     {"/7]", "/x]"}, {"Message", "Massage"},
  };
  for (const auto &[from, to] : changes) {
    std::string bad = good;
    bad.replace(bad.find(from), from.size(), to);
    EXPECT_TRUE(log_of(good + bad).says("could not be read: 1")) << bad;
    const Outcome alone = log_of(bad);
    EXPECT_EQ(alone.status, 2);
    EXPECT_TRUE(alone.says("is no trace log")) << alone.output;
  }
}

TEST(Log, a_log_of_any_depth_is_shown) {
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    text += line(1, "f", "Misc trace: Enter");
  }
  EXPECT_TRUE(log_of(text).says("calls: 100000, failed: 0, without a return: 100000"));
}

// It is read once, and what has returned is shown and forgotten.
TEST(Log, an_endless_log_is_shown_as_it_comes) {
  const std::string path = scratch("endless");
  write_text(path, line(1, "f", "Error: no server") + line(2, "xa_open", "XA trace: Enter") +
                       line(3, "xa_open", "Error: Return  retstat: -3 ([XAER_RMERR])") +
                       line(4, "xa_open", "XA trace:  retstat: -3 ([XAER_RMERR])") + line(5, "g", "Message: m"));
  for (const char *option : {"", " --failures"}) {
    const Outcome shown = run_command("timeout 60 sh -c 'yes \"$(cat " + path + ")\" | " XADTM " log /dev/stdin" +
                                      option + " | head -n 3000 | tail -n 1' || echo late");
    EXPECT_TRUE(shown.says("xa_open  FAILED") || shown.says("Error: no server") || shown.says("Message: m"))
        << shown.output;
    EXPECT_FALSE(shown.says("late")) << option;
  }
}

// A call with very much in it comes in parts; nothing of it is lost or counted twice.
TEST(Log, a_call_with_very_much_in_it_is_shown_in_parts) {
  std::string text = line(1, "f", "Misc trace: Enter") + line(1, "xa_end", "XA trace: Enter");
  for (int i = 0; i < 15000; ++i) {
    text += line(2, "g", "Misc trace: Enter") + line(2, "g", "Misc trace: return: Void");
  }
  const Outcome shown = log_of(text + line(3, "xa_end", "XA trace:  retstat: -7 ([XAER_RMFAIL])") +
                               line(4, "f", "Misc trace:  retstat: 5 ([])"));
  const std::string start = "process 0x10 (16), thread A0\n2026/01/02 03:04:01  f  (goes on below)\n";
  EXPECT_EQ(shown.output.substr(0, start.size()), start);
  EXPECT_TRUE(
      shown.says("\n2026/01/02 03:04:01  f  5  3 s\n2026/01/02 03:04:01    xa_end  FAILED  XAER_RMFAIL  2 s\n"));
  EXPECT_EQ(std::count(shown.output.begin(), shown.output.end(), '\n'), 1 + 15000 + 2 * 2 + 2);
  EXPECT_TRUE(shown.says("calls: 15002, failed: 1, without a return: 0, returns without their beginning: 0"));
}

TEST(Log, the_librarys_own_log_is_understood) {
  const std::string folder = scratch("xadtm_own");
  std::filesystem::create_directory(folder);
  write_text(folder + "/xa_config", "[all]\ntraceflags=all\n[xa]\nlrm=L1\nserver=bank1\n");
  write_text(folder + "/script",
             "flavour txs\nserver bank1\nuser bank1 sa secret\nopen 1 \"-NL1 -Usa -Psecret\"\n"
             "start 1 X1\nend 1 X1 TMSUCCESS\nprepare 1 X1\n@other open 1 \"-NL1 -Usa -Psecret\"\n"
             "@other rollback 1 X9\ncommit 1 X1\nclose 1\n");
  ASSERT_EQ(run_command("cd " + folder + " && XACONFIGFILE=xa_config XALOGFILE=log " XADRIVE " script").status, 0);
  const Outcome all = xadtm("log " + folder + "/log");
  EXPECT_TRUE(all.says("  xa_commit  XA_OK  0 s  rmid: 1, flags:[] XID: 22593.2.1 5831 31")) << all.output;
  EXPECT_TRUE(
      all.says("failed: 1, without a return: 0, returns without their beginning: 0, lines that could not be "
               "read: 0\n"))
      << all.output.substr(all.output.rfind("calls: "));
  const Outcome failures = xadtm("log " + folder + "/log --failures");
  EXPECT_TRUE(failures.says("xa_rollback  FAILED  XAER_NOTA"));
  EXPECT_FALSE(failures.says("xa_commit"));
  EXPECT_FALSE(all.says("secret"));
}

}  // namespace
