// One server: its sessions and branches, and how it answers requests, over a store that keeps its data.
//
// One mutex guards sessions, branches and scripts; every public function takes it. It is given up while a thread is at
// a branch's work or runs SQL: the branch is then marked busy, and whoever wants to change it waits. Servers are shared
// between the directory (directory.h) and their sessions, so a session outlives the removal of its server, broken off.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "interface/session.h"
#include "interface/zdb_control.h"
#include "rules/branch_table.h"
#include "sessions/script_book.h"
#include "store/store.h"

namespace zdb {

class Server {
 public:
  // Takes the branches over that the store has kept.
  explicit Server(std::unique_ptr<Store> store);

  // Logins and configuration; each may be called at any time.
  Store &store() { return *store_; }
  void refuse_failover(bool on);
  bool add_script(const ZDB_SCRIPT &script);
  void clear_scripts();

  int32_t branch_state(const std::string &name) const;
  int32_t branch_count() const;
  // Branches that requests have committed since the start; an operator's commits are not among them.
  int32_t commit_count() const;
  std::vector<BranchRow> branches() const;
  // Gives a prepared branch a heuristic outcome; false unless it is prepared. Throws StoreError.
  bool force(const std::string &name, bool commit);
  // What an operator's rollback came to.
  enum class Ending : uint8_t { unknown, settled_before, heuristic, undone, forgotten };
  // Ends a branch in whatever state: one that is prepared gets a heuristic outcome; the work of one that is not is
  // undone, and it becomes abort-only; one that is abort-only is forgotten. Throws StoreError.
  Ending roll_back_by_force(const std::string &name);
  bool plant_prepared(const std::string &name);
  // Undoes the work of branches that were ended before the time and left alone since; they become abort-only.
  void undo_orphans(Clock::time_point ended_before);
  // Forgets branches that became abort-only before the time, but for those that a living session still has at hand.
  void forget_abort_only(Clock::time_point since_before);

  // Null: the sessions of every user. Returns how many broke off.
  int32_t break_sessions(const char *user);
  int32_t session_count() const;
  // The server goes away: nobody is served any more.
  void shut_down();

  // The new session's number, none when the login is refused.
  std::optional<int> log_in(const Login &login, Message &refusal);
  void log_out(int session);
  bool alive(int session) const;
  // Lets the session's request fail soon, since nobody waits for its answer any more.
  void abandon(int session) noexcept;
  Reply execute(int session, const Request &request);

 private:
  using Lock = std::unique_lock<std::mutex>;
  struct Relock;
  struct Client {
    std::string user;
    std::vector<std::string> attached;  // branches by their names, the last one last; they may be lost meanwhile
    std::set<std::string> cursors;      // open or closed but allocated
    std::set<std::string> statements;
    SqlCounts counts{};
    std::atomic<bool> gone{false};  // its SQL is not to go on
  };
  // A reply before the scripts and the order of results have been applied.
  struct Answer {
    std::vector<Message> messages;
    std::vector<Result> results;  // rows; of a language command also the marks that end its statements
    std::vector<int32_t> statuses;
    std::vector<std::pair<std::string, int32_t>> outputs;
    bool failed = false;
  };

  template <typename Action>
  auto with_work(Lock &lock, const std::string &branch, Action action);
  // Null when the branch is not there, or not any more once nobody is at it.
  Branch *wait_until_idle(Lock &lock, const std::string &branch, bool interrupt);
  bool apply_to_work(Lock &lock, const std::string &branch, Effect effect, int session);
  int32_t carry_out(Lock &lock, const DtmRequest &request, int session);
  void undo(Lock &lock, const std::string &branch);
  void settle(Lock &lock, const std::string &branch, bool commit);
  bool is_at_hand(const std::string &branch) const;
  void break_off(Lock &lock, int session);
  std::chrono::milliseconds penalty_for(const std::string &user);

  bool may_use_dtm(const Client &client, Message &refusal) const;
  Answer answer(Lock &lock, int session, Client &client, const Request &request);
  Answer answer_sql(Lock &lock, int session, Client &client, const std::string &sql);
  SqlOutcome run_sql(Lock &lock, int session, Client &client, const std::string &sql);
  void note_attachment(Client &client, DtmRequest &done, int session);
  Answer answer_dtm(Lock &lock, int session, Client &client, const Request &request);
  Answer answer_scan(const Client &client, const Request &request) const;
  static Answer answer_object(Client &client, const Request &request);
  static Answer failure(int32_t number, std::string text);
  static void alter(Answer &answer, const Changes &changes);
  static Reply compose(RequestKind kind, Answer answer, const Changes &changes);

  const std::unique_ptr<Store> store_;  // first: everything below may use it to its end
  mutable std::mutex mutex_;
  std::condition_variable idle_;  // a branch is not busy any more
  bool running_ = true;
  bool refuse_failover_ = false;
  int last_session_ = 0;
  int32_t commits_ = 0;
  std::map<int, std::shared_ptr<Client>> clients_;
  struct Failures {
    int count = 0;
    std::chrono::steady_clock::time_point last{};
  };
  std::array<Failures, 1024> failures_;  // logins refused, by the hash of the user's name
  BranchTable branches_;
  ScriptBook scripts_;
};

}  // namespace zdb
