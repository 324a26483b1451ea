// The places of closed files are taken with O_PATH, which allows no reading and no writing.
#include "standard_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

void occupy_standard_files() {
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(file, F_GETFD) < 0) {
      static_cast<void>(open("/", O_PATH));  // takes the lowest free number, which this one is
    }
  }
}

std::optional<std::string> text_of_file(int file) {
  std::string text;
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t got = read(file, buffer.data(), buffer.size());
    if (got == 0) {
      return text;
    }
    if (got > 0) {
      text.append(buffer.data(), static_cast<size_t>(got));
    } else if (errno != EINTR) {
      return std::nullopt;
    }
  }
}
