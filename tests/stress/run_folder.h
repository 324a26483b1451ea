// The folder of a stress run: one of its own, made in the folder that the user names.
#pragma once

#include <string>

class RunFolder {
 public:
  // Makes the named folder unless it is there, and the run's own in it, under a new name. Throws std::runtime_error
  // when that cannot be.
  explicit RunFolder(const std::string &named);
  // Removes the run's own folder, and nothing else. After an exception it stays, to be looked at.
  ~RunFolder();
  RunFolder(const RunFolder &) = delete;
  RunFolder &operator=(const RunFolder &) = delete;

  const std::string &path() const { return path_; }

 private:
  const std::string path_;
  const int exceptions_;
};
