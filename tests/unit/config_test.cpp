// Open strings, keyword tables and the configuration file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "common_control.h"
#include "config/xal_config.h"
#include "config/xal_open_string.h"
#include "config/xal_settings.h"
#include "log/xal_log.h"
#include "scene.h"

using namespace fake;

namespace {

using OpenString = Scene;

TEST_F(OpenString, options_and_their_problems) {
  const std::string most(31, 'm');
  const std::string error = "[xacmn_parse_open_info] Error: ";
  const std::string message = "[xacmn_parse_open_info] Message: ";
  const std::string warning = "[xacmn_parse_open_info] Warning: ";
  const auto nameless = [&](const std::string &info, const char *label = "LRM Name") {
    return Lines{error + "Invalid open string " + info, message + "Contains no " + label + " (-N)"};
  };
  const auto keyless = [&](const std::string &info) {
    return Lines{error + "Invalid open string " + info, message + "Contains no Lookup key (-K)"};
  };
  const auto unknown = [&](const std::string &info, const char *letter) {
    return Lines{warning + "invalid open string " + info, message + "flag -" + letter + " not recognized"};
  };
  constexpr int32_t key = XAPF_LOOKUP_KEY;
  // clang-format off
  const struct {
    std::string info;
    int32_t tm_type;
    int32_t tm_flags;
    int32_t result;
    const char *values;  // name, user, password, key, server
    Lines log;
  } cases[] = {
      {"-nlrm1\t-usa\n-ppw\v-sbank", 1, 0, XA_OK, "lrm1|sa|pw||bank", {}},
      {"-Nlrm1 -Usa", 10, key, XAER_INVAL, "lrm1|sa|||", keyless("-Nlrm1 -Usa")},
      {"-Nlrm1 -Kk1", 10, key, XA_OK, "lrm1|||k1|", {}},
      {"-Kk1", 10, key, XAER_INVAL, "|||k1|", nameless("-Kk1", "DSN Name")},
      {"-Nlrm1 -Kk1", 1, 0, XA_OK, "lrm1||||", unknown("-Nlrm1 -Kk1", "K")},
      {"-N lrm1", 1, 0, XAER_INVAL, "||||", nameless("-N lrm1")},
      {"-Na-b abc-Sserver", 1, 0, XA_OK, "a-b||||server", {}},
      {std::string("-N") + most, 1, 0, XA_OK, "mmmmmmmmmmmmmmmmmmmmmmmmmmmmmmm||||", {}},
      {std::string("-N") + most + "m -Usa", 1, 0, XAER_INVAL, "mmmmmmmmmmmmmmmmmmmmmmmmmmmmmmm||||",
       {error + "LRM Name Too long, Truncated:", std::string("\t") + most, ""}},
      {std::string("-Nx -P") + most + "m", 1, 0, XAER_INVAL, "x||mmmmmmmmmmmmmmmmmmmmmmmmmmmmmmm||",
       {error + "Password Too long, Truncated.", ""}},
      {"-V11 -Nx", 1, 0, XA_OK, "x||||", {}},
      {"-V12 -Nx", 1, 0, XAER_INVAL, "||||", joined({{error + "Incorrect version identifier in open string -V12 -Nx"},
       nameless("-V12 -Nx")})},
      {"-Nx -V11", 1, 0, XAER_INVAL, "x||||", {error + "Incorrect version identifier in open string -Nx -V11"}},
      {"-C10 -Nx", 1, 0, XAER_INVAL, "||||", joined({{error + "Incorrect open string -C10 -Nx",
       message + "Maximum number of connections must be set in xa_config [all] section"}, nameless("-C10 -Nx")})},
      {"-Nx -", 1, 0, XA_OK, "x||||", unknown("-Nx -", "")},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.info);
    behave_as(one.tm_type, static_cast<uint32_t>(one.tm_flags));
    char name[32], user[32], password[32], lookup_key[32], server[32];
    EXPECT_EQ(xacmn_parse_open_info(one.info.c_str(), name, user, password, lookup_key, server), one.result);
    EXPECT_EQ(text("%s|%s|%s|%s|%s", name, user, password, lookup_key, server), one.values);
    EXPECT_EQ(take_log(), one.log);
  }
  EXPECT_EQ(xacmn_parse_open_info("-Usa", nullptr, nullptr, nullptr, nullptr, nullptr), XA_OK);
}

