/* history_sql.h - random SQL for histories, and a database's whole content as one text. */
#ifndef TESTS_ZDB_HISTORY_SQL_H
#define TESTS_ZDB_HISTORY_SQL_H

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "sqlite.h"
#include "store.h"

class HistorySql {
 public:
  explicit HistorySql(unsigned seed) : random_(seed) {}
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }
  /* What makes the tables, with some rows. */
  std::vector<std::string> tables();
  /* What a branch does; some of it may fail. */
  std::vector<std::string> statements();

 private:
  struct Table {
    std::string name;
    std::vector<std::string> columns;
  };
  const Table &any_table() { return tables_[static_cast<std::size_t>(below(static_cast<int>(tables_.size())))]; }
  const std::string &any(const std::vector<std::string> &texts) {
    return texts[static_cast<std::size_t>(below(static_cast<int>(texts.size())))];
  }
  std::string value();
  std::string create(const std::string &name);
  std::string insert(const std::string &verb);
  std::string update();
  std::string remove();
  std::string change_tables();
  std::string where(const Table &table);
  std::string statement();

  std::mt19937 random_;
  std::vector<Table> tables_;
};

/* Rows as text, values with their types. */
std::string rows_of(const zdb::Database &database, const std::string &sql);
std::string rows_of(const zdb::SqlOutcome &outcome);
/* All tables that the query function finds, but for the server's own. */
std::string content(const std::function<std::string(const std::string &sql)> &query);

#endif /* TESTS_ZDB_HISTORY_SQL_H */
