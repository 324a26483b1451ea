// The lock is one on an open file, so that it ends with its process however that ends. The file's name
// comes last in the making of a folder.
#include "disk/folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "disk/catalog.h"
#include "disk/data_file.h"
#include "disk/folder_sync.h"
#include "steps/crash_points.h"

namespace zdb {
namespace {

int open_lock(const std::string &folder) {
  return open(lock_path(folder).c_str(), O_RDWR | O_CLOEXEC);
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

constexpr std::array<const char *, 4> database_endings = {"", "-wal", "-shm", "-journal"};

// Marks a folder that is being made, or whose making was broken off. It becomes the lock file, which a made one has.
std::string making_path(const std::string &folder) {
  return folder + "/making";
}

std::vector<std::string> database_files(const std::string &folder) {
  std::vector<std::string> files;
  for (const char *ending : database_endings) {
    files.push_back(catalog_path(folder) + ending);
    files.push_back(data_path(folder) + ending);
  }
  return files;
}

std::string repeat_advice(const std::string &folder) {
  return ". Then repeat zdbd --init " + folder;
}

void require_unmade(const std::string &folder) {
  if (is_made(folder)) {
    throw std::runtime_error(folder +
                             " is a server's folder already. It needs no --init; removing it would lose its data");
  }
}

// Nothing is touched in a folder that holds anything else than what a making that was broken off has left.
void require_own_files(const std::string &folder) {
  if (!std::filesystem::exists(folder)) {
    return;
  }
  if (!std::filesystem::is_directory(folder)) {
    throw std::runtime_error(folder + " is no folder. Give one that is empty or does not exist");
  }
  std::vector<std::string> own = database_files(folder);
  own.push_back(making_path(folder));
  const bool is_marked = std::filesystem::exists(making_path(folder));
  for (const auto &entry : std::filesystem::directory_iterator(folder)) {
    if (!is_marked || std::find(own.begin(), own.end(), folder + "/" + entry.path().filename().string()) == own.end()) {
      throw std::runtime_error(folder + " is not empty: it holds " + entry.path().filename().string() +
                               ". Give a folder that is empty or does not exist");
    }
  }
}

// The right to make the folder, and its mark.
class Making {
 public:
  // Removes what an earlier making has left.
  explicit Making(const std::string &folder)
      : folder_(folder), file_(open(making_path(folder).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    if (file_ < 0) {
      throw system_failure("cannot make " + making_path(folder));
    }
    try {
      begin();
    } catch (...) {
      close(file_);
      throw;
    }
    crash_point();
  }
  ~Making() { close(file_); }
  Making(const Making &) = delete;
  Making &operator=(const Making &) = delete;

  void finish() const {
    crash_point();
    if (rename(making_path(folder_).c_str(), lock_path(folder_).c_str()) != 0) {
      throw system_failure("cannot make " + lock_path(folder_));
    }
    crash_point();
    require_synced(folder_);
  }

 private:
  void begin() const {
    if (flock(file_, LOCK_EX | LOCK_NB) != 0) {
      throw std::runtime_error(folder_ + " is being made by another process. Wait for its end");
    }
    if (is_made(folder_)) {
      unlink(making_path(folder_).c_str());  // another process has made it meanwhile, and this mark is ours
      require_unmade(folder_);
    }
    for (const std::string &file : database_files(folder_)) {
      if (unlink(file.c_str()) != 0 && errno != ENOENT) {
        throw system_failure("cannot remove " + file + ", which an earlier --init has left");
      }
    }
  }

  const std::string &folder_;
  const int file_;
};

void make_database(const std::string &folder, const std::string &file, void (*create)(const std::string &)) {
  try {
    create(file);
  } catch (const SqliteError &error) {
    throw std::runtime_error("cannot make " + file + " (" + error.what() + "). See that its disk has room" +
                             repeat_advice(folder));
  }
}

// Why a folder has no lock file.
std::string unmade_reason(const std::string &folder, int error) {
  if (std::filesystem::exists(making_path(folder))) {
    return folder + " is not ready, since its --init was broken off. Repeat zdbd --init " + folder;
  }
  if (std::filesystem::exists(catalog_path(folder))) {
    return lock_path(folder) +
           " is missing. If the folder was put back from a backup that left it out, make an empty file of this name";
  }
  return folder + " is no server's folder, or not yours (" + std::strerror(error) + "). Make one with zdbd --init " +
         folder;
}

}  // namespace

std::string catalog_path(const std::string &folder) {
  return folder + "/catalog.db";
}

std::string data_path(const std::string &folder) {
  return folder + "/data.db";
}

std::string lock_path(const std::string &folder) {
  return folder + "/lock";
}

std::string control_path(const std::string &folder) {
  return folder + "/control";
}

bool is_made(const std::string &folder) {
  return std::filesystem::exists(lock_path(folder));
}

void create_folder(const std::string &folder) {
  require_unmade(folder);
  require_own_files(folder);
  if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    throw system_failure("cannot make the folder " + folder);
  }
  if (chmod(folder.c_str(), S_IRWXU) != 0) {
    throw system_failure("cannot close the folder " + folder + " to others");
  }
  crash_point();
  const Making making(folder);
  make_database(folder, catalog_path(folder), Catalog::create);
  make_database(folder, data_path(folder), DataFile::create);
  require_synced(folder);
  require_synced(folder + "/..");
  making.finish();
}

FolderLock::FolderLock(const std::string &folder) : file_(open_lock(folder)) {
  if (file_ < 0) {
    throw std::runtime_error(unmade_reason(folder, errno));
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
