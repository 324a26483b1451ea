// The open-string parser.
//
// It walks the whole string, reports every problem it meets, and stores nothing after the first error. It never
// changes the string, and the password reaches the log only inside messages that quote the string as it was given.
#include <cctype>
#include <cstring>

#include "config/xal_open_string.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"

namespace {

bool is_blank(char c) {
  return isspace(static_cast<unsigned char>(c)) != 0;
}

// The white space that ends the option, or the end of the string.
const char *skip_value(const char *at) {
  while (*at != '\0' && !is_blank(*at)) {
    ++at;
  }
  return at;
}

// One parse of an open string: where its values go, and what came of it.
class OpenString {
 public:
  OpenString(const char *info, char *name, char *user, char *password, char *key, char *server)
      : info_(info), name_(name), user_(user), password_(password), key_(key), server_(server) {}

  int32_t parse() {
    clear_outputs();
    const char *at = info_;
    while (*at != '\0') {
      at = *at == '-' ? option(at + 1) : at + 1;
    }
    return check_required();
  }

 private:
  void clear_outputs() const {
    for (char *output : {name_, user_, password_, key_, server_}) {
      if (output != nullptr) {
        output[0] = '\0';
      }
    }
  }

  static bool has_key() { return personality_has(XAPF_LOOKUP_KEY); }

  static const char *name_label() { return active_personality().tm_type == XATM_MTS ? "DSN Name" : "LRM Name"; }

  // Handles the option whose letter stands at `at`; returns where to go on.
  const char *option(const char *at) {
    switch (toupper(static_cast<unsigned char>(*at))) {
      case 'N':
        return store(at + 1, name_, name_label());
      case 'U':
        return store(at + 1, user_, "User name");
      case 'P':
        return store(at + 1, password_, nullptr);
      case 'S':
        return store(at + 1, server_, "ZDB name");
      case 'K':
        return has_key() ? store(at + 1, key_, "LRM Lookup Key") : unknown(at);
      case 'L':
      case 'T':
        return skip_value(at + 1);
      case 'V':
        return version(at + 1);
      case 'C':
        return connection_limit(at);
      default:
        return unknown(at);
    }
  }

  // Copies a value into its output, unless that is null or there was an error before. No label: the password.
  const char *store(const char *at, char *output, const char *label) {
    const char *end = skip_value(at);
    if (output == nullptr || result_ != XA_OK) {
      return end;
    }
    const auto length = static_cast<size_t>(end - at);
    constexpr size_t most = XAL_FIELD_SIZE - 1;
    const size_t kept = length > most ? most : length;
    memcpy(output, at, kept);
    output[kept] = '\0';
    if (length > most) {
      if (label != nullptr) {
        trace_.error()("%s Too long, Truncated:\n\t%s\n", label, output);
      } else {
        trace_.error()("Password Too long, Truncated.\n");
      }
      result_ = XAER_INVAL;
    }
    return end;
  }

  const char *version(const char *at) {
    if (at[0] != '1' || at[1] != '1' || !is_blank(at[2])) {
      trace_.error()("Incorrect version identifier in open string %s", info_);
      result_ = XAER_INVAL;
    }
    return skip_value(at);
  }

  const char *connection_limit(const char *at) {
    trace_.error()("Incorrect open string %s", info_);
    trace_.message()("Maximum number of connections must be set in xa_config [all] section");
    result_ = XAER_INVAL;
    return skip_value(at);
  }

  // An unknown letter is only warned of. At the string's end there is no letter, and nothing to skip.
  const char *unknown(const char *at) const {
    trace_.warning()("invalid open string %s", info_);
    const char letter[2] = {*at, '\0'};
    trace_.message()("flag -%s not recognized", letter);
    return skip_value(at);
  }

  int32_t check_required() {
    if (name_ != nullptr && name_[0] == '\0') {
      trace_.error()("Invalid open string %s", info_);
      trace_.message()("Contains no %s (-N)", name_label());
      result_ = XAER_INVAL;
    }
    if (has_key() && key_ != nullptr && key_[0] == '\0') {
      trace_.error()("Invalid open string %s", info_);
      trace_.message()("Contains no Lookup key (-K)");
      result_ = XAER_INVAL;
    }
    return result_;
  }

  const TraceScope trace_{"xacmn_parse_open_info", TRACE_NONE};
  const char *info_;
  char *name_;
  char *user_;
  char *password_;
  char *key_;
  char *server_;
  int32_t result_ = XA_OK;
};

}  // namespace

int32_t xacmn_parse_open_info(const char *info, char *name, char *user, char *password, char *key, char *server) {
  return OpenString(info, name, user, password, key, server).parse();
}
