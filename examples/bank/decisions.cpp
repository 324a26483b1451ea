// One line a decision, appended and synced.
#include "decisions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace {

void cut_to_whole_lines(int file, const std::string &text) {
  const size_t end = text.rfind('\n');
  if (ftruncate(file, static_cast<off_t>(end == std::string::npos ? 0 : end + 1)) != 0) {
    throw std::runtime_error(std::string("cannot cut the decisions' last line off: ") + std::strerror(errno));
  }
}

// What is read need not be on the disk: a process that ended in the middle of a sync has left it in memory, where a
// sync that failed lets it look as if it were. So it is written again before anybody goes by it.
void put_on_disk(const std::string &file, const std::string &text) {
  const int opened = open(file.c_str(), O_WRONLY | O_CLOEXEC);
  const bool written = opened >= 0 &&
                       pwrite(opened, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
                       fsync(opened) == 0;
  const int failure = errno;
  close(opened);
  if (!written) {
    throw std::runtime_error("cannot keep " + file + " on the disk: " + std::strerror(failure));
  }
}

// A new file is on the disk only when its folder is.
void sync_folder_of(const std::string &file) {
  std::filesystem::path folder = std::filesystem::path(file).parent_path();
  if (folder.empty()) {
    folder = ".";
  }
  const int opened = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool synced = opened >= 0 && fsync(opened) == 0;
  const int failure = errno;
  close(opened);
  if (!synced) {
    throw std::runtime_error("cannot sync the folder of " + file + ": " + std::strerror(failure));
  }
}

}  // namespace

Decisions::Decisions(const std::string &file)
    : file_(open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
  if (file_ < 0) {
    throw std::runtime_error("cannot open " + file + ": " + std::strerror(errno));
  }
  sync_folder_of(file);
  std::ifstream stream(file);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  size_t start = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', start)) {
    committed_.insert(text.substr(start, end - start));
    start = end + 1;
  }
  if (start != text.size()) {
    cut_to_whole_lines(file_, text);
  }
  if (start != 0) {
    put_on_disk(file, text.substr(0, start));
  }
}

Decisions::~Decisions() {
  close(file_);
}

// After a failure here nobody knows whether the decision is on the disk. Taking the branches back would be wrong if it
// is, so the process ends, and the next one goes by what it finds.
void Decisions::commit(const std::string &global) {
  const std::string line = global + '\n';
  if (write(file_, line.data(), line.size()) != static_cast<ssize_t>(line.size()) || fdatasync(file_) != 0) {
    std::cerr << "cannot record the decision to commit " << global << ": " << std::strerror(errno)
              << ". Start again, so that what the disk holds decides\n";
    _exit(EXIT_FAILURE);
  }
  committed_.insert(global);
}
