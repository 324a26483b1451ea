// Logins and settings in maps, and the two queries of resource managers.
#include "store/memory_store.h"

#include <algorithm>
#include <sstream>
#include <string_view>

namespace zdb {
namespace {

constexpr std::string_view readiness_query = "select value from master.dbo.sysconfigures where name = \"enable DTM\"";
constexpr std::string_view state_query = "select state from master..systransactions where xactname = \"";

// The query with every run of white space as one blank and none at the ends.
std::string normalised(const std::string &query) {
  std::istringstream words(query);
  std::string text;
  std::string word;
  while (words >> word) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

// The answer to a query for one integer: a row with it, or none.
SqlOutcome integer_answer(const std::string &column, std::optional<int64_t> value) {
  Result rows{ResultKind::rows, {{column, ColumnType::integer, 4}}, {}};
  if (value) {
    rows.rows.push_back({Value(*value)});
  }
  const auto count = static_cast<int64_t>(rows.rows.size());
  SqlOutcome outcome;
  outcome.results.push_back(std::move(rows));
  outcome.results.push_back({ResultKind::succeeded, {}, {}});
  outcome.results.push_back({ResultKind::done, {}, {}, count});
  return outcome;
}

class NoWork final : public Work {
 public:
  explicit NoWork(MemoryStore &store) : store_(store) {}
  SqlOutcome run(const std::string &sql, SqlCounts &counts) override { return store_.run(sql, false, counts, never_); }
  void prepare() override {}
  void commit() override {}
  void roll_back() override {}
  void settle(bool) override {}
  void forget() override {}
  void interrupt() override {}

 private:
  MemoryStore &store_;
  const std::atomic<bool> never_{false};
};

}  // namespace

void MemoryStore::add_user(const std::string &user, const std::string &password, bool dtm_role) {
  const std::lock_guard<std::mutex> lock(mutex_);
  logins_[user] = {password, dtm_role};
}

bool MemoryStore::drop_user(const std::string &user) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return logins_.erase(user) > 0;
}

std::vector<User> MemoryStore::users() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<User> all;
  for (const auto &[name, login] : logins_) {
    all.push_back({name, login.dtm_role});
  }
  return all;
}

bool MemoryStore::admits(const std::string &user, const std::string &password) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = logins_.find(user);
  return found != logins_.end() && found->second.password == password;
}

bool MemoryStore::has_dtm_role(const std::string &user) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = logins_.find(user);
  return found != logins_.end() && found->second.dtm_role;
}

std::optional<int64_t> MemoryStore::setting(const std::string &name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = settings_.find(name);
  return found == settings_.end() ? std::nullopt : std::optional(found->second);
}

void MemoryStore::set_setting(const std::string &name, std::optional<int64_t> value) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (value) {
    settings_[name] = *value;
  } else {
    settings_.erase(name);
  }
}

std::shared_ptr<Work> MemoryStore::make_work(const std::string &) {
  return std::make_shared<NoWork>(*this);
}

std::optional<int32_t> MemoryStore::branch_state(const std::string &name) const {
  const std::vector<BranchRow> rows = lister_();
  const auto found = std::find_if(rows.begin(), rows.end(), [&](const BranchRow &row) { return row.name == name; });
  return found == rows.end() ? std::nullopt : std::optional(found->state);
}

SqlOutcome MemoryStore::run(const std::string &sql, bool, SqlCounts &, const std::atomic<bool> &) {
  const std::string query = normalised(sql);
  if (query == readiness_query) {
    return integer_answer("value", setting(dtm_setting));
  }
  if (query.starts_with(state_query) && query.size() > state_query.size() && query.ends_with('"')) {
    return integer_answer("state",
                          branch_state(query.substr(state_query.size(), query.size() - state_query.size() - 1)));
  }
  return sql_failure(message_bad_query, "This server only knows queries on its configuration and transaction tables.");
}

}  // namespace zdb
