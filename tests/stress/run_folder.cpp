// Nobody else knows the folder's name, so whatever is in it was made by the run.
#include "run_folder.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

std::string new_folder_in(const std::string &named) {
  fs::create_directories(named);
  std::string path = fs::absolute(named) / "run.XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    throw std::runtime_error(path + " cannot be made: " + std::strerror(errno));
  }
  return path;
}

}  // namespace

RunFolder::RunFolder(const std::string &named) : path_(new_folder_in(named)), exceptions_(std::uncaught_exceptions()) {}

RunFolder::~RunFolder() {
  if (std::uncaught_exceptions() == exceptions_) {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
}
