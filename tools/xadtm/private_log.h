// What the library says while a configuration is tried out.
#pragma once

#include <string>
#include <vector>

#include "discretion.h"

// One message of the library.
struct Heard {
  std::string type;
  std::string text;    // fit to be shown
  std::string advice;  // what to do about it; may be empty
  std::string said;    // as the library said it, passwords and all: only to be compared with
};

// Opens a temporary file as the process's log, before the library would open another one: a process has one log, so
// the file that the configuration or -L names is left alone. The file has no name any more once it is open, so nothing
// is left of it however the process ends. Refused settings are written as event traces only, so these are switched on.
class PrivateLog {
 public:
  PrivateLog();
  ~PrivateLog();
  PrivateLog(const PrivateLog &) = delete;
  PrivateLog &operator=(const PrivateLog &) = delete;

  // Errors, warnings and messages, each once.
  std::vector<Heard> read(const Discretion &discretion) const;

 private:
  int file_ = -1;
};
