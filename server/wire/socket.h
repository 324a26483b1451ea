// Unix-domain stream sockets: descriptors that close themselves, connecting, and the file on which a server
// listens.
#pragma once

#include <sys/types.h>

#include <string>

namespace zdb {

// Owns a file descriptor; -1 is none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) noexcept : number_(number) {}
  Descriptor(Descriptor &&other) noexcept;
  Descriptor &operator=(Descriptor &&other) noexcept;
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  ~Descriptor();

  int number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

 private:
  int number_ = -1;
};

// What the system calls an error number; safe in threads.
std::string error_text(int error);

// Throws std::runtime_error, with what to do about it, for a path that cannot be a socket's.
void check_socket_path(const std::string &path);

// A socket connected to the server that listens on the (checked) path. None, and the error number, when that fails;
// EAGAIN when the server is there but would have to be waited for, which only happens without patience.
Descriptor connect_socket(const std::string &path, bool patient, int &error);

// The file and the socket on which a server listens. Making it replaces the file of a server that is gone; it throws
// std::runtime_error, with what to do about it, when that cannot be. Of several that are made for one path at the same
// moment, in whatever processes, one is.
class SocketFile {
 public:
  SocketFile(const std::string &path, mode_t permissions);
  SocketFile(const SocketFile &) = delete;
  SocketFile &operator=(const SocketFile &) = delete;
  ~SocketFile();

  int number() const { return socket_.number(); }
  // Wakes whoever accepts; nobody can connect any more.
  void shut_down() const noexcept;
  // Unless another server has put its own in its place. May be called again.
  void remove() noexcept;

 private:
  std::string path_;
  Descriptor socket_;
  dev_t device_ = 0;
  ino_t inode_ = 0;  // 0 once removed
};

}  // namespace zdb
