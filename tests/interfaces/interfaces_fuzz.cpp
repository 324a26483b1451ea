/* interfaces_fuzz.cpp - any text given to the interfaces file's parser: what it accepts keeps the file's own rules. */
#include <cstdlib>

#include "interfaces_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const zdb::Interfaces interfaces = zdb::parse_interfaces(text, "/etc/zdb");
  if (!interfaces.problem.empty() && !interfaces.servers.empty()) {
    std::abort();
  }
  for (const auto &[name, address] : interfaces.servers) {
    const bool is_name = !name.empty() && name.size() <= 31 && name.find_first_of(" \t\r\n") == std::string::npos;
    if (!is_name || !address.path.starts_with('/') || address.path.find('\0') != std::string::npos) {
      std::abort();
    }
  }
  return 0;
}
