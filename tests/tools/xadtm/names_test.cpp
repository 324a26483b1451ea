// Xadtm names, and the command line as a whole.
#include <gtest/gtest.h>

#include "tool.h"

namespace {

struct Wrong {
  std::string arguments;
  std::string message;
};

void expect_usage_errors(const std::vector<Wrong> &rows) {
  for (const auto &[arguments, message] : rows) {
    const Outcome run = xadtm(arguments);
    EXPECT_EQ(run.status, 2) << arguments;
    EXPECT_TRUE(run.says("xadtm: ") && run.says(message)) << arguments << ": " << run.output;
  }
}

// The names are those that servers store, worked out by hand from the six-bit groups.
TEST(Names, xids_become_names_and_come_back) {
  const std::string longest(128, 'f');
  const std::pair<std::string, std::string> rows[] = {
      {"22593 5431 61 L1", "5841_l34_og_:L1"},
      {"0 00 - bank_1", "0_00__:bank_1"},
      {"-2 fffefd 0001 L", "fffffffe_##XZ_004_:L"},
      {"2147483647 " + longest + " " + longest + " 1234567890123456789012345678901", ""},
  };
  for (const auto &[xid, name] : rows) {
    const Outcome encoded = xadtm("names encode " + xid);
    ASSERT_EQ(encoded.status, 0) << encoded.output;
    EXPECT_TRUE(name.empty() || encoded.output == name + "\n") << encoded.output;
    const Outcome decoded = xadtm("names decode '" + encoded.output.substr(0, encoded.output.size() - 1) + "'");
    ASSERT_EQ(decoded.status, 0) << decoded.output;
    std::string words = "read:";
    for (const char *label : {"formatID ", "gtrid    ", "bqual    ", "LRM      "}) {
      const size_t at = decoded.output.find(label) + std::string(label).size();
      words.append(" ").append(decoded.output, at, decoded.output.find('\n', at) - at);
    }
    EXPECT_EQ(words, "read: " + xid);
  }
  EXPECT_EQ(xadtm("names encode 0xFFFFFFFE 01 '' ''").output, "fffffffe_0g__:\n");
  EXPECT_TRUE(xadtm("names decode fffffffe_0g__:").says("\nLRM      (no name)\n"));
}

// Nothing of a name reaches the terminal as it is that could play with it, and what is shown can be given back.
TEST(Names, hostile_ones_are_shown_so_that_they_can_be_pasted) {
  const std::pair<std::string, std::string> rows[] = {
      {"L\x1b[2J", "L\\x1b[2J"},
      {"L\xc2\x9b", "L\\xc2\\x9b"},
      {"L\x9b\x7f", "L\\x9b\\x7f"},
      {"L\xc3\xa4", "L\xc3\xa4"},
      {"L\xe0\x80\x9b", "L\\xe0\\x80\\x9b"},
      {"L\xf0\x9f\x98\x80", "L\xf0\x9f\x98\x80"},
      {"L\xed\xa0\x80", "L\\xed\\xa0\\x80"},
      {"L\\x5cx1b", "L\\x5cx1b"},
      {"L\\2", "L\\2"},
  };
  for (const auto &[lrm, shown] : rows) {
    const Outcome encoded = xadtm("names encode 1 31 31 '" + lrm + "'");
    EXPECT_EQ(encoded.output, "1_cg_cg_:" + shown + "\n");
    EXPECT_TRUE(xadtm("names decode '1_cg_cg_:" + shown + "'").says("\nLRM      " + shown + "\n")) << shown;
    EXPECT_EQ(xadtm("names encode 1 31 31 '" + shown + "'").output, encoded.output);
    EXPECT_TRUE(xadtm("names decode '01_cg_cg_:" + lrm + "'").says("name for this XID is " + encoded.output)) << shown;
  }
}

TEST(Names, what_is_no_xid_or_no_name_is_refused) {
  const std::string too_long(130, 'a');
  expect_usage_errors({
      {"names encode 2147483648 01 02 L1", "-2147483648 to 2147483647"},
      {"names encode 0x100000000 01 02 L1", "formatID"},
      {"names encode -1 01 02 L1", "null XID"},
      {"names encode 1 - 02 L1", "1 to 64 bytes, not 0"},
      {"names encode 1 " + too_long + " 02 L1", "1 to 64 bytes, not 65"},
      {"names encode 1 01 " + too_long + " L1", "0 to 64 bytes, not 65"},
      {"names encode 1 012 02 L1", "gtrid is no row of pairs"},
      {"names encode 1 01 0g L1", "bqual is no row of pairs"},
      {"names encode 1 01 02 'L 1'", "LRM name"},
      {"names encode 1 01 02 12345678901234567890123456789012", "LRM name"},
      {"names encode 1 01 02", "names encode FORMATID"},
      {"names decode 5841_l34_oh", "ends within its bqual"},
      {"names decode 5841_l34_og_L1", "no colon"},
      {"names decode '5841_l34_og_: '", "LRM name"},
      {"names decode _l34_og_:L1", "eight hexadecimal digits"},
      {"names decode 5841_l-4_og_:L1", "gtrid holds a character"},
      {"names decode 5841_l34_oh_:L1", "the name for this XID is 5841_l34_og_:L1"},
      {"names decode 05841_l34_og_:L1", "the name for this XID is 5841_l34_og_:L1"},
      {"names decode 'ffffffff_l34_og_:L1'", "null XID"},
  });
}

TEST(CommandLine, wrong_words_are_refused_and_never_shown) {
  expect_usage_errors({
      {"", "give a command"},
      {"secret", "no such command"},
      {"names decode x --secret", "put that in quotes"},
      {"branches -o -NL1 -Usa -Psecret", "put that in quotes"},
      {"branches -o", "-o takes"},
      {"branches --flavour secret", "mts, tux or txs"},
      {"check --json -o -NL1", "--json does not go with check; leave it out"},
      {"branches --yes -o -NL1", "--yes does not go with branches"},
      {"names decode x --flavour=tux", "--flavour does not go with names"},
      {"log x --open -NL1", "-o does not go with log"},
      {"log /nowhere/log", "cannot be read"},
      {"log /", "cannot be read"},
      {"log", "log"},
  });
  EXPECT_FALSE(xadtm("secret").says("secret"));
  EXPECT_FALSE(xadtm("branches -o -NL1 -Usa -Psecret").says("secret"));
  EXPECT_EQ(xadtm("--help").status, 0);
  EXPECT_EQ(xadtm("names decode x > /dev/full").status, 2);
  EXPECT_TRUE(xadtm("--help > /dev/full").says("cannot be written"));
}

}  // namespace
