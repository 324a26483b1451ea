// The configuration file xa_config: finding it, reading its [all] section once, and looking up an LRM's [xa] section.
//
// Owns xa_config_file, which is written under the global lock and the serialisation mutex when a first xa_open
// configures the process, and read under the serialisation mutex. The file itself is read through the reader library.
// Sections: environment and paths; finding the file; the [all] section; configuring; the [xa] sections.
#include "config/xal_config.h"

#include <cstring>

#include "common_routines.h"
#include "config/xal_config_entries.h"
#include "config/xal_open_string.h"
#include "config/xal_settings.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"

constinit char xa_config_file[XAL_PATH_SIZE] = "";

namespace {

bool is(const char *name, const char *wanted) {
  return com_unsignstricmp(name, wanted) == 0;
}

char *copy_text(const char *text, size_t length) {
  auto *copy = static_cast<char *>(comn_malloc(length + 1));
  if (copy != nullptr) {
    memcpy(copy, text, length);
    copy[length] = '\0';
  }
  return copy;
}

// Frees a heap text when its scope ends; null is allowed.
class HeapText {
 public:
  explicit HeapText(char *text) : text_(text) {}
  ~HeapText() {
    if (text_ != nullptr) {
      comn_free(text_);
    }
  }
  HeapText(const HeapText &) = delete;
  HeapText &operator=(const HeapText &) = delete;
  const char *get() const { return text_; }

 private:
  char *text_;
};

// The next value, null when there is none or it is empty.
char *first_value(INTL_READER *reader) {
  int32_t status = 0;
  char *value = intl_nextvalue(reader, &status);
  return value != nullptr && value[0] != '\0' ? value : nullptr;
}

// Turns every value of the current entry into a row of the list.
void read_settings(INTL_READER *reader, const ConfigEntryRow &row, XA_SETTING *list) {
  int32_t status = 0;
  for (char *value = intl_nextvalue(reader, &status); value != nullptr; value = intl_nextvalue(reader, &status)) {
    xacmn_get_val(row.keywords, row.label, value, list);
  }
}

}  // namespace

// ---- Environment and paths ------------------------------------------------------------------------------------------

char *xa_get_env(const char *name) {
  const char *value = com_getenv(name);
  return value != nullptr ? copy_text(value, strlen(value)) : nullptr;
}

char *xa_make_fname(const char *file, const char *dir1, const char *dir2, const char *dir3) {
  const char *dirs[] = {dir1, dir2, dir3};
  size_t size = strlen(file) + 1;
  for (const char *dir : dirs) {
    size += dir != nullptr ? strlen(dir) + 1 : 0;
  }
  if (size > static_cast<size_t>(XAL_PATH_SIZE)) {
    return nullptr;
  }
  auto *path = static_cast<char *>(comn_malloc(size));
  if (path == nullptr) {
    return nullptr;
  }
  char *end = path;
  for (const char *dir : dirs) {
    if (dir != nullptr) {
      end = stpcpy(end, dir);
      end = stpcpy(end, "/");
    }
  }
  stpcpy(end, file);
  return path;
}

// ---- Finding the file -----------------------------------------------------------------------------------------------

namespace {

constexpr char config_name[] = "xa_config";
constexpr int32_t most_candidates = 4;

// The paths where the file may be, in the order in which they are tried.
class Candidates {
 public:
  Candidates() = default;
  ~Candidates() {
    for (int32_t i = 0; i < count_; ++i) {
      comn_free(paths_[i]);
    }
  }
  Candidates(const Candidates &) = delete;
  Candidates &operator=(const Candidates &) = delete;

  // Takes the path over; one that could not be built is left out.
  void add(char *path) {
    if (path != nullptr) {
      paths_[count_++] = path;
    }
  }
  const char *const *begin() const { return paths_; }
  const char *const *end() const { return paths_ + count_; }

