/*
 * watched_files.h - how SQLite's files reach the disk: the operating system's own way, with every sync counted and a
 * crash tried out before and after each write and sync (crash_points.h).
 */
#ifndef ZDB_DISK_WATCHED_FILES_H
#define ZDB_DISK_WATCHED_FILES_H

#include <cstdint>

namespace zdb {

/* The name of the file system layer to open databases with; made at the first call. */
const char *watched_files();
/* Syncs of this process through it. */
uint64_t syncs_made();

}  // namespace zdb

#endif /* ZDB_DISK_WATCHED_FILES_H */
