/*
 * private_log.h - what the library says while a configuration is tried out.
 */
#ifndef XADTM_TOOL_PRIVATE_LOG_H
#define XADTM_TOOL_PRIVATE_LOG_H

#include <string>
#include <vector>

/* One message, fit to be shown, and what to do about it (may be empty). */
struct Heard {
  std::string type;
  std::string text;
  std::string advice;
};

/*
 * Opens a temporary file as the process's log, before the library would open another one: a process has one log, so
 * the file that the configuration or -L names is left alone. The file is readable by its owner only, and removed when
 * this ends. Refused settings are written as event traces only, so these are switched on.
 */
class PrivateLog {
 public:
  PrivateLog();
  ~PrivateLog();
  PrivateLog(const PrivateLog &) = delete;
  PrivateLog &operator=(const PrivateLog &) = delete;

  /* Errors, warnings and messages, each once, without the open string and without these passwords. */
  std::vector<Heard> read(const std::vector<std::string> &passwords) const;

 private:
  std::string path_;
};

#endif /* XADTM_TOOL_PRIVATE_LOG_H */
