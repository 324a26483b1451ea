// Reads the file that says where servers are found; the header shows its form.
#include "embedded/interfaces_file.h"

#include <sys/un.h>

#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace zdb {
namespace {

constexpr std::size_t longest_name = 31;
// Each with its terminating zero byte.
constexpr std::size_t socket_path_size = sizeof(sockaddr_un::sun_path);
constexpr std::size_t folder_path_size = PATH_MAX;

constexpr const char *write_instead = "; write NAME = embedded:FOLDER or NAME = unix:SOCKET";

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

// The line up to a "#" at its start or behind a blank; other ones belong to a path.
std::string_view without_comment(std::string_view line) {
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] == '#' && (at == 0 || is_blank(line[at - 1]))) {
      return line.substr(0, at);
    }
  }
  return line;
}

// What is wrong with a name; empty when nothing is.
std::string problem_of_name(std::string_view name) {
  bool blank = false;
  for (const char c : name) {
    blank = blank || is_blank(c);
  }
  if (name.empty() || name.size() > longest_name || blank) {
    return "a server's name has 1 to 31 characters and no blanks; change what stands before \"=\"";
  }
  return {};
}

// Splits KIND:PATH; the address's path is as it is written. False when it is not of that form.
bool split_address(std::string_view text, ServerAddress &address) {
  const std::size_t colon = text.find(':');
  const std::string_view kind = text.substr(0, colon);
  if (colon == std::string_view::npos || (kind != "embedded" && kind != "unix")) {
    return false;
  }
  address.kind = kind == "unix" ? ServerAddress::Kind::unix_socket : ServerAddress::Kind::embedded;
  address.path = trimmed(text.substr(colon + 1));
  return !address.path.empty();
}

// What is wrong with a path that is too long; empty when it is not.
std::string problem_of_path(const ServerAddress &address) {
  const bool is_socket = address.kind == ServerAddress::Kind::unix_socket;
  const std::size_t size = is_socket ? socket_path_size : folder_path_size;
  if (address.path.size() < size) {
    return {};
  }
  std::string problem = "the path has " + std::to_string(address.path.size());
  problem.append(" bytes with the file's folder, but a ").append(is_socket ? "socket" : "folder");
  return problem.append("'s may have ").append(std::to_string(size - 1)).append("; choose a shorter one");
}

// Takes one line that is neither blank nor a comment; returns what is wrong with it, empty when nothing is.
std::string take_line(std::string_view line, const std::string &folder, Interfaces &interfaces) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    return std::string("there is no \"=\"").append(write_instead);
  }
  if (line.find('\0') != std::string_view::npos) {
    return "the line holds a zero byte; take it out";
  }
  const std::string_view name = trimmed(line.substr(0, equals));
  if (std::string problem = problem_of_name(name); !problem.empty()) {
    return problem;
  }
  ServerAddress address;
  if (!split_address(trimmed(line.substr(equals + 1)), address)) {
    return std::string("no address stands behind \"=\"").append(write_instead);
  }
  address.path = (std::filesystem::path(folder) / address.path).string();
  if (std::string problem = problem_of_path(address); !problem.empty()) {
    return problem;
  }
  if (!interfaces.servers.try_emplace(std::string(name), std::move(address)).second) {
    return "server '" + std::string(name) + "' is named above already; take one of the lines out";
  }
  return {};
}

// None when the file cannot be read; errno tells why.
std::optional<std::string> text_of(const std::string &file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    return std::nullopt;
  }
  std::string text;
  std::array<char, 4096> piece{};
  do {
    stream.read(piece.data(), piece.size());
    text.append(piece.data(), static_cast<std::size_t>(stream.gcount()));
  } while (stream);
  return stream.bad() ? std::nullopt : std::optional(std::move(text));
}

}  // namespace

Interfaces parse_interfaces(std::string_view text, const std::string &folder) {
  Interfaces interfaces;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const std::string_view line = trimmed(without_comment(text.substr(0, end)));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const std::string problem = line.empty() ? "" : take_line(line, folder, interfaces);
    if (!problem.empty()) {
      return {{}, "line " + std::to_string(number) + ": " + problem};
    }
  }
  return interfaces;
}

std::optional<ServerAddress> find_address(const std::string &file, const std::string &server, std::string &problem) {
  problem.clear();
  const std::optional<std::string> text = text_of(file);
  if (!text) {
    problem = "interfaces file " + file + " cannot be read: " + std::generic_category().message(errno) +
              "; make it readable or name another file";
    return std::nullopt;
  }
  Interfaces interfaces = parse_interfaces(*text, std::filesystem::path(file).parent_path().string());
  if (!interfaces.problem.empty()) {
    problem = "interfaces file " + file + ", " + interfaces.problem;
    return std::nullopt;
  }
  const auto found = interfaces.servers.find(server);
  return found == interfaces.servers.end() ? std::nullopt : std::optional(std::move(found->second));
}

}  // namespace zdb
