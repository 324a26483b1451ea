// See the header.
#include "wire/socket.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace zdb {
namespace {

constexpr std::size_t path_max = sizeof(sockaddr_un::sun_path) - 1;

sockaddr_un address_of(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

// The system's calls take every family's address by the same pointer.
const sockaddr *general(const sockaddr_un &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

[[noreturn]] void refuse_path(const std::string &path, const std::string &why) {
  throw std::runtime_error("Cannot listen on '" + path + "': " + why);
}

[[noreturn]] void refuse_path(const std::string &path, int error) {
  refuse_path(path, error_text(error) + ". Check that its folder exists and that this user may write there.");
}

std::string folder_of(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The turn of one process at a time at the sockets of a folder. Whether a file is stale, its removal, and the making of
// the next one until it listens are many steps; between them another server could remove what this one has just made.
// The lock is the folder's own, so that nothing is left behind and a killed process keeps nobody waiting.
class FolderTurn {
 public:
  // Throws std::runtime_error when the folder cannot be had.
  explicit FolderTurn(const std::string &path)
      : folder_(open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!folder_) {
      refuse_path(path, errno);
    }
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (flock(folder_.number(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR) {
        refuse_path(path, errno);
      }
      if (std::chrono::steady_clock::now() > patience) {
        refuse_path(path, "another process keeps its folder locked. Look for it with lsof, or choose another path.");
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  // Closing alone would not end it while a process that was forked meanwhile has the descriptor, too.
  ~FolderTurn() { (void)flock(folder_.number(), LOCK_UN); }
  FolderTurn(const FolderTurn &) = delete;
  FolderTurn &operator=(const FolderTurn &) = delete;

 private:
  Descriptor folder_;
};

// The file of a server that died is in the way of its successor, and nobody else removes it.
void remove_stale_file(const std::string &path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    refuse_path(path, errno);
  }
  if (!S_ISSOCK(status.st_mode)) {
    refuse_path(path, "it exists and is no socket. Remove it or choose another path.");
  }
  if (unlink(path.c_str()) != 0) {
    refuse_path(path, errno);
  }
}

void make_way(const std::string &path) {
  int error = 0;
  const Descriptor other = connect_socket(path, false, error);
  if (other || error == EAGAIN) {
    refuse_path(path, "a server is listening there already. Stop it or choose another path.");
  }
  if (error == ECONNREFUSED) {
    remove_stale_file(path);
  } else if (error != ENOENT) {
    refuse_path(path, error);
  }
}

}  // namespace

Descriptor::Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
  // The old descriptor goes with the other object, which is about to end.
  std::swap(number_, other.number_);
  return *this;
}

Descriptor::~Descriptor() {
  if (number_ >= 0) {
    (void)close(number_);
  }
}

std::string error_text(int error) {
  return std::generic_category().message(error);
}

void check_socket_path(const std::string &path) {
  if (path.empty() || path.find('\0') != std::string::npos) {
    throw std::runtime_error("A socket needs the path of a file. Give one of 1 to " + std::to_string(path_max) +
                             " bytes.");
  }
  if (path.size() > path_max) {
    throw std::runtime_error("The socket path '" + path + "' is too long. Choose one of at most " +
                             std::to_string(path_max) + " bytes.");
  }
}

Descriptor connect_socket(const std::string &path, bool patient, int &error) {
  const sockaddr_un address = address_of(path);
  Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (patient ? 0 : SOCK_NONBLOCK), 0));
  // A connect that a signal interrupts has not begun anything on such a socket.
  while (made && connect(made.number(), general(address), sizeof address) != 0) {
    if (errno != EINTR) {
      error = errno;
      return {};
    }
  }
  error = made ? 0 : errno;
  return made;
}

SocketFile::SocketFile(const std::string &path, mode_t permissions) : path_(path) {
  check_socket_path(path);
  const FolderTurn turn(path);
  make_way(path);
  const sockaddr_un address = address_of(path);
  socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // The file takes the socket's permissions less the umask, so it never has more than these, and then all of them.
  if (!socket_ || fchmod(socket_.number(), permissions) != 0 ||
      bind(socket_.number(), general(address), sizeof address) != 0) {
    refuse_path(path, errno);
  }
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || chmod(path.c_str(), permissions) != 0 ||
      listen(socket_.number(), SOMAXCONN) != 0) {
    const int error = errno;
    (void)unlink(path.c_str());
    refuse_path(path, error);
  }
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

SocketFile::~SocketFile() {
  remove();
}

void SocketFile::shut_down() const noexcept {
  (void)shutdown(socket_.number(), SHUT_RDWR);
}

void SocketFile::remove() noexcept {
  const ino_t inode = std::exchange(inode_, 0);
  if (inode == 0) {
    return;
  }
  try {
    const FolderTurn turn(path_);
    struct stat status {};
    // Our socket, still open, keeps the inode's number from being given to another file.
    if (lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode) {
      (void)unlink(path_.c_str());
    }
  } catch (const std::exception &) {
    return;  // it stays, as after a crash, and is in nobody's way
  }
}

}  // namespace zdb
