// An eponymous virtual table: it exists on each connection that has the module, and lives in
// no file. SQLite calls these functions; no exception leaves them.
#include "disk/transactions_table.h"

#include <exception>

namespace zdb {
namespace {

struct Table {
  sqlite3_vtab base;
  const Store::BranchLister *lister;
};

struct Cursor {
  sqlite3_vtab_cursor base;
  std::vector<BranchRow> rows;
  std::size_t at;
};

int connect(sqlite3 *database, void *lister, int, const char *const *, sqlite3_vtab **table, char **) {
  const int code = sqlite3_declare_vtab(database, "CREATE TABLE x (xactname TEXT, state INTEGER, age INTEGER, held)");
  if (code == SQLITE_OK) {
    auto *made = new (std::nothrow) Table{{}, static_cast<const Store::BranchLister *>(lister)};
    *table = reinterpret_cast<sqlite3_vtab *>(made);
    return made == nullptr ? SQLITE_NOMEM : SQLITE_OK;
  }
  return code;
}

int disconnect(sqlite3_vtab *table) {
  delete reinterpret_cast<Table *>(table);
  return SQLITE_OK;
}

int best_index(sqlite3_vtab *, sqlite3_index_info *) {
  return SQLITE_OK;
}

int open_cursor(sqlite3_vtab *, sqlite3_vtab_cursor **cursor) {
  auto *made = new (std::nothrow) Cursor{};
  *cursor = reinterpret_cast<sqlite3_vtab_cursor *>(made);
  return made == nullptr ? SQLITE_NOMEM : SQLITE_OK;
}

Cursor &cursor_of(sqlite3_vtab_cursor *cursor) {
  return *reinterpret_cast<Cursor *>(cursor);
}

int close_cursor(sqlite3_vtab_cursor *cursor) {
  delete &cursor_of(cursor);
  return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor *base, int, const char *, int, sqlite3_value **) {
  Cursor &cursor = cursor_of(base);
  try {
    cursor.rows = (*reinterpret_cast<Table *>(base->pVtab)->lister)();
    cursor.at = 0;
    return SQLITE_OK;
  } catch (const std::exception &) {
    return SQLITE_NOMEM;
  }
}

int next(sqlite3_vtab_cursor *cursor) {
  ++cursor_of(cursor).at;
  return SQLITE_OK;
}

int at_end(sqlite3_vtab_cursor *base) {
  const Cursor &cursor = cursor_of(base);
  return cursor.at >= cursor.rows.size() ? 1 : 0;
}

int column(sqlite3_vtab_cursor *base, sqlite3_context *context, int which) {
  const Cursor &cursor = cursor_of(base);
  const BranchRow &row = cursor.rows[cursor.at];
  switch (which) {
    case 0:
      sqlite3_result_text(context, row.name.data(), static_cast<int>(row.name.size()), SQLITE_TRANSIENT);
      break;
    case 1:
      sqlite3_result_int(context, row.state);
      break;
    case 2:
      sqlite3_result_int64(context, std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - row.since).count());
      break;
    default:
      sqlite3_result_int(context, row.held ? 1 : 0);
      break;
  }
  return SQLITE_OK;
}

int row_id(sqlite3_vtab_cursor *cursor, sqlite3_int64 *id) {
  *id = static_cast<sqlite3_int64>(cursor_of(cursor).at);
  return SQLITE_OK;
}

// Without a create function the table is there by itself.
sqlite3_module module_functions() {
  sqlite3_module module{};
  module.xConnect = connect;
  module.xBestIndex = best_index;
  module.xDisconnect = disconnect;
  module.xOpen = open_cursor;
  module.xClose = close_cursor;
  module.xFilter = filter;
  module.xNext = next;
  module.xEof = at_end;
  module.xColumn = column;
  module.xRowid = row_id;
  return module;
}

}  // namespace

void add_transactions_table(const Database &database, const Store::BranchLister &lister) {
  static const sqlite3_module module = module_functions();
  const int code = sqlite3_create_module_v2(database.handle(), "systransactions", &module,
                                            const_cast<Store::BranchLister *>(&lister), nullptr);
  if (code != SQLITE_OK) {
    throw database.error(code);
  }
  // Its columns are declared at its first use, which must not be under a client's limits.
  Statement(database, "SELECT xactname FROM systransactions").run();
}

}  // namespace zdb
