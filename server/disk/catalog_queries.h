// Clients' queries of the catalog, each on a connection of its own and under limits that hold: one
// that takes its time keeps nobody else waiting, and no function in it runs for long without being looked at.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "disk/statements.h"
#include "store/store.h"

namespace zdb {

class CatalogQueries {
 public:
  // The lister outlives the object.
  CatalogQueries(std::string file, const Store::BranchLister &lister);

  SqlOutcome run(const std::string &sql, const std::atomic<bool> &stopping);

 private:
  std::unique_ptr<SqlConnection> take();
  void give_back(std::unique_ptr<SqlConnection> connection);

  const std::string file_;
  const Store::BranchLister &lister_;
  std::mutex mutex_;  // guards the idle ones
  std::vector<std::unique_ptr<SqlConnection>> idle_;
};

}  // namespace zdb
