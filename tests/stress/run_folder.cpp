// Looks at everything first, and removes only then; each removal is of one file or empty folder.
#include "run_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr const char *mark_name = "made-by-stress";

// What a run leaves, by its path within the folder: files, sockets, and the servers' folders.
constexpr const char *own_files =
    "interfaces|xa_config|xa\\.log|(admin|workers)\\.log|bank[12]\\.(log|sock)|decisions([wr][0-9]+)?|"
    "plain\\.db(-wal|-shm|-journal)?|bank[12]/(lock|making|control|(catalog|data)\\.db(-wal|-shm|-journal)?)";
constexpr const char *own_folders = "bank[12]";

bool is_own(const fs::path &name, fs::file_type type) {
  static const std::regex files(own_files);
  static const std::regex folders(own_folders);
  const bool is_file = type == fs::file_type::regular || type == fs::file_type::socket;
  return (is_file && std::regex_match(name.string(), files)) ||
         (type == fs::file_type::directory && std::regex_match(name.string(), folders));
}

}  // namespace

[[noreturn]] static void refuse(const std::string &path, const std::string &why) {
  throw std::runtime_error(path + ' ' + why);
}

[[noreturn]] static void refuse_for_error(const std::string &path) {
  refuse(path, std::string("cannot be used: ") + std::strerror(errno));
}

namespace {

// A link would lead to a folder that somebody chose for something else.
void make_folder(const std::string &path) {
  fs::create_directories(fs::path(path).parent_path());
  if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
    refuse_for_error(path);
  }
  if (!fs::is_directory(fs::symlink_status(path))) {
    refuse(path, "is no folder; name one that is empty or does not exist");
  }
}

// The processes of the run inherit it: the folder is in use as long as one of them lives.
int open_mark(const std::string &path) {
  const std::string mark = path + '/' + mark_name;
  const int more_flags = fs::is_empty(path) ? O_CREAT : 0;
  const int file = open(mark.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | more_flags, S_IRUSR | S_IWUSR);
  if (file < 0 && (errno == ENOENT || errno == ELOOP)) {
    refuse(path, "is not empty and was not made by stress; name a folder that is empty or does not exist");
  }
  if (file < 0) {
    refuse_for_error(mark);
  }
  return file;
}

// Folders come before what is in them.
std::vector<fs::path> what_an_earlier_run_left(const std::string &path) {
  std::vector<fs::path> left;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path)) {
    const fs::path name = entry.path().lexically_relative(path);
    if (name == mark_name) {
      continue;
    }
    if (!is_own(name, entry.symlink_status().type())) {
      refuse(entry.path(), "is not from a run of stress; take it away, or name another folder");
    }
    left.push_back(entry.path());
  }
  return left;
}

void lock_and_empty(const std::string &path, int mark) {
  if (flock(mark, LOCK_EX | LOCK_NB) != 0) {
    refuse(path, "is in use by another run, or by processes that a killed run left");
  }
  const std::vector<fs::path> left = what_an_earlier_run_left(path);
  for (auto entry = left.rbegin(); entry != left.rend(); ++entry) {
    fs::remove(*entry);
  }
}

std::string without_last_slashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

}  // namespace

RunFolder::RunFolder(const std::string &path) : path_(without_last_slashes(fs::absolute(path))) {
  make_folder(path_);
  mark_ = open_mark(path_);
  try {
    lock_and_empty(path_, mark_);
  } catch (...) {
    close(mark_);
    throw;
  }
}

RunFolder::~RunFolder() {
  close(mark_);
}
