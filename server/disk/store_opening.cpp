// Files are looked at before SQLite is, which would make those that are missing.
#include "disk/store_opening.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>

#include "disk/disk_store.h"
#include "disk/log_notes.h"
#include "disk/sqlite.h"

namespace zdb {
namespace {

constexpr std::string_view put_back =
    ". Put back the folder's backup: all files of it, -wal files too, from the same moment";

// What a file cannot do without, as queries.
struct Needs {
  std::string file;
  std::array<const char *, 2> queries;
};

std::array<Needs, 2> databases(const std::string &folder) {
  return {{{catalog_path(folder),
            {"SELECT count(*) FROM syslogins, sysconfigures",
             "SELECT count(*), max(seq) FROM branch_journal, sqlite_sequence"}},
           {data_path(folder), {"SELECT count(*) FROM sqlite_schema", "SELECT count(*) FROM zdb_mark"}}}};
}

[[noreturn]] void refuse(const std::string &file, std::string_view why, std::string_view advice) {
  throw std::runtime_error(std::string(file).append(" ").append(why).append(advice));
}

void require_database(const std::string &file) {
  constexpr std::string_view title("SQLite format 3\0", 16);
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    const std::string why = std::strerror(errno);
    refuse(file, "cannot be opened (" + why + ")", errno == ENOENT ? put_back : ". See that it is this user's");
  }
  std::array<char, title.size()> begin{};
  stream.read(begin.data(), begin.size());
  if (std::string_view(begin.data(), begin.size()) != title) {
    refuse(file, "is damaged: it is no database", put_back);
  }
}

bool is_damage(int code) {
  const int kind = code & 0xFF;
  return kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB || kind == SQLITE_ERROR;
}

// Throws, with the file's name, if it cannot be read.
void require_readable(const Needs &needs) {
  try {
    const Database database(needs.file);
    for (const char *query : needs.queries) {
      Statement(database, query).run();
    }
  } catch (const SqliteError &error) {
    const bool damaged = is_damage(error.code);
    refuse(needs.file, (damaged ? "is damaged (" : "cannot be used (") + std::string(error.what()) + ")",
           damaged ? put_back : ". Look at its disk and whose it is, then start again");
  }
}

// With the folder's lock: closing a file that SQLite uses in this process would end SQLite's locks on it.
void require_databases(const std::string &folder) {
  const FolderLock alone(folder);
  for (const Needs &needs : databases(folder)) {
    require_database(needs.file);
  }
  require_noted_logs(folder);
}

}  // namespace

std::unique_ptr<Store> open_store(const std::string &folder) {
  require_databases(folder);
  std::string why;
  try {
    return std::make_unique<DiskStore>(folder);
  } catch (const SqliteError &error) {
    why = error.what();
  } catch (const StoreError &error) {
    why = error.what();
  }
  for (const Needs &needs : databases(folder)) {
    require_readable(needs);
  }
  throw std::runtime_error(folder + " cannot be opened: " + why);
}

}  // namespace zdb
