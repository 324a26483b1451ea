// Finds out where the library writes its trace log, by the order in which the library itself looks.
#include "log_place.h"

#include <strings.h>

#include <cstdlib>
#include <vector>

#include "config/xal_open_options.h"

namespace {

std::string environment(const char *name) {
  const char *value = std::getenv(name);
  return value == nullptr ? "" : value;
}

// The first value of [all] logfile in an open configuration file; empty when there is none.
std::string configured_log(const Libraries &libraries, INTL_READER &reader) {
  int32_t status = 0;
  const char *section = libraries.reader_section(&reader, &status);
  while (section != nullptr && status == 0 && strcasecmp(section, "all") != 0) {
    section = libraries.reader_section(&reader, &status);
  }
  if (section == nullptr || status != 0) {
    return "";
  }
  while (const char *entry = libraries.reader_entry(&reader, &status)) {
    if (strcasecmp(entry, "logfile") == 0) {
      const char *value = libraries.reader_value(&reader, &status);
      return value == nullptr ? "" : value;
    }
  }
  return "";
}

// Where the configuration file may be, in the library's order.
std::vector<std::string> config_files() {
  if (std::getenv("XACONFIGFILE") != nullptr) {
    return {environment("XACONFIGFILE")};
  }
  const std::string home = environment("TARVEX");
  if (home.empty()) {
    return {};
  }
  const std::string release = home + "/" + environment("TARVEX_QLT");
  return {release + "/config/xa_config", release + "/xa_config", home + "/config/xa_config", home + "/xa_config"};
}

std::string log_of_config_file(const Libraries &libraries) {
  for (const std::string &path : config_files()) {
    INTL_READER reader{};
    if (libraries.reader_open(path.c_str(), &reader) == 1) {
      std::string log = configured_log(libraries, reader);
      (void)libraries.reader_close(&reader);  // nothing was written
      return log;
    }
  }
  return "";
}

std::string log_of_open_string(const std::string &open_string) {
  const std::optional<OpenMark> mark = find_open_mark(open_string, 'L');
  return mark && mark->value.size() <= longest_open_log_path ? std::string(mark->value) : "";
}

std::string default_log() {
  const std::string tarvex = environment("TARVEX");
  return tarvex.empty() ? "stderr" : tarvex + "/trv_xa_log";
}

}  // namespace

std::string log_place(const Libraries &libraries, const std::string &open_string) {
  std::string place = log_of_config_file(libraries);
  if (place.empty()) {
    place = log_of_open_string(open_string);
  }
  if (place.empty()) {
    place = environment("XALOGFILE");
  }
  if (place.empty()) {
    place = default_log();
  }
  return place == "stderr" ? "standard error" : place;
}
