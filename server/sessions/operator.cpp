// A table of commands, each with its number of arguments and what it does.
#include "sessions/operator.h"
#include "dtm/dtm_state_names.h"

#include <algorithm>
#include <charconv>
#include <functional>

namespace zdb {
namespace {

using Arguments = std::vector<std::string>;

constexpr int64_t number_max = 1'000'000'000;

Result table(std::vector<Column> columns) {
  return {ResultKind::rows, std::move(columns), {}};
}

Column text_column(const char *name, int32_t width) {
  return {name, ColumnType::text, width};
}

Column number_column(const char *name) {
  return {name, ColumnType::bigint, 8};
}

// Thrown by a command; the text is the message.
struct Refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string state_name(int32_t state) {
  const char *name = name_of_dtm_state(state);
  return name != nullptr ? name : std::to_string(state);
}

std::string yes_or_no(bool yes) {
  return yes ? "yes" : "no";
}

int64_t number_of(const std::string &text) {
  int64_t number = 0;
  const char *end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || number < 0 || number > number_max) {
    throw Refused("'" + text + "' is no number from 0 to " + std::to_string(number_max) + ".");
  }
  return number;
}

void say(Reply &reply, std::string text) {
  reply.messages.push_back({0, 0, std::move(text)});
}

// ---- The commands ---------------------------------------------------------------------------------------------------

void list_branches(Server &server, const Arguments &, Reply &reply) {
  constexpr int32_t name_width = 255;
  Result result = table({text_column("branch", name_width), text_column("state", 32), number_column("seconds"),
                         text_column("held", 4), text_column("lock", 4)});
  const bool locked = server.store().data_are_locked();
  bool by_branch = false;
  for (const BranchRow &row : server.branches()) {
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - row.since);
    result.rows.push_back({row.name, state_name(row.state), static_cast<int64_t>(age.count()), yes_or_no(row.held),
                           yes_or_no(row.locks_data)});
    by_branch = by_branch || row.locks_data;
  }
  reply.results.push_back(std::move(result));
  if (locked && !by_branch) {
    say(reply, "A statement outside branches has the lock of the data.");
  }
}

[[noreturn]] void refuse_unknown(const std::string &name) {
  throw Refused("There is no branch '" + name + "'. The command list shows the branches.");
}

[[noreturn]] void refuse_settled(const std::string &name, int32_t state) {
  throw Refused("Branch '" + name + "' is settled already: " + state_name(state) +
                ". It goes when its transaction manager, or xadtm forget, forgets it.");
}

constexpr const char *stays_until_forgotten = ". It stays in the list until its transaction manager forgets it.";

void commit_branch(Server &server, const Arguments &arguments, Reply &reply) {
  const std::string &name = arguments[0];
  const int32_t state = server.branch_state(name);
  if (server.force(name, true)) {
    say(reply, "Branch '" + name + "' is heuristically committed" + stays_until_forgotten);
  } else if (state == DTM_STATE_UNKNOWN) {
    refuse_unknown(name);
  } else if (state == DTM_STATE_HEUR_COMMITTED || state == DTM_STATE_HEUR_ROLLEDBACK) {
    refuse_settled(name, state);
  } else {
    throw Refused("Branch '" + name + "' is " + state_name(state) +
                  ", not prepared, and cannot be committed. The command rollback ends it.");
  }
}

void roll_branch_back(Server &server, const Arguments &arguments, Reply &reply) {
  const std::string &name = arguments[0];
  switch (server.roll_back_by_force(name)) {
    case Server::Ending::unknown:
      refuse_unknown(name);
    case Server::Ending::settled_before:
      refuse_settled(name, server.branch_state(name));
    case Server::Ending::heuristic:
      say(reply, "Branch '" + name + "' is heuristically rolled back" + stays_until_forgotten);
      break;
    case Server::Ending::undone:
      say(reply, "Branch '" + name +
                     "' was not prepared, and its work is undone. It stays in the list as abort-only, so that its "
                     "transaction manager learns of it; the same command again removes it.");
      break;
    case Server::Ending::forgotten:
      say(reply, "Branch '" + name + "' was rolled back before; it is removed from the list.");
      break;
  }
}

void list_users(Server &server, const Arguments &, Reply &reply) {
  Result result = table({text_column("user", 64), text_column("dtm_tm_role", 4)});
  for (const User &user : server.store().users()) {
    result.rows.push_back({user.name, yes_or_no(user.dtm_role)});
  }
  reply.results.push_back(std::move(result));
}

void add_user(Server &server, const Arguments &arguments, Reply &reply) {
  const std::string &role = arguments[2];
  if (arguments[0].empty() || arguments[1].empty() || (role != "dtm" && role != "plain")) {
    throw Refused("Give a user's name, a password, and dtm or plain for its role.");
  }
  server.store().add_user(arguments[0], arguments[1], role == "dtm");
  say(reply, "User '" + arguments[0] + "' can log in" + (role == "dtm" ? " and use DTM." : ", but not use DTM."));
}

