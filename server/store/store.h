// What lies below a server: its logins, its configuration, its data, and the work that branches do on the
// data. One store keeps everything in memory (memory_store.h), another in a folder, durably (disk/disk_store.h).
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "interface/session.h"

namespace zdb {

using Clock = std::chrono::system_clock;

// The store could not do what was asked; the text goes to the client. Whatever was promised before still holds.
class StoreError : public std::runtime_error {
 public:
  StoreError(int32_t code, const std::string &text) : std::runtime_error(text), number(code) {}
  int32_t number;
};

// What SQL's last_insert_rowid(), changes() and total_changes() tell a session; statements go on from it.
struct SqlCounts {
  int64_t last_rowid = 0;
  int64_t changes = 0;
  int64_t total_changes = 0;
};

// What became of a language command: results up to the statement that failed, if one did.
struct SqlOutcome {
  std::vector<Message> messages;
  std::vector<Result> results;
  bool failed = false;
  bool work_lost = false;  // the failure undid all that the branch had done
};

// The work of one branch. It is used by one thread at a time, except for interrupt(). Destroying it undoes what is
// neither prepared nor committed, and leaves what is prepared for the next start of the store.
class Work {
 public:
  Work() = default;
  Work(const Work &) = delete;
  Work &operator=(const Work &) = delete;
  virtual ~Work() = default;

  virtual SqlOutcome run(const std::string &sql, SqlCounts &counts) = 0;

  // When one of these returns, its effect survives a crash. When one throws StoreError, nothing has changed, but that a
  // failed prepare may have lost the work: then all but roll_back throw from now on.
  virtual void prepare() = 0;
  virtual void commit() = 0;
  virtual void roll_back() = 0;
  virtual void settle(bool commit) = 0;  // of prepared work: a heuristic outcome, which is kept until it is forgotten
  virtual void forget() = 0;

  // Makes a run() that is under way on another thread fail soon.
  virtual void interrupt() = 0;
  // Whether it keeps others from changing the data. May be asked on any thread.
  virtual bool locks_data() const { return false; }
};

// A branch as the transaction table shows it.
struct BranchRow {
  std::string name;
  int32_t state = 0;
  Clock::time_point since;  // when it entered the state
  bool held = false;        // a session holds it
  bool locks_data = false;  // others cannot change the data
};

// A branch that was there when the store was opened: prepared, or with a heuristic outcome.
struct KeptBranch {
  BranchRow row;
  std::shared_ptr<Work> work;
};

struct User {
  std::string name;
  bool dtm_role = false;
};

// All functions may be called from any thread.
class Store {
 public:
  using BranchLister = std::function<std::vector<BranchRow>()>;

  Store() = default;
  Store(const Store &) = delete;
  Store &operator=(const Store &) = delete;
  virtual ~Store() = default;

  // Whom the transaction table's queries ask; set once, before the first request.
  virtual void list_branches_by(BranchLister lister) = 0;
  // In the order of their preparation. To be called once, before the first login.
  virtual std::vector<KeptBranch> take_kept_branches() = 0;

  virtual void add_user(const std::string &user, const std::string &password, bool dtm_role) = 0;
  virtual bool drop_user(const std::string &user) = 0;
  virtual std::vector<User> users() = 0;
  virtual bool admits(const std::string &user, const std::string &password) = 0;
  // Whether a refused login waits for its answer, longer each time, so that passwords are not found by trying.
  virtual bool slows_guessing() const { return false; }
  virtual bool has_dtm_role(const std::string &user) = 0;

  // A row of the configuration table; none when it is missing.
  virtual std::optional<int64_t> setting(const std::string &name) = 0;
  virtual void set_setting(const std::string &name, std::optional<int64_t> value) = 0;

  virtual std::shared_ptr<Work> make_work(const std::string &branch) = 0;
  // Whether anybody, a branch or a statement outside of branches, keeps others from changing the data.
  virtual bool data_are_locked() { return false; }
  // Outside any branch every statement commits by itself. Of a client whose branch was rolled back without its doing
  // only the catalog's queries are taken: it would take the rest for work in the branch. Fails soon once the caller has
  // gone, which may happen on another thread.
  virtual SqlOutcome run(const std::string &sql, bool branch_lost, SqlCounts &counts,
                         const std::atomic<bool> &gone) = 0;
  // Some callers have gone: they are not to wait any longer.
  virtual void wake() = 0;
  // The server stops: run() fails soon, also where it is under way.
  virtual void stop() = 0;
};

// Rows of the configuration table that a server looks at.
inline constexpr const char *dtm_setting = "enable DTM";
inline constexpr const char *lock_timeout_setting = "lock timeout";            // milliseconds
inline constexpr const char *statement_timeout_setting = "statement timeout";  // milliseconds; 0: none
inline constexpr const char *orphan_age_setting = "orphan age";                // seconds; 0: never

// Numbers of the server's messages.
enum ServerMessage : int32_t {
  message_no_server = 3000,
  message_login_refused = 3001,
  message_no_failover = 3002,
  message_shut_down = 3003,
  message_bad_query = 3101,
  message_no_procedure = 3102,
  message_bad_query_type = 3103,
  message_no_object = 3104,
  message_not_allowed = 3105,
  message_lock_timeout = 3106,
  message_interrupted = 3107,
  message_data_changed = 3108,
  message_result_too_large = 3109,
  message_bad_command = 3110,
  message_branch_lost = 3111,
  message_over_limit = 3112,
  message_no_role = 3201,
  message_dtm_off = 3202,
  message_storage = 3203
};

inline constexpr int32_t error_severity = 16;
inline constexpr int32_t denied_severity = 14;

// A command's outcome that is one error message.
inline SqlOutcome sql_failure(int32_t number, std::string text) {
  SqlOutcome outcome;
  outcome.messages.push_back({number, error_severity, std::move(text)});
  outcome.failed = true;
  return outcome;
}

}  // namespace zdb