 private:
  char *paths_[most_candidates] = {};
  int32_t count_ = 0;
};

// False when the environment names no place at all.
bool list_candidates(Candidates &candidates) {
  if (com_getenv("XACONFIGFILE") != nullptr) {
    candidates.add(xa_get_env("XACONFIGFILE"));  // the only place, even when memory is too short to look there
    return true;
  }
  const HeapText home(xa_get_env("TARVEX"));
  if (home.get() == nullptr) {
    return false;
  }
  const HeapText release(xa_get_env("TARVEX_QLT"));
  candidates.add(xa_make_fname(config_name, home.get(), release.get(), "config"));
  candidates.add(xa_make_fname(config_name, home.get(), release.get(), nullptr));
  candidates.add(xa_make_fname(config_name, home.get(), "config", nullptr));
  candidates.add(xa_make_fname(config_name, home.get(), nullptr, nullptr));
  return true;
}

// Opens the first candidate that can be opened and remembers it. A path that cannot be remembered is not used.
bool open_first(const Candidates &candidates, INTL_READER *reader) {
  for (const char *path : candidates) {
    const size_t length = strlen(path);
    if (length < sizeof xa_config_file && intl_open(path, reader) == 1) {
      memcpy(xa_config_file, path, length + 1);
      return true;
    }
  }
  return false;
}

}  // namespace

int32_t xa_config_open(INTL_READER *reader) {
  const TraceScope trace("xa_config_open", TRACE_MISC);
  if (xa_config_file[0] != '\0') {
    if (intl_open(xa_config_file, reader) == 1) {
      return trace.cs(1);
    }
    trace.error()("Unable to open configuration file %s", xa_config_file);
    return trace.cs(0);
  }
  Candidates candidates;
  if (!list_candidates(candidates)) {
    trace.error()("No $XACONFIGFILE or $TARVEX found");
    return trace.cs(0);
  }
  if (open_first(candidates, reader)) {
    return trace.cs(1);
  }
  if (!personality_has(XAPF_CFG_OPTIONAL)) {
    for (const char *path : candidates) {
      trace.error()("Configuration file search path %s", path);
    }
  }
  return trace.cs(0);
}

// ---- The [all] section ----------------------------------------------------------------------------------------------

namespace {

// What reading [all] found out, for the caller.
struct AllSection {
  int32_t *logfile;
  int32_t *traceflags;
  XA_SETTING *settings;
  int32_t result;
};

void read_logfile(const TraceScope &trace, INTL_READER *reader, AllSection &all) {
  const char *path = first_value(reader);
  if (path == nullptr || strlen(path) > static_cast<size_t>(XAL_PATH_SIZE)) {
    trace.error()("invalid logfile specification in %s!", xa_config_file);
    return;
  }
  all.result = xalog_open_file(path);
  if (all.result == 1) {
    *all.logfile = 1;
  }
}

void read_traceflags(const TraceScope &trace, INTL_READER *reader, AllSection &all) {
  const char *keyword = first_value(reader);
  if (keyword == nullptr) {
    trace.error()("invalid traceflag specification in %s!", xa_config_file);
    return;
  }
  xacmn_log_trace_add(keyword);
  *all.traceflags = 1;
}

void read_date_info(const TraceScope &trace, INTL_READER *reader, const ConfigEntryRow &row, const AllSection &all) {
  char *keyword = first_value(reader);
  if (keyword == nullptr) {
    trace.error()("invalid cs_dt_info specification in %s!", xa_config_file);
    return;
  }
  xacmn_get_val(row.keywords, row.label, keyword, all.settings);
}

void read_all_entry(const TraceScope &trace, INTL_READER *reader, const char *entry, AllSection &all) {
  const ConfigEntryRow *row = find_config_entry(all_section_entries, entry);
  if (row == nullptr) {
    trace.error()("Invalid entry in [all] section of %s", xa_config_file);
    return;
  }
  switch (row->entry) {
    case ConfigEntry::logfile:
      return read_logfile(trace, reader, all);
    case ConfigEntry::traceflags:
      return read_traceflags(trace, reader, all);
    case ConfigEntry::cs_dt_info:
      return read_date_info(trace, reader, *row, all);
    case ConfigEntry::maxoutconn:
      trace.error()("Invalid maxoutconn entry in %s, use properties=CS_MAX_CONNECT=<nr>", xa_config_file);
      return;
    default:
      return read_settings(reader, *row, all.settings);
  }
}

}  // namespace

