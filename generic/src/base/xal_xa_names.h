// The names of XA codes and of the flags that verbs take: one table each, for the log, the tools and the example bank.
#pragma once

#include <cstdint>

#include "xa.h"

struct XaName {
  const char *name;
  int32_t number;
};

// clang-format off
inline constexpr XaName xa_code_names[] = {
    // name            code
    {"XA_RBROLLBACK",  XA_RBROLLBACK},
    {"XA_RBCOMMFAIL",  XA_RBCOMMFAIL},
    {"XA_RBDEADLOCK",  XA_RBDEADLOCK},
    {"XA_RBINTEGRITY", XA_RBINTEGRITY},
    {"XA_RBOTHER",     XA_RBOTHER},
    {"XA_RBPROTO",     XA_RBPROTO},
    {"XA_RBTIMEOUT",   XA_RBTIMEOUT},
    {"XA_RBTRANSIENT", XA_RBTRANSIENT},
    {"XA_NOMIGRATE",   XA_NOMIGRATE},
    {"XA_HEURHAZ",     XA_HEURHAZ},
    {"XA_HEURCOM",     XA_HEURCOM},
    {"XA_HEURRB",      XA_HEURRB},
    {"XA_HEURMIX",     XA_HEURMIX},
    {"XA_RETRY",       XA_RETRY},
    {"XA_RDONLY",      XA_RDONLY},
    {"XA_OK",          XA_OK},
    {"XAER_ASYNC",     XAER_ASYNC},
    {"XAER_RMERR",     XAER_RMERR},
    {"XAER_NOTA",      XAER_NOTA},
    {"XAER_INVAL",     XAER_INVAL},
    {"XAER_PROTO",     XAER_PROTO},
    {"XAER_RMFAIL",    XAER_RMFAIL},
    {"XAER_DUPID",     XAER_DUPID},
    {"XAER_OUTSIDE",   XAER_OUTSIDE},
};

// In the order in which a flag word's names are written. TMNOFLAGS, no flag at all, and the flags of a switch record
// come first.
inline constexpr XaName xa_flag_names[] = {
    // name            bit
    {"TMNOFLAGS",      TMNOFLAGS},
    {"TMREGISTER",     TMREGISTER},
    {"TMNOMIGRATE",    TMNOMIGRATE},
    {"TMUSEASYNC",     TMUSEASYNC},
    {"TMASYNC",        TMASYNC},
    {"TMONEPHASE",     TMONEPHASE},
    {"TMFAIL",         TMFAIL},
    {"TMNOWAIT",       TMNOWAIT},
    {"TMRESUME",       TMRESUME},
    {"TMSUCCESS",      TMSUCCESS},
    {"TMSUSPEND",      TMSUSPEND},
    {"TMSTARTRSCAN",   TMSTARTRSCAN},
    {"TMENDRSCAN",     TMENDRSCAN},
    {"TMMULTIPLE",     TMMULTIPLE},
    {"TMJOIN",         TMJOIN},
    {"TMMIGRATE",      TMMIGRATE},
};
// clang-format on

// Null for a number that is no XA code.
constexpr const char *name_of_xa_code(int32_t code) {
  for (const XaName &row : xa_code_names) {
    if (row.number == code) {
      return row.name;
    }
  }
  return nullptr;
}
