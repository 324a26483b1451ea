// Xadtm check: configurations that work, that work with remarks, and that do not.
#include <gtest/gtest.h>

#include <filesystem>

#include "serving.h"
#include "tool.h"

namespace {

Outcome check(const Site &site, const std::string &open_string, const std::string &environment = "",
              const std::string &options = "") {
  site.run("mkdir -p tmp");
  return site.run(environment + " TMPDIR=tmp " XADTM " check " + options + " -o '" + open_string + "'");
}

// What every check keeps to, whatever comes of it.
void expect_discreet(const Site &site, const Outcome &outcome) {
  EXPECT_FALSE(outcome.says("topSecret")) << outcome.output;
  EXPECT_TRUE(std::filesystem::is_empty(site.at("tmp")));
  EXPECT_FALSE(std::filesystem::exists(site.at("xa.log")));
}

TEST(Check, what_works_is_shown_with_its_origins) {
  const Site site;
  const Outcome outcome = check(site, "-NL1 -Uteller -PtopSecret");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_EQ(outcome.output,
            "trying it out; all that is found is shown when that has come to its end\n"
            "open string, flavour txs (unless --flavour)\n"
            "  -N L1  LRM name\n  -U teller  user\n  -P ***  password\n"
            "configuration file xa_config, from $XACONFIGFILE\n"
            "  [all]\n  [xa]\n    lrm\n      L1\n    server\n      bank1\n"
            "  [xa]  <- not used: it is another LRM's\n"
            "server: bank1, from the configuration's [xa] section\n"
            "log: xa.log, from $XALOGFILE\n"
            "tried\n  xa_open, with the check that the server is ready: XA_OK (0)\n"
            "  xa_recover: branches in doubt: 0\n  xa_close: XA_OK (0)\n"
            "the library had nothing to complain about\n"
            "A transaction manager can use it as it stands.\n");
  expect_discreet(site, outcome);
  for (const char *flavour : {"mts", "tux"}) {
    const Outcome other = check(site, "-NL1 -Uteller -PtopSecret", "", std::string("--flavour ") + flavour);
    EXPECT_EQ(other.status, 0) << other.output;
  }
}

// Each row: an open string, and a line that tells what becomes of one of its parts. All can be used.
TEST(Check, unused_parts_of_the_open_string_are_named) {
  const Site site;
  const std::pair<std::string, std::string> rows[] = {
      {"-NL9 -NL1", "  -N L9  LRM name; not used: the option stands again later\n"},
      {"-NL1 -Sbank1", "server: bank1, from -S; the configuration's server entry is not used\n"},
      {"-NL1 -topSecret",
       "  -T (value not shown)  trace keyword; ignored: there is no such trace keyword; known are xa"},
      {"-NL1 -XtopSecret", "  -X (value not shown)  ignored: there is no such option\n"},
      {"-NL1 -Kk", "  -K (value not shown)  ignored"},
      {"-NL1 -Lother.log -Lthird.log", "  -L third.log  log file; not used: only the first -L is\n"},
      {"-NL1 -Lother.log", "log: other.log, from -L\n"},
      {"-NL1 topSecret", "  text that belongs to no option is ignored"},
      {"-NL1 -p topSecret",
       "not used: the option stands again later; a password stands directly behind -P, without white space\n"},
      {"-NL1 --PtopSecret -", "  -- (value not shown)  ignored: there is no such option\n"},
      {"-NL1 -Lx-PtopSecret", "  -L x-P***  log file; if -P in it was to be an option, put white space before it\n"},
      {"-NL1 -P x-LtopSecret", "  -L (value not shown)  log file\n"},
      {"-NL1 -Ux-Txl", "  -U x-Txl  user; not used: the option stands again later; the library takes \"-T\" in it for"},
  };
  for (const auto &[options, line] : rows) {
    const Outcome outcome = check(site, options + " -Uteller -PtopSecret");
    EXPECT_EQ(outcome.status, 0) << options << ": " << outcome.output;
    EXPECT_TRUE(outcome.says(line)) << options << ": " << outcome.output;
    expect_discreet(site, outcome);
  }
}

TEST(Check, unused_parts_of_the_configuration_are_named) {
  const Site site;
  site.write(
      "xa_config",
      "[other]\nx=1\n[all]\ntraceflags=all\nnosuch=1\nlogfile=x.log,y.log\nmaxoutconn=3\ncs_dt_info=CS_DATES_LONG=7\n"
      "properties=CS_TIMEOUT=abc,CS_TIMEOUT=60,CS_NOPE=1\n[all]\nlogfile=z.log\n"
      "[xa]\nlrm=L1\nserver=bank1\nnosuch=1\nproperties=CS_TDS_VERSION=5.0,CS_PACKETSIZE=0\ncapabilities=CS_DATA_NOBIT="
      "perhaps\n"
      "options=CS_OPT_ROWCOUNT=5,CS_PACKETSIZE=512\n[xa]\nlrm=L1\nserver=bank7\n");
  const Outcome outcome = check(site, "-NL1 -Uteller -PtopSecret -Lmine.log -Txa");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  for (const char *line :
       {"  -L mine.log  log file; not used: the configuration's logfile entry decides\n",
        "  -T xa  trace keyword; not used: the configuration's traceflags entry decides\n",
        "  [other]  <- not used: only sections [all] and [xa] are read\n",
        "  [all]  <- not used: only the first [all] section is read\n",
        "  [xa]  <- not used: only the first [xa] section with this lrm is read\n",
        "    nosuch\n      (value not shown)\n      <- ignored: no entry of this name belongs here\n    logfile",
        "      y.log\n      <- ignored: only its first value is used\n",
        "      CS_TIMEOUT=abc  <- not in force: the keyword takes no such value\n", "      CS_TIMEOUT=60\n",
        "      CS_NOPE=(value not shown)  <- not in force: the entry takes no such keyword",
        "    nosuch\n      (value not shown)\n      <- ignored: no entry of this name belongs here\n    properties\n",
        "      CS_TDS_VERSION=5.0\n",
        // refused silently, but for an event trace
        "      CS_PACKETSIZE=0  <- not in force: ct_con_props(CS_SET, CS_PACKETSIZE) failed!",
        "      CS_DATA_NOBIT=perhaps  <- not in force: the keyword takes no such value\n", "      CS_OPT_ROWCOUNT=5\n",
        "      CS_PACKETSIZE=(value not shown)  <- not in force: the entry takes no such keyword",
        "    -> remove the entry, and write properties=CS_MAX_CONNECT=NUMBER in the [all] section\n",
        "log: x.log, from the configuration's logfile entry\n"}) {
    EXPECT_TRUE(outcome.says(line)) << line << "is missing in\n" << outcome.output;
  }
  expect_discreet(site, outcome);
  EXPECT_FALSE(std::filesystem::exists(site.at("x.log")));
}

TEST(Check, configured_twice_or_in_vain_is_named) {
  const Site site;
  site.write("xa_config",
             "[all]\nlogfile=\nlogfile=/nowhere/x\nlogfile=a.log\nlogfile=b.log\ntraceflags=topSecret\nmaxoutconn=3\n"
             "properties=CS_PACKETSIZE=512,cs_timeout=Abc\n[xa]\nlrm=L1\nserver=elsewhere\nserver=bank1\n"
             "properties=CS_PACKETSIZE=512\n");
  const Outcome outcome = check(site, "-NL1 -Uteller -PtopSecret -Ta");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  for (const char *line :
       {"    logfile\n      <- ignored: it has no value\n    logfile\n      /nowhere/x\n"
        "      <- ignored: the file cannot be opened, and so a later entry is used\n    logfile\n      a.log\n    "
        "logfile\n      b.log\n"
        "      <- ignored: only the first logfile entry is used\n",
        "      <- ignored: there is no such trace keyword; known are xa", "      <- ignored: write properties=CS_MAX_C",
        "      CS_PACKETSIZE=(value not shown)  <- not in force: the entry takes no such keyword",
        "      cs_timeout=Abc  <- not in force: the keyword takes no such value\n",
        "      elsewhere\n      <- ignored: the entry stands again later\n", "      CS_PACKETSIZE=512\nserver: bank1, ",
        "  -T a  trace keyword; not used: the configuration's traceflags", "log: a.log, from the configuration's"}) {
    EXPECT_TRUE(outcome.says(line)) << line << " is missing in\n" << outcome.output;
  }
  expect_discreet(site, outcome);
}

// The library takes options after an error for not given, and every "-L" for the log's.
TEST(Check, the_open_string_is_read_as_the_library_reads_it) {
  const Site site;
  struct {
    std::string open_string;
    int status;
    std::string line;
  } const rows[] = {
      {"-NL1 -Uteller -PtopSecret -V12 -NL7", 0, "  -N L7  LRM name; not used: an option before it is wrong\n"},
      {"-NL1 -Uteller -PtopSecret -V11", 0, "  -V 11  version; refused: write -V11 with white space behind it"},
      {"-NL1 -V11 -Uteller -PtopSecret", 0, "  -V 11  version\n"},
      {"-Uuser-log/in -NL1 -PtopSecret -Lx", 1, "log: (path not shown), from \"-L\" within another option\n"},
      {"-NL1 -Uteller -Ptop-lSecret", 1, "log: (path not shown), from \"-L\" within another option\n"},
  };
  for (const auto &[open_string, status, line] : rows) {
    const Outcome outcome = check(site, open_string);
    EXPECT_EQ(outcome.status, status) << open_string << ": " << outcome.output;
    EXPECT_TRUE(outcome.says(line)) << open_string << ": " << outcome.output;
    EXPECT_FALSE(outcome.says("ecret")) << outcome.output;
  }
  site.prepare({"T1.a"});
  EXPECT_TRUE(site.run(XADTM " branches -o '-NL1 -Uteller -PtopSecret -V12 -NL7'").says("5841_l34_og_:L1\n"));
}

// What is hidden must not tell by its absence what the password is.
TEST(Check, passwords_are_kept_however_they_are_chosen_and_misplaced) {
  const Site site;
  site.write("pw",
             "[all]\npassword=topSecret\nproperties=CS_PASSWORD=topSecret,CS_TIMEOUT=topSecret,topSecret\n"
             "[xa]\nlrm=L1\nserver=bank1\nlogin=-Uteller -P topSecret\ntopSecret=1\n[xa]\npassword topSecret\n");
  for (const std::string flavour : {"mts", "tux", "txs"}) {
    for (const std::string password : {"-PtopSecret", "-P topSecret", "-xtopSecret"}) {
      const Outcome outcome = check(site, "-NL1 -Uteller " + password, "XACONFIGFILE=pw", "--flavour " + flavour);
      EXPECT_FALSE(outcome.says("topSecret")) << outcome.output;
      EXPECT_TRUE(outcome.says("CS_TIMEOUT=(value not shown)  <- not in force")) << outcome.output;
      EXPECT_TRUE(
          outcome.says("  [xa]  <- not used: it holds a malformed line; correct it\n    password (rest not shown)"))
          << outcome.output;
    }
  }
  const std::string expected = check(site, "-NL1 -Uteller -Pwrong").output;
  for (const std::string password : {"teller", "L1", "bank1", "a", "o"}) {
    EXPECT_EQ(check(site, "-NL1 -Uteller -P" + password).output, expected) << password;
  }
  const Outcome word = check(site, "-NL1 -Uteller -Prefused");
  EXPECT_TRUE(word.says("  Message: (not shown, since the password may stand in it)\n")) << word.output;
  for (const std::string odd : {"-P topSecret", "topSecret", "-P\ntopSecret", "-xtopSecret", "-Px-ltopSecret/x"}) {
    for (const std::string environment : {"XALOGFILE=stderr", "XALOGFILE=/nowhere/x", "XACONFIGFILE=nowhere"}) {
      const Outcome outcome = site.run(environment + " " XADTM " branches -o '-NL1 -V12 " + odd + "'");
      EXPECT_EQ(outcome.status, 1) << outcome.output;
      EXPECT_FALSE(outcome.says("topSecret")) << outcome.output;
    }
  }
}

// A server that stands still does not answer; the check is killed while it waits.
TEST(Check, nothing_is_left_of_the_private_log_when_it_is_killed) {
  const Site site;
  ZdbdProcess zdbd(site);
  zdbd.stand_still();
  const Outcome outcome = check(site, "-NL1 -Uteller -PtopSecret", "timeout -s KILL 1 env");
  zdbd.kill_hard();
  EXPECT_NE(outcome.status, 0) << outcome.output;
  expect_discreet(site, outcome);
}

TEST(Check, what_cannot_be_used_is_refused_with_its_cure) {
  const Site site;
  ASSERT_EQ(site.run("echo topSecret | " ZDBD " --admin bank1 add-user guest plain").status, 0);
  site.write("malformed", "[all]\n[xa]\nlrm=L1\nserver bank1\n");
  site.write("foreign", "[all]\n[xa]\nlrm=L7\n");
  site.write("noserver", "[all]\n[xa]\nlrm=L1\n");
  site.write("unread", "[all]\nlogfile x\n[xa]\nlrm=L1\nserver=bank1\nproperties=CS_PASSWORD=topSecret\n");
  site.write("stray", "[all]\n[xa]\nlrm=L1\nserver=bank1\npassword:topSecret\n[xa] pw=topSecret\n[xa-PtopSecret\n");
  const std::string good = "-NL1 -Uteller -PtopSecret";
  struct {
    std::string open_string;
    std::string environment;
    std::string message;
  } const rows[] = {
      {good, "env -u TARVEX -u XACONFIGFILE", "-> set XACONFIGFILE"},
      {good, "XACONFIGFILE=/nowhere/xa", "  not readable: /nowhere/xa\n"},
      {good, "env -u XACONFIGFILE TARVEX=/nowhere TARVEX_QLT=q", "  not readable: /nowhere/q/config/xa_config\n"},
      {good, "XACONFIGFILE=malformed", "[xa]  <- not used: it holds a malformed line"},
      {good, "XACONFIGFILE=malformed", "-> correct the malformed line"},
      {good, "XACONFIGFILE=unread", "      CS_PASSWORD=(value not shown)  <- not in force: the entry takes"},
      {good, "XACONFIGFILE=stray", "    password (rest not shown)\n"},
      {good, "XACONFIGFILE=stray", "  [xa (rest not shown)]  <- not used: it holds a malformed line"},
      {good, "XACONFIGFILE=foreign", "-> add an [xa] section with this lrm, or correct -N"},
      {good, "XACONFIGFILE=noserver", "server: none named; add -S"},
      {good, "XALOGFILE=/nowhere/log", "log: /nowhere/log, from $XALOGFILE\n  <- it cannot be opened"},
      {good, "XALOGFILE=tmp", "  <- it cannot be opened"},
      {"-Uteller -PtopSecret", "", "  no LRM is named, which only MTS allows: add -N"},
      {"-NL1 -UtellertellertellertellertellerXX -PtopSecret", "", "  user; refused: it has more than 31 characters"},
      {"-V12 " + good, "", "  version; refused: write -V11"},
      {"-C5 " + good, "", "; remove -C, and write"},
      {"-NL1 -Uteller -PtopSecrets", "", "-> see that the server runs"},
      {"-NL1 -Uteller-PtopSecret", "", "  -U teller-P***  user; if -P in it was to be an option, put white"},
      {good + " -Snowhere", "", "Error: Connect(nowhere) failed, rc=0\n    -> see that the server runs"},
      {"-NL1 -Uguest -PtopSecret", "", "-> give the user the role at the server"},
  };
  for (const auto &[open_string, environment, message] : rows) {
    const Outcome outcome = check(site, open_string, environment);
    EXPECT_EQ(outcome.status, 1) << environment << open_string << outcome.output;
    EXPECT_TRUE(outcome.says(message) && outcome.says("cannot use it")) << message << "\n" << outcome.output;
    expect_discreet(site, outcome);
  }
  const Outcome nameless = check(site, "-Uteller -PtopSecret -Sbank1", "", "--flavour mts");
  EXPECT_EQ(nameless.status, 0);
  EXPECT_TRUE(nameless.says("no LRM name") && nameless.says("without -K")) << nameless.output;
  ASSERT_EQ(site.administer("dtm off").status, 0);
  const Outcome off = check(site, good);
  EXPECT_EQ(off.status, 1);
  EXPECT_TRUE(off.says("-> switch it on at the server")) << off.output;
}

TEST(Check, bad_usage_tries_nothing) {
  const Site site;
  for (const char *arguments : {"check", "check more -o -NL1", "check -o"}) {
    EXPECT_EQ(site.run(XADTM " " + std::string(arguments)).status, 2) << arguments;
  }
  const Outcome outcome = check(site, "-NL1", "", ">/dev/null; TMPDIR=/nowhere " XADTM " check");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.says("TMPDIR")) << outcome.output;
}

}  // namespace
