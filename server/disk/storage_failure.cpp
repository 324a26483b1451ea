// No destructor and no buffer gets in between: each of them could write once more.
#include "disk/storage_failure.h"

#include <fcntl.h>
#include <unistd.h>

namespace zdb {

void end_after_storage_failure(const std::string &what) {
  const std::string line = "zdbd: the process ends, since its data are not safe: " + what +
                           ". What was answered so far holds. Look at the disk, then start again.\n";
  // A reader who does not read must not keep the process from its end.
  const int flags = fcntl(STDERR_FILENO, F_GETFL);
  if (flags >= 0) {
    fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
  }
  if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
    _exit(storage_failure_status);
  }
  _exit(storage_failure_status);
}

}  // namespace zdb
