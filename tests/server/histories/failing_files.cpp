// Definitions in a program win over those of the C library, for SQLite's calls too.
//
// For the faults that take unsynced writes along, each file keeps what undoes them, until it is synced. The names in
// the folder are undone in the same way, until the folder is.
#include "failing_files.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t files_max = 256;

std::atomic<bool> watching{false};
std::atomic<uint64_t> seen{0};
Plan plan;
std::string folder;
std::mutex mutex;  // guards what follows
std::string paths[files_max];

// What stood in the place of a write, or the whole of a file that was removed.
struct Undo {
  std::string path;
  bool of_name;  // it is the folder's sync that makes it needless
  bool existed;
  off_t size;
  off_t at;
  std::string bytes;
  bool lost;  // a sync of it failed: no later one helps
};
std::vector<Undo> undos;

template <typename Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool takes_along() {
  return plan.fault == Fault::lost_sync || plan.fault == Fault::cut || plan.fault == Fault::torn;
}

// What is done here for its own sake has all the memory that it wants.
thread_local int at_own_work = 0;
struct OwnWork {
  OwnWork() { ++at_own_work; }
  ~OwnWork() { --at_own_work; }
  OwnWork(const OwnWork &) = delete;
  OwnWork &operator=(const OwnWork &) = delete;
};

bool fails(Fault fault) {
  if (plan.fault != fault || !watching || (fault == Fault::memory && at_own_work > 0)) {
    return false;
  }
  const uint64_t number = ++seen;
  return number == plan.at || (plan.for_good && number > plan.at);
}

std::string path_of(int file) {
  const std::lock_guard<std::mutex> lock(mutex);
  return file >= 0 && static_cast<std::size_t>(file) < files_max ? paths[file] : std::string();
}

bool is_watched(std::string_view path) {
  return watching && !path.empty();
}

off_t size_of(const std::string &path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

int real_open(const char *name, int flags, mode_t mode = 0) {
  static auto *const real = next<int(const char *, int, ...)>("open64");
  return real(name, flags, mode);
}

std::string bytes_of(const std::string &path, off_t at, off_t count) {
  std::string bytes(static_cast<std::size_t>(count), '\0');
  const int file = real_open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t size = pread(file, bytes.data(), bytes.size(), at);
  close(file);
  bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return bytes;
}

void keep(const std::string &path, bool of_name, off_t at, off_t count) {
  if (!takes_along() || path.ends_with("-shm")) {
    return;  // memory that SQLite shares needs no disk
  }
  const off_t size = size_of(path);
  Undo undo{path, of_name, size >= 0, size, at, size > at ? bytes_of(path, at, std::min(count, size - at)) : "", false};
  const std::lock_guard<std::mutex> lock(mutex);
  undos.push_back(std::move(undo));
}

void forget_undos(const std::string &path) {
  const std::lock_guard<std::mutex> lock(mutex);
  std::erase_if(undos, [&](const Undo &undo) { return !undo.lost && path == (undo.of_name ? folder : undo.path); });
}

void lose(const std::string &path) {
  const std::lock_guard<std::mutex> lock(mutex);
  for (Undo &undo : undos) {
    undo.lost = undo.lost || path == (undo.of_name ? folder : undo.path);
  }
}

void carry_out(const Undo &undo) {
  if (!undo.existed) {
    unlink(undo.path.c_str());
    return;
  }
  const int file = open(undo.path.c_str(), O_WRONLY | O_CLOEXEC | (undo.of_name ? O_CREAT : 0), 0600);
  if (file < 0) {
    return;  // its name goes, too
  }
  if (pwrite(file, undo.bytes.data(), undo.bytes.size(), undo.at) < 0 || ftruncate(file, undo.size) != 0) {
    abort();
  }
  close(file);
}

void end_if_planned() {
  if (fails(Fault::kill) || fails(Fault::cut) || fails(Fault::torn)) {
    end_process();
  }
}

// Also tells a cut of power from it.
bool call_fails(Fault fault, const std::string &path) {
  if (!is_watched(path)) {
    return false;
  }
  end_if_planned();
  return fails(fault);
}

int refused(int code) {
  errno = code;
  return -1;
}

int disk_error() {
  return plan.for_good ? ENOSPC : EIO;
}

// The call opens a file by its name.
int open_watched(const char *name, int flags, mode_t mode) {
  const OwnWork own;
  const std::string path = name;
  const bool ours = !folder.empty() && path.starts_with(folder);
  if (ours && is_watched(path) && fails(Fault::open)) {
    return refused(EMFILE);
  }
  if (ours && is_watched(path) && (flags & O_CREAT) != 0 && size_of(path) < 0) {
    keep(path, true, 0, 0);
  }
  const int file = real_open(name, flags, mode);
  if (file >= 0 && static_cast<std::size_t>(file) < files_max) {
    const std::lock_guard<std::mutex> lock(mutex);
    paths[file] = ours ? path : std::string();
  }
  return file;
}

ssize_t write_watched(int file, const void *bytes, std::size_t count, off_t at) {
  const OwnWork own;
  static auto *const real = next<ssize_t(int, const void *, std::size_t, off_t)>("pwrite64");
  const std::string path = path_of(file);
  if (call_fails(Fault::write, path)) {
    return refused(disk_error());
  }
  if (is_watched(path)) {
    keep(path, false, at, static_cast<off_t>(count));
  }
  return real(file, bytes, count, at);
}

int truncate_watched(int file, off_t size) {
  const OwnWork own;
  static auto *const real = next<int(int, off_t)>("ftruncate64");
  const std::string path = path_of(file);
  if (call_fails(Fault::truncate, path)) {
    return refused(disk_error());
  }
  if (is_watched(path)) {
    keep(path, false, size, size_of(path));
  }
  return real(file, size);
}

int sync_watched(int file, int (*real)(int)) {
  const OwnWork own;
  const std::string path = path_of(file);
  if (call_fails(Fault::sync, path)) {
    return refused(EIO);
  }
  if (is_watched(path) && fails(Fault::lost_sync)) {
    lose(path);
    return refused(EIO);
  }
  if (is_watched(path)) {
    forget_undos(path);
  }
  return real(file);
}

mode_t mode_of(int flags, va_list arguments) {
  return (flags & O_CREAT) == 0 ? 0 : static_cast<mode_t>(va_arg(arguments, int));
}

// ---- Memory ---------------------------------------------------------------------------------------------------------

sqlite3_mem_methods plain_memory;

void *sqlite_memory(int size) {
  return fails(Fault::memory) ? nullptr : plain_memory.xMalloc(size);
}

void *sqlite_more_memory(void *old, int size) {
  return fails(Fault::memory) ? nullptr : plain_memory.xRealloc(old, size);
}

}  // namespace

