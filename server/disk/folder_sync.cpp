// File systems that know no sync of a folder answer EINVAL, and need none.
#include "disk/folder_sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace zdb {

FolderSync::FolderSync(const std::string &folder) : folder_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

FolderSync::~FolderSync() {
  if (is_open()) {
    close(folder_);
  }
}

bool FolderSync::sync() const {
  return fsync(folder_) == 0 || errno == EINVAL;
}

}  // namespace zdb