void drop_user(Server &server, const Arguments &arguments, Reply &reply) {
  if (!server.store().drop_user(arguments[0])) {
    throw Refused("There is no user '" + arguments[0] + "'. The command users shows them.");
  }
  const int32_t broken = server.break_sessions(arguments[0].c_str());
  say(reply, "User '" + arguments[0] + "' is gone; sessions ended: " + std::to_string(broken) + ".");
}

void switch_dtm(Server &server, const Arguments &arguments, Reply &reply) {
  if (arguments[0] != "on" && arguments[0] != "off") {
    throw Refused("Say dtm on or dtm off.");
  }
  server.store().set_setting(dtm_setting, arguments[0] == "on" ? 1 : 0);
  say(reply, "Distributed transactions are switched " + arguments[0] + ".");
}

void set_lock_timeout(Server &server, const Arguments &arguments, Reply &reply) {
  server.store().set_setting(lock_timeout_setting, number_of(arguments[0]));
  say(reply, "A statement waits " + arguments[0] + " milliseconds for the data.");
}

void set_statement_timeout(Server &server, const Arguments &arguments, Reply &reply) {
  server.store().set_setting(statement_timeout_setting, number_of(arguments[0]));
  say(reply, "A statement may run for " + arguments[0] + " milliseconds; 0 means for ever.");
}

void set_orphan_age(Server &server, const Arguments &arguments, Reply &reply) {
  server.store().set_setting(orphan_age_setting, number_of(arguments[0]));
  say(reply, "Branches that were ended and left alone are rolled back after " + arguments[0] +
                 " seconds; after 0 means never.");
}

struct Command {
  const char *name;
  std::size_t arguments;
  const char *form;
  void (*action)(Server &, const Arguments &, Reply &);
};

constexpr Command commands[] = {
    {"list", 0, "list                     the branches with their states and ages", list_branches},
    {"commit", 1, "commit BRANCH            commits a prepared branch past its transaction manager", commit_branch},
    {"rollback", 1, "rollback BRANCH          rolls a branch back past its transaction manager, prepared or not",
     roll_branch_back},
    {"users", 0, "users                    who can log in", list_users},
    {"add-user", 3, "add-user USER dtm|plain  adds or replaces a login; the password is read from standard input",
     add_user},
    {"drop-user", 1, "drop-user USER           removes a login and ends its sessions", drop_user},
    {"dtm", 1, "dtm on|off               switches distributed transactions on or off", switch_dtm},
    {"lock-timeout", 1, "lock-timeout MS          how long a statement waits for the data", set_lock_timeout},
    {"statement-timeout", 1, "statement-timeout MS     how long a statement may run; 0: for ever",
     set_statement_timeout},
    {"orphan-age", 1, "orphan-age SECONDS       when branches that were left alone are rolled back; 0: never",
     set_orphan_age},
};

void fail(Reply &reply, int32_t number, std::string text) {
  reply.messages.push_back({number, error_severity, std::move(text)});
  reply.results.clear();
  reply.results.push_back({ResultKind::failed, {}, {}});
}

Arguments arguments_of(const Request &request) {
  Arguments arguments;
  for (const Parameter &parameter : request.parameters) {
    const auto *text = std::get_if<std::string>(&parameter.value);
    arguments.push_back(text == nullptr ? std::string() : *text);
  }
  return arguments;
}

class OperatorSession final : public Session {
 public:
  explicit OperatorSession(std::shared_ptr<Server> server) : server_(std::move(server)) {}
  Reply execute(const Request &request) override { return administer(*server_, request); }
  bool alive() const override { return true; }

 private:
  std::shared_ptr<Server> server_;
};

}  // namespace

std::string operator_commands() {
  std::string text;
  for (const Command &command : commands) {
    text += std::string("  ") + command.form + '\n';
  }
  return text;
}

Reply administer(Server &server, const Request &request) {
  Reply reply;
  const Arguments arguments = arguments_of(request);
  const auto *command = std::find_if(std::begin(commands), std::end(commands), [&](const Command &candidate) {
    return request.kind == RequestKind::administer && request.text == candidate.name;
  });
  if (command == std::end(commands)) {
    fail(reply, message_bad_command, "There is no command '" + request.text + "'. Known are:\n" + operator_commands());
  } else if (arguments.size() != command->arguments) {
    fail(reply, message_bad_command, std::string("The command needs other arguments:\n  ") + command->form);
  } else {
    try {
      command->action(server, arguments, reply);
      reply.results.push_back({ResultKind::succeeded, {}, {}});
    } catch (const StoreError &error) {
      fail(reply, error.number, error.what());
    } catch (const std::runtime_error &refused) {
      fail(reply, message_bad_command, refused.what());
    }
  }
  reply.results.push_back({ResultKind::done, {}, {}});
  return reply;
}

std::unique_ptr<Session> operator_session(std::shared_ptr<Server> server) {
  return std::make_unique<OperatorSession>(std::move(server));
}

}  // namespace zdb
