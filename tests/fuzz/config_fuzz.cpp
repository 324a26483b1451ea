// Any text as a configuration file: what the parser makes of it, and whether that can be written and
// read again.
#include <algorithm>
#include <string>

#include "config_text.h"
#include "fuzz.h"

namespace {

using Sections = std::vector<ConfigSection>;

constexpr std::size_t longest_line = 4096;

bool is_plain(std::string_view text) {
  return text.find('\0') == std::string_view::npos && text.find('\n') == std::string_view::npos;
}

void check_entry(const ConfigEntry &entry) {
  fuzz::require(!entry.name.empty() || entry.malformed, "an entry has a name");
  fuzz::require(is_plain(entry.name) && entry.name.size() <= longest_line, "an entry's name is part of a line");
  for (const std::string &value : entry.values) {
    fuzz::require(is_plain(value) && value.find('"') == std::string::npos, "a value is part of a line, without quotes");
  }
}

void check_sections(const Sections &sections) {
  for (const ConfigSection &section : sections) {
    fuzz::require(is_plain(section.name) && section.name.size() <= longest_line, "a section's name is part of a line");
    const bool entry_malformed = std::any_of(section.entries.begin(), section.entries.end(),
                                             [](const ConfigEntry &entry) { return entry.malformed; });
    fuzz::require(section.malformed || !entry_malformed, "a malformed entry makes its section so");
    fuzz::require(section.malformed || !section.name.empty(), "only lines before the first header have no section");
    std::for_each(section.entries.begin(), section.entries.end(), check_entry);
  }
}

std::string written(const ConfigEntry &entry) {
  std::string line = entry.name + "=";
  for (const std::string &value : entry.values) {
    line.append(&value == entry.values.data() ? "\"" : ",\"").append(value).append("\"");
  }
  return line;
}

// A text of the same content; empty when a line of it would be too long.
std::string written(const Sections &sections) {
  std::string text;
  for (const ConfigSection &section : sections) {
    text.append("[").append(section.name).append("]\n");
    for (const ConfigEntry &entry : section.entries) {
      const std::string line = written(entry);
      if (line.size() > longest_line) {
        return {};
      }
      text.append(line).append("\n");
    }
  }
  return text;
}

bool same_entry(const ConfigEntry &left, const ConfigEntry &right) {
  return left.name == right.name && left.values == right.values && left.malformed == right.malformed;
}

bool same_section(const ConfigSection &left, const ConfigSection &right) {
  return left.name == right.name && left.malformed == right.malformed &&
         std::equal(left.entries.begin(), left.entries.end(), right.entries.begin(), right.entries.end(), same_entry);
}

bool same(const Sections &left, const Sections &right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(), same_section);
}

void check_rewriting(const Sections &sections) {
  const bool malformed =
      std::any_of(sections.begin(), sections.end(), [](const ConfigSection &section) { return section.malformed; });
  const std::string text = malformed ? "" : written(sections);
  if (!text.empty()) {
    fuzz::require(same(parse_config_text(text), sections), "what was read can be written and read again");
  }
}

// Quotes keep whatever a line can hold.
void check_quoting(std::string_view text) {
  std::string value(text.substr(0, longest_line / 3));
  std::erase_if(value, [](char c) { return c == '"' || c == '\n' || c == '\0'; });
  const Sections sections = {{"s", {{"x", {value, value}, false}}, false}};
  fuzz::require(same(parse_config_text(written(sections)), sections), "quoted values are read as they are");
}

}  // namespace

void fuzz::config(std::string_view input) {
  const std::vector<char> text(input.begin(), input.end());
  const Sections sections = parse_config_text({text.data(), text.size()});
  check_sections(sections);
  check_rewriting(sections);
  check_quoting(input);
}
