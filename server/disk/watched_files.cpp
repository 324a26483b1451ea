// A layer over SQLite's default file system that passes everything through but for what a capture
// keeps back. A file of the layer is a header followed by the file of the layer below; the other operations of the
// layer below (randomness, time) do not look at files and are taken as they are.
#include "disk/watched_files.h"

#include <sqlite3.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <system_error>

#include "disk/folder_sync.h"
#include "disk/log_notes.h"
#include "disk/page_capture.h"
#include "disk/storage_failure.h"
#include "steps/crash_points.h"

namespace zdb {
namespace {

std::atomic<uint64_t> syncs{0};

// The file below follows, at an offset that suits any of its members: SQLite's memory is aligned to 8 bytes.
struct alignas(8) WatchedFile {
  sqlite3_file base;
  PageCapture *capture;  // of a log whose transactions are captured, else null
  LogWatch *watch;       // of a log that is noted, else null; owned
};

// Whose connection this thread opens. SQLite does not tell a log's opening which connection it is for.
thread_local PageCapture *opening = nullptr;

sqlite3_file *below(sqlite3_file *file) {
  return reinterpret_cast<sqlite3_file *>(reinterpret_cast<WatchedFile *>(file) + 1);
}

sqlite3_vfs *system_files() {
  static sqlite3_vfs *const found = sqlite3_vfs_find(nullptr);
  return found;
}

PageCapture *capture_of(sqlite3_file *file) {
  return reinterpret_cast<WatchedFile *>(file)->capture;
}

LogWatch *watch_of(sqlite3_file *file) {
  return reinterpret_cast<WatchedFile *>(file)->watch;
}

int close_file(sqlite3_file *file) {
  if (PageCapture *capture = capture_of(file)) {
    capture->closed();
  }
  delete watch_of(file);
  return below(file)->pMethods->xClose(below(file));
}

int read_file(sqlite3_file *file, void *bytes, int count, sqlite3_int64 at) {
  return below(file)->pMethods->xRead(below(file), bytes, count, at);
}

// Nothing may be thrown through SQLite.
int note_write(PageCapture &capture, const void *bytes, int count, sqlite3_int64 at) {
  try {
    return capture.write(static_cast<const char *>(bytes), count, at);
  } catch (const std::bad_alloc &) {
    return SQLITE_IOERR_NOMEM;
  }
}

int write_file(sqlite3_file *file, const void *bytes, int count, sqlite3_int64 at) {
  if (PageCapture *capture = capture_of(file)) {
    const int code = note_write(*capture, bytes, count, at);
    if (code != SQLITE_OK || capture->captures()) {
      return code;
    }
  }
  LogWatch *const watch = watch_of(file);
  if (watch != nullptr && !watch->before_loss(at)) {
    return SQLITE_IOERR_WRITE;
  }
  crash_point();
  const int code = below(file)->pMethods->xWrite(below(file), bytes, count, at);
  if (watch != nullptr && code == SQLITE_OK) {
    watch->wrote(bytes, count, at);
  }
  crash_point();
  return code;
}

int truncate_file(sqlite3_file *file, sqlite3_int64 size) {
  LogWatch *const watch = watch_of(file);
  if (watch != nullptr && !watch->before_loss(size)) {
    return SQLITE_IOERR_TRUNCATE;
  }
  return below(file)->pMethods->xTruncate(below(file), size);
}

int sync_file(sqlite3_file *file, int flags) {
  const PageCapture *capture = capture_of(file);
  if (capture != nullptr && capture->captures()) {
    return SQLITE_OK;
  }
  crash_point();
  const int code = below(file)->pMethods->xSync(below(file), flags);
  if (code != SQLITE_OK) {
    end_after_storage_failure(std::string("a sync failed (") + sqlite3_errstr(code) + ")");
  }
  ++syncs;
  crash_point();
  if (LogWatch *watch = watch_of(file)) {
    watch->synced();
  }
  return code;
}

int file_size(sqlite3_file *file, sqlite3_int64 *size) {
  return below(file)->pMethods->xFileSize(below(file), size);
}

int lock_file(sqlite3_file *file, int level) {
  return below(file)->pMethods->xLock(below(file), level);
}

int unlock_file(sqlite3_file *file, int level) {
  return below(file)->pMethods->xUnlock(below(file), level);
}

int check_reserved_lock(sqlite3_file *file, int *result) {
  return below(file)->pMethods->xCheckReservedLock(below(file), result);
}

int control_file(sqlite3_file *file, int operation, void *argument) {
  return below(file)->pMethods->xFileControl(below(file), operation, argument);
}

int sector_size(sqlite3_file *file) {
  return below(file)->pMethods->xSectorSize(below(file));
}

int device_characteristics(sqlite3_file *file) {
  return below(file)->pMethods->xDeviceCharacteristics(below(file));
}

int map_shared(sqlite3_file *file, int page, int size, int extend, void volatile **memory) {
  return below(file)->pMethods->xShmMap(below(file), page, size, extend, memory);
}

int lock_shared(sqlite3_file *file, int offset, int count, int flags) {
  return below(file)->pMethods->xShmLock(below(file), offset, count, flags);
}

void barrier_shared(sqlite3_file *file) {
  below(file)->pMethods->xShmBarrier(below(file));
}

int unmap_shared(sqlite3_file *file, int remove) {
  return below(file)->pMethods->xShmUnmap(below(file), remove);
}

// The second version of the table: files are read, not mapped.
constexpr sqlite3_io_methods methods = {2,
                                        close_file,
                                        read_file,
                                        write_file,
                                        truncate_file,
                                        sync_file,
                                        file_size,
                                        lock_file,
                                        unlock_file,
                                        check_reserved_lock,
                                        control_file,
                                        sector_size,
                                        device_characteristics,
                                        map_shared,
                                        lock_shared,
                                        barrier_shared,
                                        unmap_shared,
                                        nullptr,
                                        nullptr};

int open_below(const char *name, sqlite3_file *file, int flags, int *opened) {
  return system_files()->xOpen(system_files(), name, below(file), flags, opened);
}

// SQLite takes no notice when the sync of a new log's folder fails, and makes none for a log that a killed process has
// left behind. Commits in a log without a name would be lost.
int open_log_in(const FolderSync &names, const char *name, sqlite3_file *file, int flags, int *opened) noexcept {
  if (!names.is_open()) {
    return SQLITE_CANTOPEN;
  }
  const int code = open_below(name, file, flags, opened);
  if (code == SQLITE_OK && !names.sync()) {
    end_after_storage_failure(std::string("the folder of ") + name + " cannot be synced: " + std::strerror(errno));
  }
  return code;
}

int open_log(const char *name, sqlite3_file *file, int flags, int *opened) {
  try {
    auto watch = LogWatch::of(name);
    const int code = open_log_in(FolderSync(std::filesystem::path(name).parent_path()), name, file, flags, opened);
    if (below(file)->pMethods != nullptr) {
      reinterpret_cast<WatchedFile *>(file)->watch = watch.release();
    }
    return code;
  } catch (const std::bad_alloc &) {
    return SQLITE_NOMEM;
  } catch (const std::system_error &) {
    return SQLITE_CANTOPEN;
  }
}

// SQLite deletes a log that it has put into the database.
int delete_file(sqlite3_vfs *, const char *name, int sync_folder) {
  try {
    const auto watch = LogWatch::of(name);
    if (watch != nullptr && !watch->before_loss(0)) {
      return SQLITE_IOERR_DELETE;
    }
  } catch (const std::bad_alloc &) {
    return SQLITE_NOMEM;
  } catch (const std::system_error &) {
    return SQLITE_IOERR_DELETE;
  }
  return system_files()->xDelete(system_files(), name, sync_folder);
}

int open_file(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *opened) {
  const bool is_log = (flags & SQLITE_OPEN_WAL) != 0;
  file->pMethods = nullptr;
  PageCapture *capture = is_log ? opening : nullptr;
  reinterpret_cast<WatchedFile *>(file)->capture = capture;
  reinterpret_cast<WatchedFile *>(file)->watch = nullptr;
  below(file)->pMethods = nullptr;
  const int code = is_log ? open_log(name, file, flags, opened) : open_below(name, file, flags, opened);
  if (below(file)->pMethods != nullptr) {
    file->pMethods = &methods;
    if (capture != nullptr) {
      capture->opened(below(file));
    }
  }
  return code;
}

// Without memory there is nothing to lay it over yet; the next who asks tries again.
sqlite3_vfs *make_layer() {
  if (sqlite3_initialize() != SQLITE_OK) {
    throw std::bad_alloc();
  }
  static sqlite3_vfs layer = *system_files();
  layer.zName = "zdb";
  layer.szOsFile = static_cast<int>(sizeof(WatchedFile)) + system_files()->szOsFile;
  layer.pNext = nullptr;
  layer.xOpen = open_file;
  layer.xDelete = delete_file;
  sqlite3_vfs_register(&layer, 0);
  return &layer;
}

}  // namespace

const char *watched_files() {
  static const sqlite3_vfs *const layer = make_layer();
  return layer->zName;
}

CaptureScope::CaptureScope(PageCapture *capture) {
  opening = capture;
}

CaptureScope::~CaptureScope() {
  opening = nullptr;
}

uint64_t syncs_made() {
  return syncs.load();
}

}  // namespace zdb
