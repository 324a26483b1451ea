// A store in a folder: the catalog and the data are SQLite databases, and what was promised survives any
// crash. One process at a time has the folder.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "disk/catalog.h"
#include "disk/catalog_queries.h"
#include "disk/data_file.h"
#include "disk/disk_work.h"
#include "disk/folder.h"
#include "store/store.h"

namespace zdb {

class DiskStore final : public Store {
 public:
  // Opens a folder that create_folder made, and takes up its prepared branches with their changes and locks. Throws
  // std::runtime_error with a text that says what to do.
  explicit DiskStore(const std::string &folder);
  // Checkpoints both databases.
  ~DiskStore() override;

  void list_branches_by(BranchLister lister) override { lister_ = std::move(lister); }
  std::vector<KeptBranch> take_kept_branches() override { return std::move(kept_); }

  void add_user(const std::string &user, const std::string &password, bool dtm_role) override;
  bool drop_user(const std::string &user) override { return catalog_.drop_login(user); }
  std::vector<User> users() override { return catalog_.users(); }
  bool admits(const std::string &user, const std::string &password) override;
  bool slows_guessing() const override { return true; }
  bool has_dtm_role(const std::string &user) override;

  std::optional<int64_t> setting(const std::string &name) override { return catalog_.setting(name); }
  void set_setting(const std::string &name, std::optional<int64_t> value) override {
    catalog_.set_setting(name, value);
  }

  std::shared_ptr<Work> make_work(const std::string &branch) override;
  bool data_are_locked() override { return data_.write_lock().is_held(); }
  SqlOutcome run(const std::string &sql, bool branch_lost, SqlCounts &counts, const std::atomic<bool> &gone) override;
  void wake() override { data_.write_lock().wake(); }
  void stop() override;

 private:
  void put_on_disk();
  void finish_writing();
  void require_settled(int64_t mark);
  void take_up(const JournalRow &row, int64_t mark);
  DiskParts parts();
  SqlOutcome run_alone(const std::string &sql, SqlCounts &counts, const std::atomic<bool> &gone);

  FolderLock lock_;  // first: nothing of the folder is touched without it
  Catalog catalog_;
  DataFile data_;
  std::atomic<bool> stopping_{false};
  std::atomic<int> at_work_{0};
  BranchLister lister_;
  CatalogQueries queries_;
  std::vector<KeptBranch> kept_;
};

}  // namespace zdb
