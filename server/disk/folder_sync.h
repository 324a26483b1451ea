// A new file is on the disk only when its folder is synced.
#pragma once

#include <string>

namespace zdb {

// Opened before the file is made, so that what can fail without harm has not failed afterwards.
class FolderSync {
 public:
  explicit FolderSync(const std::string &folder);
  ~FolderSync();
  FolderSync(const FolderSync &) = delete;
  FolderSync &operator=(const FolderSync &) = delete;

  bool is_open() const { return folder_ >= 0; }
  // False with errno when it failed.
  bool sync() const;

 private:
  const int folder_;
};

}  // namespace zdb
