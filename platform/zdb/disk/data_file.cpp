/* data_file.cpp - connections are kept for the next user, since opening one reads the whole schema. */
#include "data_file.h"

namespace zdb {
namespace {

constexpr const char *mark_schema =
    "CREATE TABLE zdb_mark (slot INTEGER PRIMARY KEY CHECK (slot = 1), journal_id INTEGER NOT NULL)";

constexpr const char *tables_without_key = R"(
  SELECT t.name FROM pragma_table_list AS t
  WHERE t.schema = 'main' AND t.type = 'table' AND t.name NOT LIKE 'sqlite!_%' ESCAPE '!' AND
        (SELECT count(*) FROM pragma_table_info(t.name) WHERE pk > 0) = 0
  LIMIT 1)";

/* A key that is not the row's own number may hold nulls, unless it is declared otherwise. It has an index then. */
constexpr const char *tables_with_null_keys = R"(
  SELECT t.name FROM pragma_table_list AS t
  WHERE t.schema = 'main' AND t.type = 'table' AND t.wr = 0 AND t.name NOT LIKE 'sqlite!_%' ESCAPE '!' AND
        EXISTS (SELECT 1 FROM pragma_index_list(t.name) WHERE origin = 'pk') AND
        EXISTS (SELECT 1 FROM pragma_table_info(t.name) AS c WHERE c.pk > 0 AND c."notnull" = 0)
  LIMIT 1)";

/* The recorder tells keys apart by their bytes. */
constexpr const char *tables_with_collated_keys = R"(
  SELECT t.name FROM pragma_table_list AS t
  WHERE t.schema = 'main' AND t.type = 'table' AND t.name NOT LIKE 'sqlite!_%' ESCAPE '!' AND
        EXISTS (SELECT 1 FROM pragma_index_list(t.name) AS i, pragma_index_xinfo(i.name) AS c
                WHERE i.origin = 'pk' AND c."key" = 1 AND c.coll <> 'BINARY')
  LIMIT 1)";

constexpr const char *tables_with_computed_columns = R"(
  SELECT t.name FROM pragma_table_list AS t
  WHERE t.schema = 'main' AND t.type = 'table' AND t.name NOT LIKE 'sqlite!_%' ESCAPE '!' AND
        EXISTS (SELECT 1 FROM pragma_table_xinfo(t.name) AS c WHERE c.hidden > 0)
  LIMIT 1)";

std::string first_name(const Database &database, const char *query) {
  Statement statement(database, query);
  return statement.step() ? statement.text(0) : std::string();
}

}  // namespace

void DataFile::create(const std::string &file) {
  const Database database(file);
  database.execute(mark_schema);
}

DataFile::DataFile(std::string file) : file_(std::move(file)) {}

std::unique_ptr<SqlConnection> DataFile::take() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!idle_.empty()) {
      std::unique_ptr<SqlConnection> connection = std::move(idle_.back());
      idle_.pop_back();
      return connection;
    }
  }
  try {
    return std::make_unique<SqlConnection>(file_);
  } catch (const SqliteError &error) {
    throw StoreError(message_storage, std::string("The server cannot open its data (") + error.what() + ").");
  }
}

void DataFile::give_back(std::unique_ptr<SqlConnection> connection) {
  constexpr std::size_t idle_max = 8;
  connection->database().roll_back();
  const std::lock_guard<std::mutex> lock(mutex_);
  if (idle_.size() < idle_max) {
    idle_.push_back(std::move(connection));
  }
}

int64_t DataFile::mark() {
  std::unique_ptr<SqlConnection> connection = take();
  int64_t id = 0;
  {
    Statement statement(connection->database(), "SELECT journal_id FROM zdb_mark");
    id = statement.step() ? statement.integer(0) : 0;
  }
  give_back(std::move(connection));
  return id;
}

void DataFile::settle() {
  std::unique_ptr<SqlConnection> connection = take();
  connection->database().execute("PRAGMA wal_checkpoint(TRUNCATE)");
  give_back(std::move(connection));
}

void set_mark(const Database &database, int64_t journal_id) {
  Statement(database,
            "INSERT INTO zdb_mark VALUES (1, ?) ON CONFLICT (slot) DO UPDATE SET journal_id = excluded.journal_id")
      .bind(1, journal_id)
      .run();
}

void require_recordable_tables(const Database &database) {
  struct Rule {
    const char *offenders;
    const char *remedy;
  };
  constexpr Rule rules[] = {
      {tables_without_key, "' needs a PRIMARY KEY, so that a branch's changes of it can be made again after a crash."},
      {tables_with_null_keys, "' has a PRIMARY KEY that may be null. Declare its columns NOT NULL."},
      {tables_with_collated_keys, "' has a PRIMARY KEY with a collation. Give the key's columns none."},
      {tables_with_computed_columns, "' has a generated column. Use a view for it."},
  };
  for (const Rule &rule : rules) {
    if (const std::string name = first_name(database, rule.offenders); !name.empty()) {
      throw StoreError(message_not_allowed, "Table '" + name + rule.remedy);
    }
  }
}

}  // namespace zdb
