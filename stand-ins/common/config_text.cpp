// Takes a configuration file's text apart; config_text.h shows the form of a file.
//
// A malformed line never stops the parsing: it is kept in its place, so that the reader can report it where it stands.
#include "config_text.h"

#include <optional>
#include <utility>

namespace {

constexpr size_t longest_line = 4096;

bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && is_blank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

// Takes the value at the start of rest, up to a comma, a comment or the end; nothing when its quotes do not end.
std::optional<std::string> take_value(std::string_view &rest) {
  std::string value;
  size_t kept = 0;  // characters of value that trimming must leave alone
  bool quoted = false;
  size_t at = 0;
  for (; at < rest.size(); ++at) {
    const char c = rest[at];
    if (c == '"') {
      quoted = !quoted;
      kept = value.size();
      continue;
    }
    if (!quoted && c == ',') {
      break;
    }
    if (!quoted && c == '#' && (at == 0 || is_blank(rest[at - 1]))) {
      rest = rest.substr(0, at);
      break;
    }
    const bool drop = !quoted && is_blank(c) && value.empty() && kept == 0;
    if (drop) {
      continue;
    }
    value.push_back(c);
    if (quoted || !is_blank(c)) {
      kept = value.size();
    }
  }
  if (quoted) {
    return std::nullopt;
  }
  value.resize(kept);
  rest.remove_prefix(at);
  return value;
}

bool has_values(std::string_view text) {
  return !text.empty() && text.front() != '#';
}

std::optional<std::vector<std::string>> split_values(std::string_view text) {
  std::vector<std::string> values;
  std::string_view rest = trimmed(text);
  if (!has_values(rest)) {
    return values;
  }
  for (;;) {
    std::optional<std::string> value = take_value(rest);
    if (!value) {
      return std::nullopt;
    }
    values.push_back(std::move(*value));
    if (rest.empty()) {
      return values;
    }
    rest.remove_prefix(1);
  }
}

ConfigEntry malformed_entry(std::string_view line) {
  // A zero byte would cut the name short for its reader, and an over-long line helps nobody.
  const std::string_view shown = line.substr(0, longest_line);
  return {std::string(shown.substr(0, shown.find('\0'))), {}, true};
}

ConfigEntry parse_entry(std::string_view line) {
  const size_t equals = line.find('=');
  if (line.size() > longest_line || equals == std::string_view::npos || line.find('\0') != std::string_view::npos) {
    return malformed_entry(line);
  }
  const std::string_view name = trimmed(line.substr(0, equals));
  std::optional<std::vector<std::string>> values = split_values(line.substr(equals + 1));
  if (name.empty() || !values) {
    return malformed_entry(line);
  }
  return {std::string(name), std::move(*values), false};
}

// The name between the brackets; nothing unless the line is a whole header.
std::optional<std::string> header_name(std::string_view line) {
  const size_t bracket = line.find(']');
  if (bracket == std::string_view::npos || line.size() > longest_line) {
    return std::nullopt;
  }
  const std::string_view name = trimmed(line.substr(1, bracket - 1));
  const std::string_view after = trimmed(line.substr(bracket + 1));
  if (name.empty() || name.find('\0') != std::string_view::npos || (!after.empty() && after.front() != '#')) {
    return std::nullopt;
  }
  return std::string(name);
}

void add_header(std::vector<ConfigSection> &sections, std::string_view line) {
  std::optional<std::string> name = header_name(line);
  if (name) {
    sections.push_back({std::move(*name), {}, false});
  } else {
    sections.push_back({malformed_entry(line).name, {}, true});
  }
}

void add_entry(std::vector<ConfigSection> &sections, std::string_view line) {
  ConfigEntry entry = parse_entry(line);
  if (sections.empty()) {
    sections.push_back({"", {}, true});
    entry.malformed = true;
  }
  ConfigSection &section = sections.back();
  section.malformed = section.malformed || entry.malformed;
  section.entries.push_back(std::move(entry));
}

}  // namespace

std::vector<ConfigSection> parse_config_text(std::string_view text) {
  std::vector<ConfigSection> sections;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == '#' || line.front() == ';') {
      continue;
    }
    if (line.front() == '[') {
      add_header(sections, line);
    } else {
      add_entry(sections, line);
    }
  }
  return sections;
}