using Keyword = Scene;

TEST_F(Keyword, texts_become_rows_or_are_rejected) {
  const std::string error = "[xacmn_get_val] Error: ";
  const struct {
    const XA_KEYWORD *table;
    const char *label;
    const char *words;
    const char *row;  // code, integer, string, length, flags, label; null: the value is rejected
  } cases[] = {
      {XaCtxPropLookupTab, "Context Property", "cs_max_connect=25", "9118 25 - -99999 2241 CS_MAX_CONNECT"},
      {XaCtxPropLookupTab, "Context Property", "CS_IFILE=/opt/a=b", "9115 0 /opt/a=b -9 2241 CS_IFILE"},
      {XaPropLookupTab, "Property", "CS_TDS_VERSION=5.0", "9105 7364 - -99999 2281 CS_TDS_VERSION"},
      {XaPropLookupTab, "Property", "CS_HIDDEN_KEYS=cs_true", "9113 1 - -99999 2281 CS_HIDDEN_KEYS"},
      {XaPropLookupTab, "Property", "CS_HIDDEN_KEYS=true", nullptr},
      {XaPropLookupTab, "Property", "CS_PACKETSIZE=2147483647", "9107 2147483647 - -99999 2281 CS_PACKETSIZE"},
      {XaPropLookupTab, "Property", "CS_PACKETSIZE=2147483648", nullptr},
      {XaPropLookupTab, "Property", "CS_PACKETSIZE", nullptr},
      {XaOptLookupTab, "Option", "CS_OPT_ROWCOUNT=-1", nullptr},
      {XaCapLookupTab, "Capability", "CS_DATA_NODATE4=1", "15 1 - -99999 2284 CS_DATA_NODATE4"},
      {XaCSDTInfoLookupTab, "cs_dt_info setting", "CS_DATES_LONG", "7345 9 - 4 102248 CS_DATES_LONG"},
      {XaCSDTInfoLookupTab, "cs_dt_info setting", "CS_DATES_LONG=yes", nullptr},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.words);
    XA_SETTING list[2] = {};
    list[1].xs_flags = XS_END;
    xacmn_clean_val(list, 1);
    std::string words = one.words;
    EXPECT_EQ(xacmn_get_val(one.table, one.label, words.data(), list), one.row != nullptr ? 1 : 0);
    std::string value = one.words;
    const std::string keyword = value.substr(0, value.find('='));
    value.erase(0, keyword.size() + 1);
    EXPECT_EQ(take_log(), one.row != nullptr ? Lines{}
                                             : Lines{error + "Unknown value " + value + " for " + one.label + ": " +
                                                     keyword + ", ignored"});
    const XA_SETTING &row = list[0];
    EXPECT_EQ(one.row != nullptr ? one.row : "0 0 - 0 0 ",
              text("%d %d %s %d %x %s", row.xs_code, row.xs_int, row.xs_str != nullptr ? row.xs_str : "-", row.xs_len,
                   row.xs_flags, row.xs_label));
    xacmn_clean_val(list, 0);
    EXPECT_EQ(row.xs_str, nullptr);
  }
}

