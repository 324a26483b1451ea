// A store that forgets everything with its process and does no work on data: enough for a server whose
// DTM procedures are all that is wanted of it.
#pragma once

#include <map>
#include <mutex>

#include "store/store.h"

namespace zdb {

class MemoryStore final : public Store {
 public:
  void list_branches_by(BranchLister lister) override { lister_ = std::move(lister); }
  std::vector<KeptBranch> take_kept_branches() override { return {}; }

  void add_user(const std::string &user, const std::string &password, bool dtm_role) override;
  bool drop_user(const std::string &user) override;
  std::vector<User> users() override;
  bool admits(const std::string &user, const std::string &password) override;
  bool has_dtm_role(const std::string &user) override;

  std::optional<int64_t> setting(const std::string &name) override;
  void set_setting(const std::string &name, std::optional<int64_t> value) override;

  std::shared_ptr<Work> make_work(const std::string &branch) override;
  // Knows the two queries that a resource manager asks, and no other SQL.
  SqlOutcome run(const std::string &sql, bool branch_lost, SqlCounts &counts, const std::atomic<bool> &gone) override;
  void wake() override {}
  void stop() override {}

 private:
  struct Login {
    std::string password;
    bool dtm_role;
  };

  std::optional<int32_t> branch_state(const std::string &name) const;

  BranchLister lister_;
  std::mutex mutex_;  // guards what follows
  std::map<std::string, Login> logins_;
  std::map<std::string, int64_t> settings_{{dtm_setting, 1}};
};

}  // namespace zdb
