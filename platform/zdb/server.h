/*
 * server.h - one embedded server: its logins, settings, sessions and branches, and how it answers requests. One mutex
 * guards all of it; every public function takes it. Servers are shared between the directory (directory.h) and their
 * sessions, so a session outlives the removal of its server, broken off.
 */
#ifndef ZDB_SERVER_H
#define ZDB_SERVER_H

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "branch_table.h"
#include "script_book.h"
#include "session.h"
#include "zdb_control.h"

namespace zdb {

class Server {
 public:
  void add_user(const std::string &user, const std::string &password, bool dtm_role);
  void set_dtm(int32_t value);
  void refuse_failover(bool on);
  bool add_script(const ZDB_SCRIPT &script);
  void clear_scripts();

  int32_t branch_state(const std::string &name) const;
  int32_t branch_count() const;
  bool force(const std::string &name, bool commit);
  bool plant_prepared(const std::string &name);

  /* Null: the sessions of every user. Returns how many broke off. */
  int32_t break_sessions(const char *user);
  int32_t session_count() const;
  /* The server goes away: nobody is served any more. */
  void shut_down();

  /* The new session's number, none when the login is refused. */
  std::optional<int> log_in(const Login &login, Message &refusal);
  void log_out(int session);
  bool alive(int session) const;
  Reply execute(int session, const Request &request);

 private:
  struct User {
    std::string password;
    bool dtm_role;
  };
  struct Client {
    std::string user;
    std::set<std::string> cursors; /* open or closed but allocated */
    std::set<std::string> statements;
  };
  /* A reply before the scripts and the order of results have been applied. */
  struct Answer {
    std::vector<Message> messages;
    std::vector<Result> rows;
    std::vector<int32_t> statuses;
    std::vector<std::pair<std::string, int32_t>> outputs;
    bool failed = false;
  };

  bool may_use_dtm(const Client &client, Message &refusal) const;
  void break_off(int session);
  Answer answer(int session, Client &client, const Request &request);
  Answer answer_query(const std::string &query) const;
  Answer answer_dtm(int session, const Client &client, const Request &request);
  Answer answer_scan(const Client &client, const Request &request) const;
  static Answer answer_object(Client &client, const Request &request);
  static Answer failure(int32_t number, std::string text);
  static void alter(Answer &answer, const Changes &changes);
  static Reply compose(RequestKind kind, Answer answer, const Changes &changes);

  mutable std::mutex mutex_;
  bool running_ = true;
  int32_t dtm_ = 1;
  bool refuse_failover_ = false;
  int last_session_ = 0;
  std::map<std::string, User> users_;
  std::map<int, Client> clients_;
  BranchTable branches_;
  ScriptBook scripts_;
};

}  // namespace zdb

#endif /* ZDB_SERVER_H */
