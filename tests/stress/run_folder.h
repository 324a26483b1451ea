// The folder of a stress run, emptied of an earlier run's files and of nothing else.
//
// A file in it marks the folder as one of this tool's. It is made while the folder is empty and stays, so a run that is
// killed at any point leaves a folder that is empty or marked. What else an earlier run left is known by name; when
// there is anything beside it, nothing is removed at all.
#pragma once

#include <string>

class RunFolder {
 public:
  // Makes the folder, or takes one that is empty or was left by an earlier run, and keeps other runs from it until the
  // end of the object and of the processes that were started. Throws std::runtime_error, with nothing removed, when it
  // is anything else or another run is in it.
  explicit RunFolder(const std::string &path);
  ~RunFolder();
  RunFolder(const RunFolder &) = delete;
  RunFolder &operator=(const RunFolder &) = delete;

  const std::string &path() const { return path_; }

 private:
  const std::string path_;
  int mark_ = -1;  // open and locked
};
