// The tables of settings and their access; the owner of the values locks.
#include "settings.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <optional>

#include "arguments.h"
#include "exports.h"

namespace quillet {
namespace {

constexpr int32_t any = std::numeric_limits<int32_t>::max();
constexpr SettingKind number = SettingKind::integer;
constexpr SettingKind string = SettingKind::text;
constexpr int32_t text_max = 255;

// clang-format off
constexpr Setting context_table[] = {
  // code              kind     low   high  initial  limits
  {9111,               number,  0,    1,    0,       no_limits},  // no interrupts
  {9112,               number,  0,    any,  0,       no_limits},  // longest text value
  {9113,               number,  0,    1,    0,       no_limits},  // hidden keys
  {QLT_PROP_IFILE,     string,  0,    0,    0,       no_limits},
  {9116,               number,  0,    any,  60,      no_limits},  // seconds to wait for a login
  {9117,               number,  0,    any,  0,       no_limits},  // seconds to wait for a reply
  {9118,               number,  1,    any,  25,      no_limits},  // most connections
  {9121,               number,  0,    1,    0,       no_limits},  // extra information in messages
  {9142,               number,  0,    1,    0,       no_limits},
};

constexpr Setting connection_table[] = {
  // code              kind     low   high  initial  limits
  {QLT_PROP_USER,      string,  0,    0,    0,       before_login},
  {QLT_PROP_PASSWORD,  string,  0,    0,    0,       before_login | write_only},
  {QLT_PROP_APPNAME,   string,  0,    0,    0,       before_login},
  {QLT_PROP_IFILE,     string,  0,    0,    0,       before_login},
  {9105,               number,  7360, 7364, 7364,    before_login},  // protocol version
  {9107,               number,  256,  65536, 512,    before_login},  // packet size
  {9110,               number,  8110, 8112, 8111,    no_limits},     // waiting for the network
  {9111,               number,  0,    1,    0,       no_limits},
  {9112,               number,  0,    any,  0,       no_limits},
  {9113,               number,  0,    1,    0,       no_limits},
  {9121,               number,  0,    1,    0,       no_limits},
  {9123,               number,  0,    1,    0,       no_limits},
  {9132,               number,  0,    1,    0,       no_limits},     // diagnostics on time-out
  {9133,               number,  0,    1,    0,       no_limits},     // no polling
  {9135,               number,  0,    1,    0,       before_login},  // 9135 to 9137, 9149: login security
  {9136,               number,  0,    1,    0,       before_login},
  {9137,               number,  0,    1,    0,       before_login},
  {9145,               number,  0,    1,    0,       no_limits},     // notifications at any time
  {9149,               number,  0,    1,    0,       before_login},
  {QLT_PROP_ABORT_WAIT, number,  0,   any,  0,       no_limits},
  {QLT_PROP_FAILOVER,  number,  0,    1,    0,       no_limits},
};

constexpr Setting option_table[] = {
  // code  kind     low  high  initial  limits
  {5001,   number,  1,   7,    7,       no_limits},  // first day of the week
  {5002,   number,  0,   any,  32768,   no_limits},  // text size
  {5003,   number,  0,   1,    0,       no_limits},
  {5004,   number,  0,   1,    0,       no_limits},
  {5005,   number,  0,   any,  0,       no_limits},  // row count
  {5007,   number,  1,   6,    1,       no_limits},  // date format
  {5008,   number,  0,   3,    1,       no_limits},  // isolation level
  {5013,   number,  0,   1,    0,       no_limits},
  {5014,   number,  0,   1,    0,       no_limits},
  {5015,   number,  0,   1,    0,       no_limits},
  {5016,   number,  0,   1,    0,       no_limits},
  {5017,   number,  0,   1,    0,       no_limits},
  {5018,   number,  0,   1,    0,       no_limits},
  {5020,   number,  0,   1,    0,       no_limits},
  {5021,   number,  0,   1,    0,       no_limits},
  {5023,   number,  0,   1,    0,       no_limits},
  {5024,   number,  0,   1,    0,       no_limits},
  {5025,   number,  0,   1,    0,       no_limits},
  {5026,   number,  0,   1,    0,       no_limits},
  {5027,   number,  0,   1,    0,       no_limits},
  {5028,   number,  0,   1,    0,       no_limits},
  {5034,   number,  0,   1,    0,       no_limits},
  {5035,   number,  0,   1,    0,       no_limits},
  {5036,   number,  0,   1,    0,       no_limits},
  {5037,   number,  0,   1,    0,       no_limits},
};

// The items that govern how dates are written share one code.
constexpr Setting date_table[] = {
  {7345,   number,  0,   9,    0,       no_limits},
};
// clang-format on

constexpr int capability_count = 35;

constexpr std::array<Setting, capability_count> make_capabilities() {
  std::array<Setting, capability_count> table{};
  for (int index = 0; index < capability_count; ++index) {
    table[static_cast<std::size_t>(index)] = {index + 1, number, 0, 1, 0, before_login};
  }
  return table;
}
constexpr auto capability_table = make_capabilities();

}  // namespace

const std::span<const Setting> context_settings{context_table};
const std::span<const Setting> connection_settings{connection_table};
const std::span<const Setting> option_settings{option_table};
const std::span<const Setting> capability_settings{capability_table};
const std::span<const Setting> date_settings{date_table};

int32_t copy_text(const std::string &value, void *buffer, int32_t length, int32_t *outlen) {
  if (outlen != nullptr) {
    *outlen = static_cast<int32_t>(value.size());
  }
  if (buffer == nullptr || length < 0 || static_cast<std::size_t>(length) < value.size()) {
    return CS_FAIL;
  }
  std::memcpy(buffer, value.data(), value.size());
  if (static_cast<std::size_t>(length) > value.size()) {
    static_cast<char *>(buffer)[value.size()] = '\0';
  }
  return CS_SUCCEED;
}

int32_t copy_integer(int32_t value, void *buffer, int32_t length, int32_t *outlen) {
  if (buffer == nullptr || (length != QLT_UNUSED && length < static_cast<int32_t>(sizeof value))) {
    return CS_FAIL;
  }
  std::memcpy(buffer, &value, sizeof value);
  if (outlen != nullptr) {
    *outlen = static_cast<int32_t>(sizeof value);
  }
  return CS_SUCCEED;
}

const Setting *SettingValues::find(int32_t code) const {
  const auto found = std::find_if(known_.begin(), known_.end(), [&](const Setting &row) { return row.code == code; });
  return found == known_.end() ? nullptr : &*found;
}

int32_t SettingValues::set(const Setting &setting, const void *buffer, int32_t length) {
  if (buffer == nullptr) {
    return CS_FAIL;
  }
  if (setting.kind == string) {
    const auto value = text_argument(static_cast<const char *>(buffer), length, text_max);
    if (!value) {
      return CS_FAIL;
    }
    texts_[setting.code] = *value;
    return CS_SUCCEED;
  }
  int32_t value = 0;
  if (length != QLT_UNUSED && length != static_cast<int32_t>(sizeof value)) {
    return CS_FAIL;
  }
  std::memcpy(&value, buffer, sizeof value);
  if (value < setting.low || value > setting.high) {
    return CS_FAIL;
  }
  integers_[setting.code] = value;
  return CS_SUCCEED;
}

int32_t SettingValues::get(const Setting &setting, void *buffer, int32_t length, int32_t *outlen) const {
  if (setting.kind == string) {
    return copy_text(text(setting.code), buffer, length, outlen);
  }
  return copy_integer(integer(setting.code), buffer, length, outlen);
}

int32_t SettingValues::access(int32_t action, int32_t code, void *buffer, int32_t length, int32_t *outlen,
                              bool logged_in) {
  const Setting *setting = find(code);
  if (setting == nullptr) {
    return CS_FAIL;
  }
  if (action == CS_GET) {
    return (setting->limits & write_only) != 0 ? CS_FAIL : get(*setting, buffer, length, outlen);
  }
  if ((setting->limits & before_login) != 0 && logged_in) {
    return CS_FAIL;
  }
  if (action == CS_SET) {
    return set(*setting, buffer, length);
  }
  if (action == QLT_CLEAR) {
    integers_.erase(code);
    texts_.erase(code);
    return CS_SUCCEED;
  }
  return CS_FAIL;
}

int32_t SettingValues::integer(int32_t code) const {
  if (const auto value = integers_.find(code); value != integers_.end()) {
    return value->second;
  }
  const Setting *setting = find(code);
  return setting == nullptr ? 0 : setting->initial;
}

std::string SettingValues::text(int32_t code) const {
  const auto value = texts_.find(code);
  return value == texts_.end() ? std::string() : value->second;
}

void SettingValues::inherit(const SettingValues &other) {
  for (const auto &[code, value] : other.integers_) {
    if (find(code) != nullptr) {
      integers_[code] = value;
    }
  }
}

}  // namespace quillet
