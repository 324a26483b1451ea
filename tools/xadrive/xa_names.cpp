// The names that scripts use for result codes, flag words and branch states, as tables.
#include "xa_names.h"

#include <span>

#include "dtm/dtm_protocol.h"
#include "hex_text.h"
#include "xa.h"

namespace {

struct NamedNumber {
  std::string_view name;
  int32_t number;
};

// clang-format off
constexpr NamedNumber xa_codes[] = {
  {"XA_OK",         XA_OK},
  {"XA_RDONLY",     XA_RDONLY},
  {"XA_RETRY",      XA_RETRY},
  {"XA_HEURMIX",    XA_HEURMIX},
  {"XA_HEURRB",     XA_HEURRB},
  {"XA_HEURCOM",    XA_HEURCOM},
  {"XA_HEURHAZ",    XA_HEURHAZ},
  {"XA_NOMIGRATE",  XA_NOMIGRATE},
  {"XA_RBROLLBACK", XA_RBROLLBACK},
  {"XA_RBCOMMFAIL", XA_RBCOMMFAIL},
  {"XA_RBDEADLOCK", XA_RBDEADLOCK},
  {"XA_RBINTEGRITY",XA_RBINTEGRITY},
  {"XA_RBOTHER",    XA_RBOTHER},
  {"XA_RBPROTO",    XA_RBPROTO},
  {"XA_RBTIMEOUT",  XA_RBTIMEOUT},
  {"XA_RBTRANSIENT",XA_RBTRANSIENT},
  {"XAER_ASYNC",    XAER_ASYNC},
  {"XAER_RMERR",    XAER_RMERR},
  {"XAER_NOTA",     XAER_NOTA},
  {"XAER_INVAL",    XAER_INVAL},
  {"XAER_PROTO",    XAER_PROTO},
  {"XAER_RMFAIL",   XAER_RMFAIL},
  {"XAER_DUPID",    XAER_DUPID},
  {"XAER_OUTSIDE",  XAER_OUTSIDE},
};

constexpr NamedNumber branch_states[] = {
  {"unknown",               DTM_STATE_UNKNOWN},
  {"attached",              DTM_STATE_ATTACHED},
  {"ended",                 DTM_STATE_ENDED},
  {"suspended",             DTM_STATE_SUSPENDED},
  {"migrated",              DTM_STATE_DETACHED},
  {"abort-only",            DTM_STATE_ABORTONLY},
  {"prepared",              DTM_STATE_PREPARED},
  {"heuristic-commit",      DTM_STATE_HEUR_COMMITTED},
  {"heuristic-rollback",    DTM_STATE_HEUR_ROLLEDBACK},
};

constexpr NamedNumber sql_results[] = {
  {"ok",     sql_ok},
  {"failed", sql_failed},
  {"none",   sql_none},
};

constexpr NamedNumber answers[] = {
  {"done",    1},
  {"refused", 0},
};

constexpr NamedNumber flags[] = {
  {"TMASYNC",      TMASYNC},
  {"TMONEPHASE",   TMONEPHASE},
  {"TMFAIL",       TMFAIL},
  {"TMNOWAIT",     TMNOWAIT},
  {"TMRESUME",     TMRESUME},
  {"TMSUCCESS",    TMSUCCESS},
  {"TMSUSPEND",    TMSUSPEND},
  {"TMSTARTRSCAN", TMSTARTRSCAN},
  {"TMENDRSCAN",   TMENDRSCAN},
  {"TMMULTIPLE",   TMMULTIPLE},
  {"TMJOIN",       TMJOIN},
  {"TMMIGRATE",    TMMIGRATE},
};
// clang-format on

std::span<const NamedNumber> table_of(Vocabulary vocabulary) {
  switch (vocabulary) {
    case Vocabulary::xa_codes:
      return xa_codes;
    case Vocabulary::branch_states:
      return branch_states;
    case Vocabulary::sql_results:
      return sql_results;
    case Vocabulary::answers:
      break;
  }
  return answers;
}

std::optional<int32_t> find(std::span<const NamedNumber> table, std::string_view name) {
  for (const NamedNumber &row : table) {
    if (row.name == name) {
      return row.number;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<int32_t> number_of(Vocabulary vocabulary, std::string_view name) {
  return find(table_of(vocabulary), name);
}

std::string name_of(Vocabulary vocabulary, int32_t number) {
  for (const NamedNumber &row : table_of(vocabulary)) {
    if (row.number == number) {
      return std::string(row.name);
    }
  }
  return std::to_string(number);
}

namespace {

std::optional<int32_t> flag_of(std::string_view name) {
  return name == "TMNOFLAGS" ? std::optional(TMNOFLAGS) : find(flags, name);
}

}  // namespace

bool is_flag_name(std::string_view name) {
  return flag_of(name).has_value();
}

std::optional<int32_t> flags_of(std::string_view text) {
  if (text.starts_with("0x")) {
    return integer_of(text);
  }
  int32_t word = 0;
  for (;;) {
    const size_t bar = text.find('|');
    const std::optional<int32_t> bit = flag_of(text.substr(0, bar));
    if (!bit) {
      return std::nullopt;
    }
    word |= *bit;
    if (bar == std::string_view::npos) {
      return word;
    }
    text.remove_prefix(bar + 1);
  }
}

std::string flags_text(int32_t word) {
  std::string text;
  int32_t unnamed = word;
  for (const NamedNumber &flag : flags) {
    if ((word & flag.number) != 0) {
      text += text.empty() ? "" : "|";
      text += flag.name;
      unnamed &= ~flag.number;
    }
  }
  if (unnamed != 0) {
    return std::string("0x").append(hex_number(static_cast<uint32_t>(word)));
  }
  return text.empty() ? "TMNOFLAGS" : text;
}
