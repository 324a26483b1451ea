// As many connections as there are queries at once; a few are kept for the next ones.
#include "disk/catalog_queries.h"

#include <chrono>

#include "disk/transactions_table.h"

namespace zdb {
namespace {

constexpr std::chrono::seconds query_limit{2};
constexpr std::size_t idle_max = 8;

}  // namespace

CatalogQueries::CatalogQueries(std::string file, const Store::BranchLister &lister)
    : file_(std::move(file)), lister_(lister) {}

SqlOutcome CatalogQueries::run(const std::string &sql, const std::atomic<bool> &stopping) {
  const auto deadline = std::chrono::steady_clock::now() + query_limit;
  const auto stop = [&] {
    return stopping || std::chrono::steady_clock::now() > deadline ? "The query of the catalog takes too long."
                                                                   : nullptr;
  };
  try {
    std::unique_ptr<SqlConnection> connection = take();
    SqlOutcome outcome = connection->run(Place::catalog, sql, {[](bool) {}, [] {}, stop});
    give_back(std::move(connection));
    return outcome;
  } catch (const SqliteError &error) {
    return sql_failure(message_storage, std::string("The catalog cannot be opened (") + error.what() + ").");
  }
}

std::unique_ptr<SqlConnection> CatalogQueries::take() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!idle_.empty()) {
      std::unique_ptr<SqlConnection> connection = std::move(idle_.back());
      idle_.pop_back();
      return connection;
    }
  }
  auto connection = std::make_unique<SqlConnection>(file_);
  sqlite3_db_config(connection->database().handle(), SQLITE_DBCONFIG_MAINDBNAME, "master");
  add_transactions_table(connection->database(), lister_);
  connection->limit_to_catalog();
  return connection;
}

void CatalogQueries::give_back(std::unique_ptr<SqlConnection> connection) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (idle_.size() < idle_max) {
    idle_.push_back(std::move(connection));
  }
}

}  // namespace zdb