TEST_F(Keyword, an_unsupported_keyword_and_a_full_list_are_rejected) {
  XA_SETTING list[2] = {};
  list[1].xs_flags = XS_END;
  char unsupported[] = "CS_IFILE=x";
  EXPECT_EQ(xacmn_get_val(XaPropLookupTab, "Property", unsupported, list), 0);
  EXPECT_EQ(take_log(), Lines{"[xacmn_get_val] Error: Property CS_IFILE not supported, ignored"});
  char first[] = "CS_TIMEOUT=1";
  char second[] = "nonsense=1";
  char third[] = "CS_TIMEOUT=1";
  EXPECT_EQ(xacmn_get_val(XaCtxPropLookupTab, "Context Property", first, list), 1);
  EXPECT_EQ(xacmn_get_val(XaCtxPropLookupTab, "Context Property", second, list), 0);
  EXPECT_EQ(take_log(), Lines{"[xacmn_get_val] Error: Maximum number of Context Property exceeded, nonsense ignored"});
  EXPECT_EQ(xacmn_get_val(XaCtxPropLookupTab, "Context Property", third, nullptr), 1);
  EXPECT_STREQ(third, "CS_TIMEOUT=1") << "without a list the text is left alone";
  char fourth[] = "CS_IFILE=x";
  xacmn_clean_val(list, 0);
  common_fail_allocation(1, 0);
  EXPECT_EQ(xacmn_get_val(XaCtxPropLookupTab, "Context Property", fourth, list), 0);
  EXPECT_EQ(take_log(), Lines{"[xacmn_get_val] Error: Unable to allocate memory for CS_IFILE = x, ignored"});
  EXPECT_EQ(list[0].xs_flags, 0U);
}

class Config : public Scene {
 protected:
  Config() { clear(); }
  ~Config() override { clear(); }

  void clear() {
    for (const char *variable : {"XACONFIGFILE", "TARVEX", "TARVEX_QLT", "XALOGFILE"}) {
      unsetenv(variable);
    }
    xa_config_file[0] = '\0';
    for (XA_SETTING &row : settings) {
      comn_free(row.xs_str);
      row = XA_SETTING{};
    }
    settings[2].xs_flags = XS_END;
  }
  int32_t configure(const std::string &content, const char *info = "-NL1") {
    clear();
    path = file_with(content);
    setenv("XACONFIGFILE", path.c_str(), 1);
    return xal_configure(info, settings);
  }
  // Reads "L1" from a file of [xa] sections; "server|cap|prop|opt" with the codes found.
  std::string lookup(const std::string &content, int32_t *result, uint32_t tm_flags = 0) {
    clear();
    strcpy(xa_config_file, file_with(content).c_str());
    behave_as(XATM_TUX, tm_flags);
    char server[32] = "stale";
    XA_SETTING lists[3][3] = {};
    for (auto &list : lists) {
      list[2].xs_flags = XS_END;
    }
    *result = xal_lrm_lookup("L1", server, lists[0], lists[1], lists[2]);
    EXPECT_EQ(common_readers_open(), 0);
    return text("%s|%d|%d|%d", server, lists[0][0].xs_code, lists[1][0].xs_code, lists[2][0].xs_code);
  }
  std::string path;
  XA_SETTING settings[3] = {};
};

TEST_F(Config, the_file_is_searched_in_order_and_remembered) {
  std::string home = file_with("");
  remove(home.c_str());
  mkdir(home.c_str(), 0700);
  mkdir((home + "/q").c_str(), 0700);
  mkdir((home + "/q/config").c_str(), 0700);
  mkdir((home + "/config").c_str(), 0700);
  const std::string places[] = {home + "/q/config/xa_config", home + "/q/xa_config", home + "/config/xa_config",
                                home + "/xa_config"};
  INTL_READER reader{};
  setenv("TARVEX", home.c_str(), 1);
  setenv("TARVEX_QLT", "q", 1);
  EXPECT_EQ(xa_config_open(&reader), 0);
  const std::string tried = "[xa_config_open] Error: Configuration file search path ";
  EXPECT_EQ(take_log(), (Lines{tried + places[0], tried + places[1], tried + places[2], tried + places[3]}));
  for (int place = 3; place >= 0; --place) {
    std::ofstream(places[place]) << "[all]\n";
    xa_config_file[0] = '\0';
    EXPECT_EQ(xa_config_open(&reader), 1);
    EXPECT_EQ(intl_close(&reader), 1);
    EXPECT_EQ(xa_config_file, places[place]);
  }
  setenv("TARVEX", "/elsewhere", 1);
  EXPECT_EQ(xa_config_open(&reader), 1) << "the file found first stays";
  intl_close(&reader);
  remove(places[0].c_str());
  EXPECT_EQ(xa_config_open(&reader), 0);
  EXPECT_EQ(take_log(), Lines{"[xa_config_open] Error: Unable to open configuration file " + places[0]});
  clear();
  behave_as(XATM_MTS, XAPF_CFG_OPTIONAL);
  EXPECT_EQ(xa_config_open(&reader), 0);
  EXPECT_EQ(take_log(), Lines{"[xa_config_open] Error: No $XACONFIGFILE or $TARVEX found"});
  setenv("XACONFIGFILE", "/nonexistent/xa_config", 1);
  EXPECT_EQ(xa_config_open(&reader), 0);
  EXPECT_EQ(take_log(), Lines{}) << "an optional file is not missed";
  behave_as(XATM_TUX, 0);
  setenv("TARVEX", home.c_str(), 1);
  EXPECT_EQ(xa_config_open(&reader), 0);
  EXPECT_EQ(take_log(), Lines{tried + "/nonexistent/xa_config"}) << "the explicit path is the only candidate";
  const std::string too_long = "/" + std::string(1100, '/') + "tmp";
  setenv("XACONFIGFILE", (too_long + home.substr(4) + "/xa_config").c_str(), 1);
  EXPECT_EQ(xa_config_open(&reader), 0) << "a path that cannot be kept is no file";
  EXPECT_EQ(std::string(xa_config_file), "");
}

