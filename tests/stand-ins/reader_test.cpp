// What the configuration reader makes of a file's text, and its failures; and the comparisons.
//
// Each file is written out, read back through the intl_* calls and shown as one line of text: "[section]" (with "!"
// behind it for a read error), then "name(value|value)" for each entry.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "common_control.h"
#include "common_routines.h"
#include "scratch.h"

namespace {

class ConfigFile {
 public:
  explicit ConfigFile(const std::string &text) : path_(scratch("reader_test")) { write_text(path_, text); }
  ~ConfigFile() { (void)unlink(path_.c_str()); }
  ConfigFile(const ConfigFile &) = delete;
  ConfigFile &operator=(const ConfigFile &) = delete;

  const char *path() const { return path_.c_str(); }

 private:
  std::string path_;
};

std::string mark(int32_t status) {
  return status == 0 ? "" : "!";
}

std::string shown_values(INTL_READER &reader) {
  std::string shown;
  int32_t status = 0;
  while (char *value = intl_nextvalue(&reader, &status)) {
    shown += shown.empty() ? "" : "|";
    shown += value;
    // The library cuts values up in place.
    value[0] = '\0';
  }
  return shown + mark(status);
}

std::string shown(const std::string &text) {
  const ConfigFile file(text);
  INTL_READER reader;
  if (intl_open(file.path(), &reader) != 1) {
    return "not open";
  }
  std::string out;
  int32_t status = 0;
  while (const char *section = intl_nextsection(&reader, &status)) {
    out.append("[").append(section).append("]").append(mark(status));
    while (const char *entry = intl_nextentry(&reader, &status)) {
      out.append(entry).append(mark(status)).append("(").append(shown_values(reader)).append(")");
    }
  }
  EXPECT_EQ(intl_close(&reader), 1);
  return out;
}

struct Row {
  const char *name;
  std::string text;
  std::string expected;
};

}  // namespace

TEST(Reader, files) {
  const std::string longest(4096 - 2, 'v');
  const Row rows[] = {
      {"empty", "", ""},
      {"comments only", "# a\n  ; b\n\n", ""},
      {"keyword values keep their equals sign", "[all]\nproperties=CS_MAX_CONNECT=25, CS_TIMEOUT = 6\n",
       "[all]properties(CS_MAX_CONNECT=25|CS_TIMEOUT = 6)"},
      {"repeated entries and sections", "[xa]\nlrm=A\nlrm=B\n[xa]\nlrm=C", "[xa]lrm(A)lrm(B)[xa]lrm(C)"},
      {"names as written, blanks trimmed, CRLF", "  [ Xa ]  # note\r\n LRM\t=  my db \r\n", "[Xa]LRM(my db)"},
      {"no value, an empty value, empty places", "[a]\nw=\nx= # none\ny=\"\"\nz=a,,b,\n", "[a]w()x()y()z(a||b|)"},
      {"quotes", "[a]\nx=\" b, # c \" , K=\"d e\"\n", "[a]x( b, # c |K=d e)"},
      {"hash in a word is no comment", "[a]\nx=p#q #r\n", "[a]x(p#q)"},
      {"longest line", "[a]\nx=" + longest + "\n", "[a]x(" + longest + ")"},
      {"line too long", "[a]\nx=" + longest + "v\n[b]\n", "[a]!x=" + longest + "!()[b]"},
      {"no equals sign", "[a]\nx=1\nfoo\n[b]\ny=2\n", "[a]!x(1)foo!()[b]y(2)"},
      {"no name", "[a]\n=1\n", "[a]!=1!()"},
      {"quotes that do not end", "[a]\nx=\"b\n", "[a]!x=\"b!()"},
      {"entry before any section", "x=1\n[a]\n", "[]!x!(1)[a]"},
      {"bad headers", "[a\n[]\n[b] c\n", "[[a]![[]]![[b] c]!"},
      {"zero byte", std::string("[a]\nx\0y=1\n", 10), "[a]!x!()"},
  };
  for (const Row &row : rows) {
    EXPECT_EQ(shown(row.text), row.expected) << row.name;
  }
}

TEST(Reader, what_cannot_be_read_does_not_open) {
  INTL_READER reader;
  EXPECT_NE(intl_open("/nonexistent/xa_config", &reader), 1);
  EXPECT_NE(intl_open(testing::TempDir().c_str(), &reader), 1) << "a directory";
  EXPECT_NE(intl_open("/dev/zero", &reader), 1) << "a file without end";
  EXPECT_NE(intl_open(nullptr, &reader), 1);
  int32_t status = 0;
  EXPECT_EQ(intl_nextsection(&reader, &status), nullptr) << "a reader that is not open has no sections";
  EXPECT_NE(intl_close(&reader), 1);
  EXPECT_EQ(common_readers_open(), 0);
}

TEST(Reader, a_skipped_section_or_entry_is_passed_over) {
  const ConfigFile file("[a]\nx=1,2\ny=3\n[b]\nz=4\n");
  INTL_READER reader;
  int32_t status = 0;
  ASSERT_EQ(intl_open(file.path(), &reader), 1);
  EXPECT_EQ(intl_nextentry(&reader, &status), nullptr) << "before the first section";
  EXPECT_EQ(intl_nextvalue(&reader, &status), nullptr);
  EXPECT_STREQ(intl_nextsection(&reader, &status), "a");
  EXPECT_STREQ(intl_nextentry(&reader, &status), "x");
  EXPECT_STREQ(intl_nextvalue(&reader, &status), "1");
  EXPECT_STREQ(intl_nextentry(&reader, &status), "y");
  EXPECT_STREQ(intl_nextvalue(&reader, &status), "3");
  EXPECT_EQ(intl_nextentry(&reader, &status), nullptr);
  EXPECT_EQ(intl_nextvalue(&reader, &status), nullptr) << "the ended section's last entry must not start over";
  EXPECT_STREQ(intl_nextsection(&reader, &status), "b");
  EXPECT_EQ(intl_nextvalue(&reader, &status), nullptr) << "no entry of this section was asked for";
  EXPECT_EQ(intl_close(&reader), 1);
}

namespace {

int sign(int32_t order) {
  return (order > 0) - (order < 0);
}

}  // namespace

TEST(Text, comparisons) {
  struct Row {
    const char *left;
    const char *right;
    int exact;
    int folded;
    int first_two;
  };
  const Row rows[] = {
      {"abc", "abc", 0, 0, 0},   {"abc", "ABC", 1, 0, 1},   {"ab", "abc", -1, -1, 0},     {"", "a", -1, -1, -1},
      {"\xe4", "z", 1, 1, 1},    {"[", "{", -1, -1, -1},    {"\xc4", "\xe4", -1, -1, -1}, {nullptr, nullptr, 0, 0, 0},
      {nullptr, "", -1, -1, -1}, {"abx", "aby", -1, -1, 0},
  };
  for (const Row &row : rows) {
    const std::string name =
        std::string(row.left == nullptr ? "null" : row.left) + " and " + (row.right ? row.right : "null");
    EXPECT_EQ(sign(com_unsignstrcmp(row.left, row.right)), row.exact) << name;
    EXPECT_EQ(sign(com_unsignstricmp(row.left, row.right)), row.folded) << name;
    EXPECT_EQ(sign(com_unsignstrncmp(row.left, row.right, 2)), row.first_two) << name;
  }
  EXPECT_EQ(com_unsignstrncmp("a", "b", 0), 0);
}