void watch_memory() {
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &plain_memory);
  sqlite3_mem_methods methods = plain_memory;
  methods.xMalloc = sqlite_memory;
  methods.xRealloc = sqlite_more_memory;
  sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
}

void arm(const Plan &to_come, const std::string &in) {
  plan = to_come;
  folder = in;
  seen = 0;
}

bool has_failed() {
  return plan.fault != Fault::none && seen >= plan.at;
}

Watched::Watched() {
  watching = true;
}

Watched::~Watched() {
  watching = false;
}

void end_process() {
  watching = false;
  std::vector<Undo> last;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    last.swap(undos);
  }
  uint64_t coin = plan.at;
  for (auto undo = last.rbegin(); takes_along() && undo != last.rend(); ++undo) {
    coin = coin * 6364136223846793005U + 1442695040888963407U;
    if (plan.fault != Fault::torn || (coin >> 63) != 0) {
      carry_out(*undo);
    }
  }
  kill(getpid(), SIGKILL);
  abort();
}

// ---- What stands before the C library -------------------------------------------------------------------------------

extern "C" {

int open(const char *name, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_of(flags, arguments);
  va_end(arguments);
  return open_watched(name, flags, mode);
}

ssize_t pwrite(int file, const void *bytes, std::size_t count, off_t at) {
  return write_watched(file, bytes, count, at);
}

int ftruncate(int file, off_t size) noexcept {
  return truncate_watched(file, size);
}

int fsync(int file) {
  return sync_watched(file, next<int(int)>("fsync"));
}

int fdatasync(int file) {
  return sync_watched(file, next<int(int)>("fdatasync"));
}

int open64(const char *name, int flags, ...) __attribute__((alias("open")));
ssize_t pwrite64(int file, const void *bytes, std::size_t count, off64_t at) __attribute__((alias("pwrite")));
int ftruncate64(int file, off64_t size) noexcept __attribute__((alias("ftruncate")));

// A lost process has lost its unsynced files, however it ends.
void _exit(int status) {
  if (plan.fault == Fault::lost_sync && has_failed()) {
    end_process();
  }
  static auto *const real = next<void(int)>("_exit");
  real(status);
  abort();
}

int unlink(const char *name) noexcept {
  const OwnWork own;
  const std::string path = name;
  const bool ours = !folder.empty() && path.starts_with(folder) && is_watched(path);
  if (ours) {
    end_if_planned();
    keep(path, true, 0, size_of(path));
  }
  return next<int(const char *)>("unlink")(name);
}

}  // extern "C"

// ---- What stands before C++'s ---------------------------------------------------------------------------------------

void *operator new(std::size_t size) {
  void *memory = fails(Fault::memory) ? nullptr : std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void operator delete(void *memory) noexcept {
  std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}
