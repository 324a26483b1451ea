// Tables of what the configuration may hold: the entries of its sections, the keywords of settings, and the numbers
// that their values stand for; and the look-ups in them. All tables are constant.
#include <cstring>

#include "common_routines.h"
#include "config/xal_config.h"
#include "config/xal_config_entries.h"
#include "config/xal_settings.h"
#include "quillet.h"

namespace {

constexpr char allow_integer[] = "$allow_an_integer$";
constexpr char use_string[] = "$use_the_string$";

constexpr uint32_t CONTEXT_PROPERTY = XS_USER | XS_PRECONN | XS_CTX | XS_PROP;
constexpr uint32_t CONTEXT_DATE = XS_FATAL | XS_USER | XS_PRECONN | XS_CTX | XS_DTINFO;
constexpr uint32_t PROPERTY = XS_USER | XS_PRECONN | XS_CON | XS_PROP;
constexpr uint32_t CAPABILITY = XS_USER | XS_PRECONN | XS_CON | XS_CAP;
constexpr uint32_t OPTION = XS_USER | XS_POSTCONN | XS_CON | XS_OPT;
static_assert(CONTEXT_PROPERTY == 0x2241 && CONTEXT_DATE == 0x102248 && PROPERTY == 0x2281);
static_assert(CAPABILITY == 0x2284 && OPTION == 0x2482);

// clang-format off
constexpr XA_KEYVALUE XaBoolLookupTab[] = {
    {"CS_TRUE", 1}, {"CS_FALSE", 0}, {"1", 1}, {"0", 0}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaIntLookupTab[] = {
    {allow_integer, 0}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaStringLookupTab[] = {
    {use_string, 0}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaDateShortLookupTab[] = {
    {"", 0}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaDateLongLookupTab[] = {
    {"", 9}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaTDSVerLookupTab[] = {
    {"CS_TDS_40", 7360}, {"CS_TDS_42", 7361}, {"CS_TDS_46", 7362}, {"CS_TDS_50", 7364},
    {"4.0", 7360}, {"4.2", 7361}, {"4.6", 7362}, {"5.0", 7364},
    {"40", 7360}, {"42", 7361}, {"46", 7362}, {"50", 7364},
    {allow_integer, 0}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaIsoLevLookupTab[] = {
    {"CS_OPT_LEVEL1", 1}, {"CS_OPT_LEVEL3", 3}, {"1", 1}, {"3", 3}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaWeekDyLookupTab[] = {
    {"CS_OPT_SUNDAY", 7}, {"CS_OPT_MONDAY", 1}, {"CS_OPT_TUESDAY", 2}, {"CS_OPT_WEDNESDAY", 3},
    {"CS_OPT_THURSDAY", 4}, {"CS_OPT_FRIDAY", 5}, {"CS_OPT_SATURDAY", 6},
    {"SUNDAY", 7}, {"MONDAY", 1}, {"TUESDAY", 2}, {"WEDNESDAY", 3},
    {"THURSDAY", 4}, {"FRIDAY", 5}, {"SATURDAY", 6}, {nullptr, 0},
};
constexpr XA_KEYVALUE XaDateFmtLookupTab[] = {
    {"CS_OPT_FMTMDY", 1}, {"CS_OPT_FMTDMY", 2}, {"CS_OPT_FMTYMD", 3},
    {"CS_OPT_FMTYDM", 4}, {"CS_OPT_FMTMYD", 5}, {"CS_OPT_FMTDYM", 6},
    {"FMTMDY", 1}, {"FMTDMY", 2}, {"FMTYMD", 3}, {"FMTYDM", 4}, {"FMTMYD", 5}, {"FMTDYM", 6},
    {"MDY", 1}, {"DMY", 2}, {"YMD", 3}, {"YDM", 4}, {"MYD", 5}, {"DYM", 6}, {nullptr, 0},
};
// clang-format on

template <size_t Count>
constexpr bool ends_once(const XA_KEYVALUE (&table)[Count]) {
  for (size_t row = 0; row + 1 < Count; ++row) {
    if (table[row].kv_name == nullptr) {
      return false;
    }
  }
  return table[Count - 1].kv_name == nullptr;
}
static_assert(ends_once(XaBoolLookupTab) && ends_once(XaIntLookupTab) && ends_once(XaStringLookupTab) &&
              ends_once(XaDateShortLookupTab) && ends_once(XaDateLongLookupTab) && ends_once(XaTDSVerLookupTab) &&
              ends_once(XaIsoLevLookupTab) && ends_once(XaWeekDyLookupTab) && ends_once(XaDateFmtLookupTab));

}  // namespace

// clang-format off
const XA_KEYWORD XaCtxPropLookupTab[] = {
    // keyword            code   length        values              flags
    {"CS_HIDDEN_KEYS",    9113,  QLT_UNUSED,   XaBoolLookupTab,    CONTEXT_PROPERTY},
    {"CS_LOGIN_TIMEOUT",  9116,  QLT_UNUSED,   XaIntLookupTab,     CONTEXT_PROPERTY},
    {"CS_MAX_CONNECT",    9118,  QLT_UNUSED,   XaIntLookupTab,     CONTEXT_PROPERTY},
    {"CS_NOINTERRUPT",    9111,  QLT_UNUSED,   XaBoolLookupTab,    CONTEXT_PROPERTY},
    {"CS_TEXTLIMIT",      9112,  QLT_UNUSED,   XaIntLookupTab,     CONTEXT_PROPERTY},
    {"CS_TIMEOUT",        9117,  QLT_UNUSED,   XaIntLookupTab,     CONTEXT_PROPERTY},
    {"CS_EXTRA_INF",      9121,  QLT_UNUSED,   XaBoolLookupTab,    CONTEXT_PROPERTY},
    {"CS_IFILE",          9115,  QLT_NULLTERM, XaStringLookupTab,  CONTEXT_PROPERTY},
    {nullptr,             0,     0,            nullptr,            XS_END},
};

const XA_KEYWORD XaCSDTInfoLookupTab[] = {
    // keyword            code   length  values                 flags
    {"CS_DATES_SHORT",    7345,  4,      XaDateShortLookupTab,  CONTEXT_DATE},
    {"CS_DATES_LONG",     7345,  4,      XaDateLongLookupTab,   CONTEXT_DATE},
    {nullptr,             0,     0,      nullptr,               XS_END},
};

const XA_KEYWORD XaPropLookupTab[] = {
    // keyword             code   length       values              flags
    {"CS_ASYNC_NOTIFS",    9145,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_DIAG_TIMEOUT",    9132,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_DISABLE_POLL",    9133,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_HIDDEN_KEYS",     9113,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_PACKETSIZE",      9107,  QLT_UNUSED,  XaIntLookupTab,     PROPERTY},
    {"CS_SEC_APPDEFINED",  9149,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_SEC_CHALLENGE",   9136,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_SEC_ENCRYPTION",  9135,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_SEC_NEGOTIATE",   9137,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {"CS_TDS_VERSION",     9105,  QLT_UNUSED,  XaTDSVerLookupTab,  PROPERTY},
    {"CS_TEXTLIMIT",       9112,  QLT_UNUSED,  XaIntLookupTab,     PROPERTY},
    {"CS_EXTRA_INF",       9121,  QLT_UNUSED,  XaBoolLookupTab,    PROPERTY},
    {nullptr,              0,     0,           nullptr,            XS_END},
};

// CS_DATA_NODATE4 shares its code with CS_DATA_NOVCHAR, and CS_DATA_NODATE8 with CS_DATA_NOCHAR.
const XA_KEYWORD XaCapLookupTab[] = {
    // keyword                code  length       values            flags
    {"CS_CON_NOINBAND",       28,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_CON_NOOOB",          27,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOBIN",         10,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOVBIN",        11,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOLBIN",        23,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOBIT",         7,    QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOBOUNDARY",    32,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOCHAR",        14,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOVCHAR",       15,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOLCHAR",       22,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NODATE4",       15,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NODATE8",       14,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NODATETIMEN",   25,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NODEC",         21,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOFLT4",        16,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOFLT8",        17,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOIMAGE",       20,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOINT1",        4,    QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOINT2",        5,    QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOINT4",        6,    QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOINT8",        35,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOINTN",        24,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOMNY4",        13,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOMNY8",        12,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOMONEYN",      26,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NONUM",         18,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOSENSITIVITY", 31,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_DATA_NOTEXT",        19,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_PROTO_NOBULK",       30,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_PROTO_NOTEXT",       29,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_RES_NOEED",          2,    QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_RES_NOMSG",          1,    QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_RES_NOPARAM",        3,    QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_RES_NOTDSDEBUG",     33,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {"CS_RES_NOSTRIPBLANKS",  34,   QLT_UNUSED,  XaBoolLookupTab,  CAPABILITY},
    {nullptr,                 0,    0,           nullptr,          XS_END},
};

const XA_KEYWORD XaOptLookupTab[] = {
    // keyword               code   length       values               flags
    {"CS_OPT_ANSINULL",      5034,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_ANSIPERM",      5036,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_ARITHABORT",    5017,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_ARITHIGNORE",   5015,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_DATEFIRST",     5001,  QLT_UNUSED,  XaWeekDyLookupTab,   OPTION},
    {"CS_OPT_DATEFORMAT",    5007,  QLT_UNUSED,  XaDateFmtLookupTab,  OPTION},
    {"CS_OPT_FIPSFLAG",      5027,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_FORCEPLAN",     5023,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_FORMATONLY",    5024,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_GETDATA",       5020,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_ISOLATION",     5008,  QLT_UNUSED,  XaIsoLevLookupTab,   OPTION},
    {"CS_OPT_NOCOUNT",       5021,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_NOEXEC",        5014,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_PARSEONLY",     5018,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_QUOTED_IDENT",  5035,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_RESTREES",      5028,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_ROWCOUNT",      5005,  QLT_UNUSED,  XaIntLookupTab,      OPTION},
    {"CS_OPT_SHOWPLAN",      5013,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_STATS_IO",      5004,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_STATS_TIME",    5003,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_STR_RTRUNC",    5037,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {"CS_OPT_TEXTSIZE",      5002,  QLT_UNUSED,  XaIntLookupTab,      OPTION},
    {"CS_OPT_TRUNCIGNORE",   5016,  QLT_UNUSED,  XaBoolLookupTab,     OPTION},
    {nullptr,                0,     0,           nullptr,             XS_END},
};
// clang-format on

// clang-format off
const ConfigEntryRow all_section_entries[] = {
    // name         entry                    keywords             label
    {"logfile",     ConfigEntry::logfile,    nullptr,             nullptr},
    {"traceflags",  ConfigEntry::traceflags, nullptr,             nullptr},
    {"cs_dt_info",  ConfigEntry::cs_dt_info, XaCSDTInfoLookupTab, "cs_dt_info setting"},
    {"maxoutconn",  ConfigEntry::maxoutconn, nullptr,             nullptr},
    {"properties",  ConfigEntry::settings,   XaCtxPropLookupTab,  "Context Property"},
    {nullptr,       ConfigEntry::settings,   nullptr,             nullptr},
};

const ConfigEntryRow xa_section_entries[] = {
    // name          entry                    keywords         label
    {"lrm",          ConfigEntry::lrm,        nullptr,         nullptr},
    {"dsn",          ConfigEntry::lrm,        nullptr,         nullptr},
    {"server",       ConfigEntry::server,     nullptr,         nullptr},
    {"properties",   ConfigEntry::settings,   XaPropLookupTab, "Property"},
    {"capabilities", ConfigEntry::settings,   XaCapLookupTab,  "Capability"},
    {"options",      ConfigEntry::settings,   XaOptLookupTab,  "Option"},
    {"maxoutconn",   ConfigEntry::maxoutconn, nullptr,         nullptr},
    {nullptr,        ConfigEntry::settings,   nullptr,         nullptr},
};
// clang-format on

const ConfigEntryRow *find_config_entry(const ConfigEntryRow *table, const char *name) {
  for (const ConfigEntryRow *row = table; row->name != nullptr; ++row) {
    if (com_unsignstricmp(row->name, name) == 0) {
      return row;
    }
  }
  return nullptr;
}

namespace {

const XA_KEYWORD *find_keyword(const XA_KEYWORD *table, const char *keyword) {
  for (const XA_KEYWORD *row = table; row->kw_name != nullptr; ++row) {
    if (com_unsignstricmp(row->kw_name, keyword) == 0) {
      return row;
    }
  }
  return nullptr;
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Reads the leading digits; false when the number does not fit.
bool read_integer(const char *text, int32_t *number) {
  int64_t value = 0;
  for (; is_digit(*text); ++text) {
    value = value * 10 + (*text - '0');
    if (value > INT32_MAX) {
      return false;
    }
  }
  *number = static_cast<int32_t>(value);
  return true;
}

}  // namespace

SettingMeaning meaning_of_setting(const XA_KEYWORD *table, const char *keyword, const char *value) {
  const XA_KEYWORD *row = find_keyword(table, keyword);
  if (row == nullptr) {
    return {SettingFault::unknown_keyword, nullptr, SettingValue::named, nullptr, 0};
  }
  for (const XA_KEYVALUE *pair = row->kw_values; pair->kv_name != nullptr; ++pair) {
    if (com_unsignstricmp(value, pair->kv_name) == 0) {
      return {SettingFault::none, row, SettingValue::named, pair->kv_name, pair->kv_value};
    }
    int32_t number = 0;
    if (is_digit(value[0]) && strcmp(pair->kv_name, allow_integer) == 0 && read_integer(value, &number)) {
      return {SettingFault::none, row, SettingValue::integer, nullptr, number};
    }
    if (strcmp(pair->kv_name, use_string) == 0) {
      return {SettingFault::none, row, SettingValue::text, nullptr, 0};
    }
  }
  return {SettingFault::unknown_value, row, SettingValue::named, nullptr, 0};
}