TEST_F(Config, the_all_section_is_read_entry_by_entry) {
  const std::string error = "[xal_read_all_section] Error: ";
  const std::string used = "[xal_configure] Message: Using config file ";
  // clang-format off
  const struct {
    const char *name;
    std::string content;
    int32_t result;
    Lines log;  // PATH stands for the file
    uint32_t mask;
    std::vector<int32_t> codes;
  } cases[] = {
      {"other sections are skipped", "[xa]\ntraceflags=xa\n[ALL]\nTraceFlags=misc\n[all]\ntraceflags=xl\n", 1,
       {used + "PATH", ""}, 0x10, {0}},
      {"settings", "[all]\nproperties=CS_MAX_CONNECT=25,CS_TIMEOUT=60\n", 1, {used + "PATH", ""}, 0x40, {9118, 9117}},
      {"empty values", "[all]\nlogfile=\ntraceflags=\ncs_dt_info=\n", 1,
       {error + "invalid logfile specification in PATH!", error + "invalid traceflag specification in PATH!",
       error + "invalid cs_dt_info specification in PATH!", used + "PATH", ""}, 0x40, {0}},
      {"refused entries do not stop the reading", "[all]\nmaxoutconn=3\nnonsense=1\ntraceflags=xc\n", 1,
       {error + "Invalid maxoutconn entry in PATH, use properties=CS_MAX_CONNECT=<nr>",
       error + "Invalid entry in [all] section of PATH", used + "PATH", ""}, 0x4, {0}},
      {"malformed", "[all]\nnot an entry\n", 0, {error + "[all] section not found in config file PATH"}, 0, {0}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    xacmn_log_tracing.store(0);
    EXPECT_EQ(configure(one.content, "-NL1 -Tv"), one.result);
    EXPECT_EQ(xacmn_log_tracing.load(), one.mask) << "-T counts only without a traceflags entry";
    xacmn_log_tracing.store(0);
    Lines log = take_log();
    std::erase_if(log, [](const std::string &line) { return line.find("skipped open of") != std::string::npos; });
    for (std::string &line : log) {
      if (const size_t at = line.find(path); at != std::string::npos) {
        line.replace(at, path.size(), "PATH");
      }
    }
    EXPECT_EQ(log, one.log);
    for (size_t index = 0; index < one.codes.size(); ++index) {
      EXPECT_EQ(settings[index].xs_code, one.codes[index]);
    }
  }
}

TEST_F(Config, the_log_is_chosen_by_section_option_variable_and_home) {
  const struct {
    const char *content, *info, *log;
  } cases[] = {
      {"", "-NL1", "stderr"}, {"", "-NL1 -L/a.log", "/a.log"}, {"[all]\nlogfile=/b.log\n", "-NL1 -L/a.log", "/b.log"}};
  for (const auto &one : cases) {
    EXPECT_EQ(configure(one.content, one.info), 1);
    EXPECT_THAT(take_log().at(0), testing::HasSubstr(text("skipped open of %s. log file", one.log)));
  }
  configure("", "-NL1");
  take_log();
  setenv("TARVEX", "/home", 1);
  EXPECT_EQ(xal_configure("-NL1", settings), 1);
  EXPECT_THAT(take_log().at(0), testing::HasSubstr("open of /home/trv_xa_log."));
  setenv("XALOGFILE", "/c.log", 1);
  EXPECT_EQ(xal_configure("-NL1", settings), 1);
  EXPECT_THAT(take_log().at(0), testing::HasSubstr("open of /c.log."));
  EXPECT_EQ(configure("", nullptr), 0);
  EXPECT_EQ(take_log(), Lines{"[xal_configure] Error: NULL open string"});
}

TEST_F(Config, an_lrm_gets_the_first_section_that_names_it) {
  const std::string error = "[xal_lrm_lookup] Error: ";
  const std::string settings_before =
      "[xa]\nproperties=CS_PACKETSIZE=1\noptions=CS_OPT_ROWCOUNT=1\n"
      "capabilities=CS_DATA_NOBIN=1\nlrm=L1\nserver=bank\n";
  // clang-format off
  const struct {
    const char *name;
    std::string content;
    uint32_t tm_flags;
    int32_t result;
    const char *found;
    Lines log;
  } cases[] = {
      {"settings before the name", settings_before, 0, 1, "bank|10|9107|5005", {}},
      {"first section wins", "[xa]\nDSN=L1\nserver=one\n[xa]\nlrm=L1\nserver=two\n", 0, 1, "one|0|0|0", {}},
      {"another LRM's settings do not stay", "[xa]\nlrm=L2\nserver=x\nproperties=CS_PACKETSIZE=1\n[xa]\nlrm=L1\n", 0,
       1, "|0|0|0", {}},
      {"names are case-sensitive", "[xa]\nlrm=l1\nserver=x\n", 0, 0, "|0|0|0", {error + "lrm name L1 not found"}},
      {"other sections are skipped", "[all]\nlrm=L1\nserver=x\n", XAPF_CFG_OPTIONAL, 1, "|0|0|0", {}},
      {"odd entries are ignored", "[xa]\nxaserver=1\nnonsense=1\nlrm=L1\n", 0, 1, "|0|0|0", {}},
      {"no LRM value", "[xa]\nlrm=\nlrm=L1\n", 0, 0, "|0|0|0", {error + "lrm invalid"}},
      {"LRM of 32 characters", std::string("[xa]\nlrm=") + std::string(32, 'L') + "\n", 0, 0, "|0|0|0",
       {error + "lrm invalid"}},
      {"server of 32 characters", std::string("[xa]\nlrm=L1\nserver=") + std::string(32, 's') + "\n", 0, 0, "|0|0|0",
       {error + "server invalid"}},
      {"limit in the wrong place", "[xa]\nmaxoutconn=3\nlrm=L1\n", 0, 1, "|0|0|0",
       {error + "maxoutconn cannot be set in [xa] stanza",
       "[xal_lrm_lookup] Message: Use propertiess=CS_MAX_CONNECT=<nr> in [all] stanza"}},
      {"malformed", "[xa]\nlrm=L1\nnot an entry\n", 0, 0, "|0|0|0", {error + "No xa section in xa_config file"}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    int32_t result = -1;
    EXPECT_EQ(lookup(one.content, &result, one.tm_flags), one.found);
    EXPECT_EQ(result, one.result);
    EXPECT_EQ(take_log(), one.log);
  }
}

TEST_F(Config, file_names_fit_or_are_none) {
  const std::string longest(1021, 'd');
  for (const std::string &dir : {std::string("a"), longest}) {
    char *made = xa_make_fname("f", dir.c_str(), nullptr, nullptr);
    EXPECT_EQ(made, dir + "/f");
    comn_free(made);
  }
  EXPECT_EQ(xa_make_fname("f", (longest + "d").c_str(), nullptr, nullptr), nullptr);
  common_fail_allocation(1, 0);
  EXPECT_EQ(xa_make_fname("f", "a", nullptr, nullptr), nullptr);
}

}  // namespace
