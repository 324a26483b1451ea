// A transaction manager's memory: the global transactions that it has decided to commit. What is not in
// it was never decided, and is rolled back.
#pragma once

#include <set>
#include <string>

class Decisions {
 public:
  // Reads the file, or makes it; a last line without an end was never decided. Throws std::runtime_error.
  explicit Decisions(const std::string &file);
  ~Decisions();
  Decisions(const Decisions &) = delete;
  Decisions &operator=(const Decisions &) = delete;

  // The decision is on the disk when this returns.
  void commit(const std::string &global);
  bool is_committed(const std::string &global) const { return committed_.contains(global); }

 private:
  int file_ = -1;
  std::set<std::string> committed_;
};
