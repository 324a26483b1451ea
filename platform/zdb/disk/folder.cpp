/* folder.cpp - the lock is one on an open file, so that it ends with its process however that ends. */
#include "folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "catalog.h"
#include "data_file.h"
#include "folder_sync.h"

namespace zdb {
namespace {

std::string lock_path(const std::string &folder) {
  return folder + "/lock";
}

int open_lock(const std::string &folder, int more_flags) {
  return open(lock_path(folder).c_str(), O_RDWR | O_CLOEXEC | more_flags, S_IRUSR | S_IWUSR);
}

std::runtime_error system_failure(const std::string &what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
}

void require_synced(const std::string &folder) {
  const FolderSync names(folder);
  if (!names.is_open() || !names.sync()) {
    throw system_failure("cannot sync the folder " + folder);
  }
}

}  // namespace

std::string catalog_path(const std::string &folder) {
  return folder + "/catalog.db";
}

std::string data_path(const std::string &folder) {
  return folder + "/data.db";
}

std::string control_path(const std::string &folder) {
  return folder + "/control";
}

/* The lock file comes last: with it the folder is a server's. */
void create_folder(const std::string &folder) {
  if (std::filesystem::exists(lock_path(folder))) {
    throw std::runtime_error(folder +
                             " is a server's folder already. It needs no --init; removing it would lose its data");
  }
  if (std::filesystem::exists(folder) && !std::filesystem::is_empty(folder)) {
    throw std::runtime_error(folder + " is not empty. Give a folder that is empty or does not exist");
  }
  if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    throw system_failure("cannot make the folder " + folder);
  }
  if (chmod(folder.c_str(), S_IRWXU) != 0) {
    throw system_failure("cannot close the folder " + folder + " to others");
  }
  Catalog::create(catalog_path(folder));
  DataFile::create(data_path(folder));
  require_synced(folder);
  require_synced(folder + "/..");
  const int file = open_lock(folder, O_CREAT | O_EXCL);
  if (file < 0) {
    throw system_failure("cannot make " + lock_path(folder));
  }
  close(file);
  require_synced(folder);
}

FolderLock::FolderLock(const std::string &folder) : file_(open_lock(folder, 0)) {
  if (file_ < 0) {
    throw std::runtime_error(folder + " is no server's folder, or not yours (" + std::strerror(errno) +
                             "). Make one with zdbd --init " + folder);
  }
  if (flock(file_, LOCK_EX | LOCK_NB) != 0) {
    close(file_);
    throw std::runtime_error(folder + " is in use by another process. Stop that one, or connect to it by its socket");
  }
}

FolderLock::~FolderLock() {
  close(file_);
}

}  // namespace zdb
