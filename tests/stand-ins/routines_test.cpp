// Memory counting and faults, and the comparisons.
#include <gtest/gtest.h>

#include "common_control.h"
#include "common_routines.h"

TEST(Memory, counts_and_fails_as_told) {
  const int64_t before = common_blocks_outstanding();
  common_fail_allocation(2, 0);
  void *first = comn_malloc(8);
  EXPECT_EQ(comn_malloc(8), nullptr);
  void *third = comn_malloc(0);
  EXPECT_NE(first, nullptr);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(common_allocations_made(), 3);
  EXPECT_EQ(common_blocks_outstanding(), before + 2);
  comn_free(nullptr);
  comn_free(first);
  comn_free(third);
  EXPECT_EQ(common_blocks_outstanding(), before);
  common_fail_allocation(1, 1);
  EXPECT_EQ(comn_malloc(1), nullptr);
  EXPECT_EQ(comn_malloc(1), nullptr);
  common_fail_allocation(0, 0);
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
