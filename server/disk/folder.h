// The folder of a server: what lies in it, its making, and the lock of the one process that has it.
#pragma once

#include <string>

namespace zdb {

std::string catalog_path(const std::string &folder);
std::string data_path(const std::string &folder);
// Who has it locked has the folder. It holds the notes on the logs (log_notes.h), and comes last in the making.
std::string lock_path(const std::string &folder);
// Where the process that has the folder takes operators' commands.
std::string control_path(const std::string &folder);

// Makes the folder, readable by its owner only, with empty databases. Throws std::runtime_error with what to do. What a
// call leaves that fails or is killed is no server's folder, and another call makes it one.
void create_folder(const std::string &folder);
// Whether create_folder has come to its end there.
bool is_made(const std::string &folder);

// The right to use the folder, until the end of the object or of the process.
class FolderLock {
 public:
  // Throws std::runtime_error with what to do when it is no server's folder, or another process has it.
  explicit FolderLock(const std::string &folder);
  ~FolderLock();
  FolderLock(const FolderLock &) = delete;
  FolderLock &operator=(const FolderLock &) = delete;

 private:
  int file_ = -1;
};

}  // namespace zdb