int32_t xal_read_all_section(INTL_READER *reader, int32_t *logfile, int32_t *traceflags, XA_SETTING *settings) {
  const TraceScope trace("xal_read_all_section", TRACE_MISC);
  int32_t status = 0;
  const char *section = intl_nextsection(reader, &status);
  while (section != nullptr && status == 0 && !is(section, "all")) {
    section = intl_nextsection(reader, &status);
  }
  if (section == nullptr) {
    return trace.cs(1);
  }
  if (status != 0) {
    trace.error()("[all] section not found in config file %s", xa_config_file);
    return trace.cs(0);
  }
  AllSection all{logfile, traceflags, settings, 1};
  for (const char *entry = intl_nextentry(reader, &status); entry != nullptr; entry = intl_nextentry(reader, &status)) {
    read_all_entry(trace, reader, entry, all);
  }
  return trace.cs(all.result);
}

// ---- Configuring ----------------------------------------------------------------------------------------------------

namespace {

int32_t read_file(const TraceScope &trace, INTL_READER *reader, int32_t *logfile, int32_t *traceflags,
                  XA_SETTING *settings) {
  const int32_t ret = xal_read_all_section(reader, logfile, traceflags, settings);
  if (intl_close(reader) != 1) {
    trace.error()("intl_close() of %s failed!", xa_config_file);
  }
  return ret;
}

// Opens the log that the open string or the environment names.
int32_t open_default_log(const TraceScope &trace, const char *open_string) {
  const HeapText named(xa_get_env("XALOGFILE"));
  if (named.get() != nullptr) {
    return xalog_init(open_string, named.get());
  }
  const HeapText home(xa_get_env("TARVEX"));
  const HeapText in_home(home.get() != nullptr ? xa_make_fname("trv_xa_log", home.get(), nullptr, nullptr) : nullptr);
  const int32_t ret = xalog_init(open_string, in_home.get() != nullptr ? in_home.get() : "stderr");
  if (home.get() != nullptr && in_home.get() == nullptr) {
    trace.warning()("$TARVEX is too long for a log file in it, or memory is short");
  }
  return ret;
}

}  // namespace

int32_t xal_configure(const char *open_string, XA_SETTING *settings) {
  const TraceScope trace("xal_configure", TRACE_MISC);
  int32_t logfile = 0;
  int32_t traceflags = 0;
  INTL_READER reader{};
  if (xa_config_open(&reader) == 1) {
    if (read_file(trace, &reader, &logfile, &traceflags, settings) == 0) {
      return trace.cs(0);
    }
  } else if (!personality_has(XAPF_CFG_OPTIONAL)) {
    return trace.cs(0);
  }
  if (open_string == nullptr) {
    trace.error()("NULL open string");
    return trace.cs(0);
  }
  if (logfile == 0) {
    const int32_t ret = open_default_log(trace, open_string);
    if (ret != 1) {
      return trace.cs(ret);
    }
  } else {
    xal_log_identify_threads();  // as opening the log by default does
  }
  if (traceflags == 0) {
    xacmn_log_flags_set(open_string);
  }
  trace.message()("Using config file %s\n", xa_config_file);
  return trace.cs(1);
}

// ---- The [xa] sections ----------------------------------------------------------------------------------------------

namespace {

// One lookup: the LRM, and where its settings go.
struct LrmLookup {
  const char *name;
  char *server;
  XA_SETTING *capabilities;
  XA_SETTING *properties;
  XA_SETTING *options;
  bool found;

  XA_SETTING *list_of(const XA_KEYWORD *keywords) const {
    if (keywords == XaCapLookupTab) {
      return capabilities;
    }
    return keywords == XaPropLookupTab ? properties : options;
  }

