// What the library makes of an open string: values that it stores, messages about what is wrong, the log's path and the
// trace mask.
//
// Every problem is reported, and nothing is stored after the first error. The password reaches the log only inside
// messages that quote the string as it was given.
#include "config/xal_open_string.h"

#include <cstring>

#include "config/xal_open_options.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"

static_assert(longest_open_value == XAL_FIELD_SIZE - 1);

namespace {

// One parse of an open string: where its values go, and what came of it.
class OpenString {
 public:
  OpenString(const char *info, char *name, char *user, char *password, char *key, char *server)
      : info_(info), outputs_{{'N', name}, {'U', user}, {'P', password}, {'K', key}, {'S', server}} {
    for (const Output &output : outputs_) {
      if (output.field != nullptr) {
        output.field[0] = '\0';
        wanted_[wanted_count_++] = output.letter;
      }
    }
  }

  int32_t parse() {
    OpenStringReader reader(info_, personality_has(XAPF_LOOKUP_KEY), {wanted_, wanted_count_});
    OpenOption option{};
    while (reader.next(option)) {
      if (option.is_stored) {
        store(option);
      }
      report(option);
    }
    return result_;
  }

 private:
  struct Output {
    char letter;
    char *field;
  };

  static const char *name_label() { return active_personality().tm_type == XATM_MTS ? "DSN Name" : "LRM Name"; }

  static const char *label_of(char letter) {
    switch (letter) {
      case 'N':
        return name_label();
      case 'U':
        return "User name";
      case 'S':
        return "ZDB name";
      default:
        return "LRM Lookup Key";
    }
  }

  char *field_of(char letter) const {
    const Output *output = outputs_;
    while (output->letter != letter) {
      ++output;
    }
    return output->field;
  }

  void store(const OpenOption &option) const {
    const size_t kept = option.value.size() > longest_open_value ? longest_open_value : option.value.size();
    char *field = field_of(option.letter);
    memcpy(field, option.value.data(), kept);
    field[kept] = '\0';
  }

  void report(const OpenOption &option) {
    switch (option.fault) {
      case OpenFault::none:
        return;
      case OpenFault::unknown:
        return report_unknown(option);
      case OpenFault::too_long:
        report_too_long(option.letter);
        break;
      case OpenFault::bad_version:
        trace_.error()("Incorrect version identifier in open string %s", info_);
        break;
      case OpenFault::connection_limit:
        trace_.error()("Incorrect open string %s", info_);
        trace_.message()("Maximum number of connections must be set in xa_config [all] section");
        break;
      case OpenFault::no_name:
        trace_.error()("Invalid open string %s", info_);
        trace_.message()("Contains no %s (-N)", name_label());
        break;
      case OpenFault::no_key:
        trace_.error()("Invalid open string %s", info_);
        trace_.message()("Contains no Lookup key (-K)");
        break;
    }
    result_ = XAER_INVAL;
  }

  // Only warned of. At the string's end there is no letter.
  void report_unknown(const OpenOption &option) const {
    trace_.warning()("invalid open string %s", info_);
    const char letter[2] = {info_[option.place + 1], '\0'};
    trace_.message()("flag -%s not recognized", letter);
  }

  void report_too_long(char letter) const {
    if (letter == 'P') {
      trace_.error()("Password Too long, Truncated.\n");
    } else {
      trace_.error()("%s Too long, Truncated:\n\t%s\n", label_of(letter), field_of(letter));
    }
  }

  const TraceScope trace_{"xacmn_parse_open_info", TRACE_NONE};
  const char *info_;
  const Output outputs_[5];
  char wanted_[5] = {};
  size_t wanted_count_ = 0;
  int32_t result_ = XA_OK;
};

// Copies the log's path that the open string names; false when there is none that can be used.
bool log_path_option(const char *open_string, char (&path)[longest_open_log_path + 1]) {
  const std::optional<OpenMark> mark = find_open_mark(open_string != nullptr ? open_string : "", 'L');
  if (!mark) {
    return false;
  }
  if (mark->value.size() > longest_open_log_path) {
    LogLine("xalog_init", XALOG_ERROR, __LINE__)("log file path after -L is longer than %d characters, ignored",
                                                 static_cast<int32_t>(longest_open_log_path));
    return false;
  }
  memcpy(path, mark->value.data(), mark->value.size());
  path[mark->value.size()] = '\0';
  return !mark->value.empty();
}

}  // namespace

int32_t xacmn_parse_open_info(const char *info, char *name, char *user, char *password, char *key, char *server) {
  return OpenString(info, name, user, password, key, server).parse();
}

extern "C" {

int32_t xalog_init(const char *open_string, const char *default_path) {
  xal_log_identify_threads();
  char path[longest_open_log_path + 1];
  return xalog_open_file(log_path_option(open_string, path) ? path : default_path);
}

const char *xacmn_log_flags_set(const char *text) {
  if (text == nullptr) {
    return nullptr;
  }
  const std::string_view all = text;
  size_t at = 0;
  for (auto mark = find_open_mark(all, 'T'); mark; mark = find_open_mark(all, 'T', at)) {
    xacmn_log_trace_add(mark->value.data());
    at = mark->place + 2 + mark->value.size();
  }
  return text + all.size();
}

}  // extern "C"
