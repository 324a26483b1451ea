// How SQLite's files reach the disk: the operating system's own way, with every sync counted, a
// crash tried out before and after each write and sync (crash_points.h), transactions captured before they are
// committed (page_capture.h), and the end of the process after a sync that failed (storage_failure.h).
#pragma once

#include <cstdint>

namespace zdb {

class PageCapture;

// While it lives, the log of the connection that this thread opens tells the capture (null: none) of its writes.
class CaptureScope {
 public:
  explicit CaptureScope(PageCapture *capture);
  ~CaptureScope();
  CaptureScope(const CaptureScope &) = delete;
  CaptureScope &operator=(const CaptureScope &) = delete;
};

// The name of the file system layer to open databases with; made at the first call.
const char *watched_files();
// Syncs of this process through it.
uint64_t syncs_made();

}  // namespace zdb
