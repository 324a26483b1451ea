// The exported check of a verb's flag combinations, and the exported operation that does nothing.
#include <cstdint>

#include "xadtm.h"

namespace {

// The bits that each verb accepts, by the verb's index.
struct VerbFlags {
  int32_t verb;
  int32_t accepted;
};

// clang-format off
constexpr VerbFlags xacmn_validate_flags_tab[] = {
    // verb  accepted bits
    {0,      TMNOFLAGS},                                    // xa_open
    {1,      TMNOFLAGS},                                    // xa_close
    {2,      TMNOWAIT | TMRESUME | TMJOIN},                 // xa_start
    {3,      TMFAIL | TMSUCCESS | TMSUSPEND | TMMIGRATE},   // xa_end
    {4,      TMNOFLAGS},                                    // xa_prepare
    {5,      TMONEPHASE | TMNOWAIT},                        // xa_commit
    {6,      TMNOFLAGS},                                    // xa_rollback
    {7,      TMNOWAIT | TMMULTIPLE},                        // xa_complete
    {8,      TMNOFLAGS},                                    // xa_forget
    {9,      TMSTARTRSCAN | TMENDRSCAN},                    // xa_recover
    {0,      0},
};
// clang-format on
constexpr int32_t verb_count = sizeof xacmn_validate_flags_tab / sizeof xacmn_validate_flags_tab[0] - 1;
static_assert(verb_count == 10 && xacmn_validate_flags_tab[9].verb == 9);
constexpr int32_t verb_start = 2;
constexpr int32_t verb_end = 3;

bool has(int32_t flags, int32_t flag) {
  return (flags & flag) != 0;
}

bool end_flags_fit(int32_t flags) {
  if (flags == TMNOFLAGS) {
    return false;
  }
  const int32_t ways = (has(flags, TMSUSPEND) ? 1 : 0) + (has(flags, TMSUCCESS) ? 1 : 0) + (has(flags, TMFAIL) ? 1 : 0);
  return ways <= 1 && (!has(flags, TMMIGRATE) || has(flags, TMSUSPEND));
}

}  // namespace

extern "C" {

int32_t xacmn_validate_flags(int32_t verb, int32_t flags) {
  if (verb < 0 || verb >= verb_count) {
    return 0;
  }
  if (flags != TMNOFLAGS && !has(flags, xacmn_validate_flags_tab[verb].accepted)) {
    return 0;
  }
  if (verb == verb_start) {
    return has(flags, TMJOIN) && has(flags, TMRESUME) ? 0 : 1;
  }
  if (verb == verb_end) {
    return end_flags_fit(flags) ? 1 : 0;
  }
  return 1;
}

int32_t xacmn_no_op(void) {
  return 1;
}

}  // extern "C"
