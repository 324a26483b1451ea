/*
 * config_fuzz.cpp - any text as a configuration file: what the parser makes of it, whether that can be written and read
 * again, and whether the reader's calls hand out the same.
 */
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "common_routines.h"
#include "config_text.h"
#include "fuzz.h"

namespace {

using Sections = std::vector<ConfigSection>;

constexpr std::size_t longest_line = 4096;

/* Opening a file costs as much as a thousand parses, so only texts of every so many lengths become one. */
constexpr std::size_t file_lengths = 64;

/* A file in memory that intl_open can open by a path. */
class MemoryFile {
 public:
  MemoryFile() : file_(memfd_create("xa_config", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(file_)) {
    fuzz::require(file_ >= 0, "a file in memory can be made");
  }
  ~MemoryFile() { close(file_); }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  const char *with(std::string_view text) const {
    const bool written =
        ftruncate(file_, 0) == 0 && pwrite(file_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
    fuzz::require(written, "a file in memory can be written");
    return path_.c_str();
  }

 private:
  int file_;
  std::string path_;
};

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

/* A text of the same content; empty when a line of it would be too long. */
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

/* Quotes keep whatever a line can hold. */
void check_quoting(std::string_view text) {
  std::string value(text.substr(0, longest_line / 3));
  std::erase_if(value, [](char c) { return c == '"' || c == '\n' || c == '\0'; });
  const Sections sections = {{"s", {{"x", {value, value}, false}}, false}};
  fuzz::require(same(parse_config_text(written(sections)), sections), "quoted values are read as they are");
}

/* What the reader hands out, with read errors as malformed sections and entries. */
Sections walked(INTL_READER &reader) {
  Sections sections;
  int32_t status = 0;
  while (const char *section = intl_nextsection(&reader, &status)) {
    sections.push_back({section, {}, status != 0});
    while (const char *entry = intl_nextentry(&reader, &status)) {
      sections.back().entries.push_back({entry, {}, status != 0});
      while (char *value = intl_nextvalue(&reader, &status)) {
        sections.back().entries.back().values.emplace_back(value);
        std::fill_n(value, std::char_traits<char>::length(value), 'x'); /* the library cuts values up in place */
      }
      fuzz::require(status == 0, "values end without a read error");
    }
    fuzz::require(status == 0, "entries end without a read error");
  }
  fuzz::require(status == 0, "sections end without a read error");
  return sections;
}

void check_reader(std::string_view text, const Sections &sections) {
  static const MemoryFile file;
  INTL_READER reader{};
  fuzz::require(intl_open(file.with(text), &reader) == 1, "a file within the limit opens");
  const Sections handed_out = walked(reader);
  fuzz::require(intl_close(&reader) == 1, "a reader closes");
  fuzz::require(same(handed_out, sections), "the reader hands out what the parser found");
}

}  // namespace

void fuzz::config(std::string_view input) {
  const std::vector<char> text(input.begin(), input.end());
  const Sections sections = parse_config_text({text.data(), text.size()});
  check_sections(sections);
  check_rewriting(sections);
  check_quoting(input);
  if (input.size() % file_lengths == 0) {
    check_reader(input, sections);
  }
}
