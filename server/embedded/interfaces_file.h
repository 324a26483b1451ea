// The file that says where servers are found.
//
//   # a comment, as is what follows a "#" after a blank
//   bank1 = embedded:/var/lib/zdb/bank1    a server in this process, with its data in that folder
//   bank2 = unix:run/bank2.sock            a server in a process of its own, listening on that socket
//
// A server's name has 1 to 31 characters and no blanks. Paths that do not begin with "/" start at the file's folder.
// A single bad line makes the whole file unusable, so that no server is ever looked for in a wrong place.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zdb {

struct ServerAddress {
  enum class Kind : uint8_t { embedded, unix_socket };

  Kind kind = Kind::embedded;
  std::string path;
  bool operator==(const ServerAddress &) const = default;
};

struct Interfaces {
  std::map<std::string, ServerAddress> servers;
  std::string problem;  // of the first bad line: its number, what is wrong and what to write; empty without any
};

Interfaces parse_interfaces(std::string_view text, const std::string &folder);

// The address of a server. None with an empty problem when the file does not name it; none with a problem when the file
// cannot be read or has a bad line.
std::optional<ServerAddress> find_address(const std::string &file, const std::string &server, std::string &problem);

}  // namespace zdb