  // Nothing of a section that turns out to be another LRM's may stay.
  void empty_outputs() const {
    for (XA_SETTING *list : {capabilities, properties, options}) {
      if (list != nullptr) {
        xacmn_clean_val(list, 0);
      }
    }
    if (server != nullptr) {
      server[0] = '\0';
    }
  }
};

// A value that fits an LRM's text field, else null.
const char *field_value(INTL_READER *reader) {
  const char *value = first_value(reader);
  return value != nullptr && strlen(value) < static_cast<size_t>(XAL_FIELD_SIZE) ? value : nullptr;
}

bool read_lrm_name(const TraceScope &trace, INTL_READER *reader, LrmLookup &lookup) {
  const char *value = field_value(reader);
  if (value == nullptr) {
    trace.error()("lrm invalid");
    return false;
  }
  if (com_unsignstrcmp(value, lookup.name) == 0) {
    lookup.found = true;
    trace.event()("found lrm name  %s", lookup.name);
  }
  return true;
}

bool read_server(const TraceScope &trace, INTL_READER *reader, const LrmLookup &lookup) {
  const char *value = field_value(reader);
  if (value == nullptr) {
    trace.error()("server invalid");
    return false;
  }
  memcpy(lookup.server, value, strlen(value) + 1);
  trace.progress()("found server name  %s", value);
  return true;
}

// False when the entry makes the lookup fail.
bool read_xa_entry(const TraceScope &trace, INTL_READER *reader, const char *entry, LrmLookup &lookup) {
  const ConfigEntryRow *row = find_config_entry(xa_section_entries, entry);
  if (row == nullptr) {
    return true;
  }
  switch (row->entry) {
    case ConfigEntry::lrm:
      return read_lrm_name(trace, reader, lookup);
    case ConfigEntry::server:
      return lookup.server == nullptr || read_server(trace, reader, lookup);
    case ConfigEntry::maxoutconn:
      trace.error()("maxoutconn cannot be set in [xa] stanza");
      trace.message()("Use propertiess=CS_MAX_CONNECT=<nr> in [all] stanza");
      return true;
    default:
      read_settings(reader, *row, lookup.list_of(row->keywords));
      return true;
  }
}

bool read_xa_section(const TraceScope &trace, INTL_READER *reader, LrmLookup &lookup) {
  int32_t status = 0;
  for (const char *entry = intl_nextentry(reader, &status); entry != nullptr; entry = intl_nextentry(reader, &status)) {
    if (!read_xa_entry(trace, reader, entry, lookup)) {
      return false;
    }
  }
  return true;
}

// Reads sections until the LRM is found or they run out; false when the lookup fails.
bool search_sections(const TraceScope &trace, INTL_READER *reader, LrmLookup &lookup) {
  while (!lookup.found) {
    int32_t status = 0;
    const char *section = intl_nextsection(reader, &status);
    if (section == nullptr) {
      return true;
    }
    lookup.empty_outputs();
    if (status != 0) {
      trace.error()("No xa section in xa_config file");
      return false;
    }
    if (is(section, "xa") && !read_xa_section(trace, reader, lookup)) {
      return false;
    }
  }
  return true;
}

int32_t not_configured(const TraceScope &trace, const LrmLookup &lookup) {
  lookup.empty_outputs();
  if (personality_has(XAPF_CFG_OPTIONAL)) {
    trace.event()("no configuration for lrm name %s", lookup.name);
    return 1;
  }
  trace.error()("lrm name %s not found", lookup.name);
  return 0;
}

}  // namespace

int32_t xal_lrm_lookup(const char *name, char *server, XA_SETTING *capabilities, XA_SETTING *properties,
                       XA_SETTING *options) {
  const TraceScope trace("xal_lrm_lookup", TRACE_MISC);
  if (name == nullptr) {
    return trace.cs(0);
  }
  if (xa_config_file[0] == '\0') {
    return trace.cs(personality_has(XAPF_CFG_OPTIONAL) ? 1 : 0);
  }
  INTL_READER reader{};
  if (intl_open(xa_config_file, &reader) != 1) {
    trace.error()("Unable to open configuration file %s", xa_config_file);
    return trace.cs(0);
  }
  trace.misc()("lrm = %s, using config file %s", name, xa_config_file);
  LrmLookup lookup{name, server, capabilities, properties, options, false};
  const bool searched = search_sections(trace, &reader, lookup);
  const bool closed = intl_close(&reader) == 1;
  if (!searched) {
    return trace.cs(0);
  }
  if (!closed) {
    trace.error()("Unable to close xa_config file");
    return trace.cs(0);
  }
  if (!lookup.found) {
    return trace.cs(not_configured(trace, lookup));
  }
  trace.event()("found lrm name  %s", name);
  return trace.cs(1);
}
