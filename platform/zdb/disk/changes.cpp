/* changes.cpp - takes the old rows out, keeping those that were only updated, and then puts the new ones in. */
#include "changes.h"

#include <cstring>
#include <map>
#include <vector>

namespace zdb {
namespace {

struct FreeValue {
  void operator()(sqlite3_value *value) const { sqlite3_value_free(value); }
};
using Row = std::vector<std::unique_ptr<sqlite3_value, FreeValue>>;

struct EndIteration {
  void operator()(sqlite3_changeset_iter *iterator) const { sqlite3changeset_finalize(iterator); }
};
using Iterator = std::unique_ptr<sqlite3_changeset_iter, EndIteration>;

std::string quoted(const std::string &name) {
  std::string text = "\"";
  for (const char c : name) {
    text.append(c == '"' ? 2 : 1, c);
  }
  return text + '"';
}

void require(int code) {
  if (code != SQLITE_OK) {
    throw SqliteError(code, sqlite3_errstr(code));
  }
}

bool same_value(sqlite3_value *left, sqlite3_value *right) {
  if (sqlite3_value_type(left) != sqlite3_value_type(right)) {
    return false;
  }
  switch (sqlite3_value_type(left)) {
    case SQLITE_INTEGER:
      return sqlite3_value_int64(left) == sqlite3_value_int64(right);
    case SQLITE_FLOAT:
      return sqlite3_value_double(left) == sqlite3_value_double(right);
    case SQLITE_NULL:
      return true;
    default: {
      const int size = sqlite3_value_bytes(left);
      return size == sqlite3_value_bytes(right) &&
             (size == 0 ||
              std::memcmp(sqlite3_value_blob(left), sqlite3_value_blob(right), static_cast<std::size_t>(size)) == 0);
    }
  }
}

std::vector<std::string> column_names(const Database &database, const std::string &table) {
  Statement statement(database, "SELECT name FROM pragma_table_info(?) ORDER BY cid");
  statement.bind(1, table);
  std::vector<std::string> names;
  while (statement.step()) {
    names.push_back(quoted(statement.text(0)));
  }
  return names;
}

/* A change of one row, at which an iterator stands. */
struct Change {
  const char *table = nullptr;
  int columns = 0;
  int operation = 0;
};

/* The statements on one table, and the rows that are to go into it. */
class Target {
 public:
  Target(const Database &database, sqlite3_changeset_iter *at, const Change &change)
      : names_(column_names(database, change.table)),
        key_(key_columns(at)),
        select_(database, "SELECT * FROM " + where(change.table)),
        remove_(database, "DELETE FROM " + where(change.table)),
        insert_(database, insertion(change.table)) {
    if (names_.size() != static_cast<std::size_t>(change.columns)) {
      throw SqliteError(SQLITE_SCHEMA, std::string("table ") + change.table + " has other columns now");
    }
  }

  void make_room(sqlite3_changeset_iter *at, const Change &change) {
    if (change.operation != SQLITE_INSERT) {
      bind_key(select_, at);
      if (!select_.step() || !is_old_row(at, change)) {
        throw SqliteError(SQLITE_CORRUPT, std::string("a row of table ") + change.table + " is not as it was");
      }
      bind_key(remove_, at);
      remove_.run();
    }
    if (change.operation != SQLITE_DELETE) {
      rows_.push_back(new_row(at, change));
    }
    select_.reset();
  }

  void put_rows_in() {
    for (const Row &row : rows_) {
      insert_.reset();
      for (std::size_t column = 0; column < row.size(); ++column) {
        insert_.bind_value(static_cast<int>(column) + 1, row[column].get());
      }
      insert_.run();
    }
  }

 private:
  static std::vector<int> key_columns(sqlite3_changeset_iter *at) {
    unsigned char *in_key = nullptr;
    int count = 0;
    require(sqlite3changeset_pk(at, &in_key, &count));
    std::vector<int> columns;
    for (int column = 0; column < count; ++column) {
      if (in_key[column] != 0) {
        columns.push_back(column);
      }
    }
    return columns;
  }

  std::string where(const std::string &table) const {
    std::string text = quoted(table) + " WHERE ";
    for (const int column : key_) {
      text += (column == key_.front() ? "" : " AND ") + names_.at(static_cast<std::size_t>(column)) + " IS ?";
    }
    return text;
  }

  std::string insertion(const std::string &table) const {
    std::string text = "INSERT INTO " + quoted(table) + " VALUES (?";
    for (std::size_t column = 1; column < names_.size(); ++column) {
      text += ", ?";
    }
    return text + ")";
  }

  void bind_key(Statement &statement, sqlite3_changeset_iter *at) const {
    statement.reset();
    int place = 0;
    for (const int column : key_) {
      sqlite3_value *value = nullptr;
      require(sqlite3changeset_old(at, column, &value));
      statement.bind_value(++place, value);
    }
  }

  /* The row at which the selection stands, compared with what the change tells of the one before it. */
  bool is_old_row(sqlite3_changeset_iter *at, const Change &change) const {
    for (int column = 0; column < change.columns; ++column) {
      sqlite3_value *value = nullptr;
      require(sqlite3changeset_old(at, column, &value));
      if (value != nullptr && !same_value(value, sqlite3_column_value(select_.handle(), column))) {
        return false;
      }
    }
    return true;
  }

  /* What the change does not tell of an updated row is taken from the old one, at which the selection stands. */
  Row new_row(sqlite3_changeset_iter *at, const Change &change) const {
    Row row;
    for (int column = 0; column < change.columns; ++column) {
      sqlite3_value *value = nullptr;
      require(sqlite3changeset_new(at, column, &value));
      row.emplace_back(sqlite3_value_dup(value != nullptr ? value : sqlite3_column_value(select_.handle(), column)));
    }
    return row;
  }

  std::vector<std::string> names_;
  std::vector<int> key_;
  Statement select_;
  Statement remove_;
  Statement insert_;
  std::vector<Row> rows_;
};

}  // namespace

void make_changes_again(const Database &database, const std::string &changes) {
  std::string bytes = changes;
  sqlite3_changeset_iter *at = nullptr;
  const int code = sqlite3changeset_start(&at, static_cast<int>(bytes.size()), bytes.data());
  const Iterator iterator(at);
  require(code);
  std::map<std::string, Target> targets;
  int found = SQLITE_OK;
  while ((found = sqlite3changeset_next(at)) == SQLITE_ROW) {
    Change change;
    require(sqlite3changeset_op(at, &change.table, &change.columns, &change.operation, nullptr));
    auto target = targets.find(change.table);
    if (target == targets.end()) {
      target = targets.try_emplace(change.table, database, at, change).first;
    }
    target->second.make_room(at, change);
  }
  require(found == SQLITE_DONE ? SQLITE_OK : found);
  for (auto &[name, target] : targets) {
    target.put_rows_in();
  }
}

}  // namespace zdb
