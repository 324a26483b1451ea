// Random SQL for histories, and a database's whole content as one text.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "disk/sqlite.h"

class HistorySql {
 public:
  explicit HistorySql(unsigned seed) : random_(seed) {}
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }
  // What makes the tables, with some rows.
  std::vector<std::string> tables();
  // What a branch does; some of it may fail.
  std::vector<std::string> statements();

 private:
  const std::string &any_table() { return any(tables_); }
  const std::string &any(const std::vector<std::string> &texts) {
    return texts[static_cast<std::size_t>(below(static_cast<int>(texts.size())))];
  }
  std::string value();
  std::string create(const std::string &name);
  std::string insert(const std::string &verb);
  std::string update();
  std::string remove();
  std::string change_tables();
  std::string where();
  std::string statement();

  std::mt19937 random_;
  std::vector<std::string> tables_;
};

// Kinds of tables, and what makes them; T is the name. Each has rows with k, c and v.
const std::vector<std::string> &table_kinds();
std::string with_name(std::string text, const std::string &name);
// All tables, but for the server's own, as one text.
std::string content(const zdb::Database &database);
