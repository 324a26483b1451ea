// Any text given to the interfaces file's parser: what it accepts keeps the file's own rules.
#include <string>

#include "embedded/interfaces_file.h"
#include "fuzz.h"

namespace {

const char *const folder = "/etc/zdb";

bool is_server_name(const std::string &name) {
  return !name.empty() && name.size() <= 31 && name.find_first_of(" \t\n\v\f\r") == std::string::npos;
}

// The file that says the same.
std::string written(const zdb::Interfaces &interfaces) {
  std::string text;
  for (const auto &[name, address] : interfaces.servers) {
    const bool is_socket = address.kind == zdb::ServerAddress::Kind::unix_socket;
    text.append(name).append(is_socket ? "=unix:" : "=embedded:").append(address.path).append("\n");
  }
  return text;
}

}  // namespace

void fuzz::interfaces(std::string_view input) {
  const std::vector<char> text(input.begin(), input.end());
  const zdb::Interfaces read = zdb::parse_interfaces({text.data(), text.size()}, folder);
  require(read.problem.empty() || read.servers.empty(), "a file with a bad line names no servers");
  for (const auto &[name, address] : read.servers) {
    require(is_server_name(name), "a server's name has 1 to 31 characters and no blanks");
    require(address.path.starts_with('/'), "a path starts at the root");
    require(address.path.find('\0') == std::string::npos, "a path holds no zero byte");
  }
  const zdb::Interfaces again = zdb::parse_interfaces(written(read), folder);
  require(again.problem.empty() && again.servers == read.servers, "what was read can be written and read again");
}
