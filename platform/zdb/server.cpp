/*
 * server.cpp - logins and sessions of an embedded server, and the answers to requests: DTM procedures, the recovery
 * scan, catalog queries, cursors and statements.
 *
 * An answer is worked out first and altered by the scripts that are due; only then is it laid out as results in the
 * order in which the server sends them: rows, status, output parameters, end marks.
 */
#include "server.h"

#include <charconv>
#include <sstream>
#include <string_view>

namespace zdb {
namespace {

constexpr int32_t error_severity = 16;
constexpr int32_t denied_severity = 14;

enum ServerMessage : int32_t {
  message_login_refused = 3001,
  message_no_failover = 3002,
  message_shut_down = 3003,
  message_bad_query = 3101,
  message_no_procedure = 3102,
  message_bad_query_type = 3103,
  message_no_object = 3104,
  message_no_role = 3201,
  message_dtm_off = 3202
};

constexpr std::string_view scan_procedure = "sp_transactions";
constexpr int32_t name_max = 255;

Result integer_result(ResultKind kind, std::string column, int32_t value) {
  return {kind, {{std::move(column), ColumnType::integer, 4}}, {{Value(int64_t{value})}}};
}

Result empty_rows(std::string column, ColumnType type, int32_t max_length) {
  return {ResultKind::rows, {{std::move(column), type, max_length}}, {}};
}

/* The query with every run of white space as one blank and none at the ends. */
std::string normalised(const std::string &query) {
  std::istringstream words(query);
  std::string text;
  std::string word;
  while (words >> word) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

const Value *find_parameter(const Request &request, std::string_view name) {
  for (const Parameter &parameter : request.parameters) {
    if (parameter.name == name) {
      return &parameter.value;
    }
  }
  return nullptr;
}

int32_t integer_parameter(const Request &request, std::string_view name, int32_t missing) {
  const Value *value = find_parameter(request, name);
  const int64_t *integer = value == nullptr ? nullptr : std::get_if<int64_t>(value);
  return integer == nullptr ? missing : static_cast<int32_t>(*integer);
}

std::string text_parameter(const Request &request, std::string_view name) {
  const Value *value = find_parameter(request, name);
  const std::string *text = value == nullptr ? nullptr : std::get_if<std::string>(value);
  return text == nullptr ? std::string() : *text;
}

/* The name by which scripts match a request. */
std::string script_name(const Request &request) {
  switch (request.kind) {
    case RequestKind::language:
      return "language";
    case RequestKind::procedure:
      return request.text;
    case RequestKind::cursor_open:
    case RequestKind::cursor_close:
    case RequestKind::cursor_drop:
      return "cursor";
    case RequestKind::statement_prepare:
    case RequestKind::statement_drop:
      return "statement";
    case RequestKind::administer:
      return "administer";
  }
  return {};
}

/* A scripted row fitted into the result's only column. */
Value scripted_value(const Column &column, const std::string &text) {
  if (column.type == ColumnType::text) {
    return text.substr(0, static_cast<std::size_t>(column.max_length));
  }
  int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

void Server::add_user(const std::string &user, const std::string &password, bool dtm_role) {
  const std::lock_guard<std::mutex> lock(mutex_);
  users_[user] = {password, dtm_role};
}

void Server::set_dtm(int32_t value) {
  const std::lock_guard<std::mutex> lock(mutex_);
  dtm_ = value;
}

void Server::refuse_failover(bool on) {
  const std::lock_guard<std::mutex> lock(mutex_);
  refuse_failover_ = on;
}

bool Server::add_script(const ZDB_SCRIPT &script) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return scripts_.add(script);
}

void Server::clear_scripts() {
  const std::lock_guard<std::mutex> lock(mutex_);
  scripts_.clear();
}

int32_t Server::branch_state(const std::string &name) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return branches_.state(name);
}

int32_t Server::branch_count() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int32_t>(branches_.count());
}

bool Server::force(const std::string &name, bool commit) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return branches_.force(name, commit);
}

bool Server::plant_prepared(const std::string &name) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return branches_.plant_prepared(name);
}

/* Caller holds the mutex. */
void Server::break_off(int session) {
  branches_.abandon(session);
  clients_.erase(session);
}

int32_t Server::break_sessions(const char *user) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<int> broken;
  for (const auto &[session, client] : clients_) {
    if (user == nullptr || client.user == user) {
      broken.push_back(session);
    }
  }
  for (const int session : broken) {
    break_off(session);
  }
  return static_cast<int32_t>(broken.size());
}

int32_t Server::session_count() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int32_t>(clients_.size());
}

void Server::shut_down() {
  const std::lock_guard<std::mutex> lock(mutex_);
  running_ = false;
  clients_.clear();
  branches_.clear();
}

std::optional<int> Server::log_in(const Login &login, Message &refusal) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!running_) {
    refusal = {message_shut_down, error_severity, "The server is shutting down. Connect again later."};
    return std::nullopt;
  }
  if (login.failover && refuse_failover_) {
    refusal = {message_no_failover, denied_severity,
               "This server has no failover partner. Connect without asking for failover."};
    return std::nullopt;
  }
  const auto user = users_.find(login.user);
  if (user == users_.end() || user->second.password != login.password) {
    refusal = {message_login_refused, denied_severity,
               "Login of user '" + login.user + "' refused. Check the user name and the password."};
    return std::nullopt;
  }
  clients_[++last_session_].user = login.user;
  return last_session_;
}

void Server::log_out(int session) {
  const std::lock_guard<std::mutex> lock(mutex_);
  break_off(session);
}

bool Server::alive(int session) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return clients_.contains(session);
}

Reply Server::execute(int session, const Request &request) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Reply broken;
  broken.broken_off = true;
  const auto client = clients_.find(session);
  if (client == clients_.end()) {
    return broken;
  }
  const Changes changes = scripts_.take(script_name(request));
  if (changes.drop_before) {
    break_off(session);
    return broken;
  }
  Answer work;
  if (changes.fail) {
    work.failed = true;
  } else if (changes.status) {
    work.statuses.push_back(*changes.status);
  } else {
    work = answer(session, client->second, request);
  }
  if (changes.drop_after) {
    break_off(session);
    return broken;
  }
  alter(work, changes);
  return compose(request.kind, std::move(work), changes);
}

Server::Answer Server::answer(int session, Client &client, const Request &request) {
  switch (request.kind) {
    case RequestKind::language:
      return answer_query(normalised(request.text));
    case RequestKind::procedure:
      if (is_dtm_procedure(request.text)) {
        return answer_dtm(session, client, request);
      }
      if (request.text == scan_procedure) {
        return answer_scan(client, request);
      }
      return failure(message_no_procedure, "Procedure '" + request.text + "' does not exist. Check its name.");
    default:
      return answer_object(client, request);
  }
}

Server::Answer Server::answer_query(const std::string &query) const {
  constexpr std::string_view readiness = "select value from master.dbo.sysconfigures where name = \"enable DTM\"";
  constexpr std::string_view branch_state = "select state from master..systransactions where xactname = \"";
  Answer answer;
  if (query == readiness) {
    Result result = empty_rows("value", ColumnType::integer, 4);
    if (dtm_ != ZDB_NO_CONFIG_ROW) {
      result.rows.push_back({Value(int64_t{dtm_})});
    }
    answer.rows.push_back(std::move(result));
    return answer;
  }
  if (query.starts_with(branch_state) && query.size() > branch_state.size() && query.ends_with('"')) {
    const std::string name = query.substr(branch_state.size(), query.size() - branch_state.size() - 1);
    Result result = empty_rows("state", ColumnType::integer, 4);
    if (const int32_t state = branches_.state(name); state != ZDB_UNKNOWN) {
      result.rows.push_back({Value(int64_t{state})});
    }
    answer.rows.push_back(std::move(result));
    return answer;
  }
  return failure(message_bad_query, "This server only knows queries on its configuration and transaction tables.");
}

bool Server::may_use_dtm(const Client &client, Message &refusal) const {
  if (dtm_ != 1) {
    refusal = {message_dtm_off, error_severity,
               "Distributed transaction management is switched off. Set \"enable DTM\" to 1."};
    return false;
  }
  const auto user = users_.find(client.user);
  if (user == users_.end() || !user->second.dtm_role) {
    refusal = {message_no_role, denied_severity,
               "User '" + client.user + "' lacks the role for DTM. Grant dtm_tm_role to it."};
    return false;
  }
  return true;
}

Server::Answer Server::answer_dtm(int session, const Client &client, const Request &request) {
  Answer answer;
  Message refusal;
  if (!may_use_dtm(client, refusal)) {
    answer.outputs.emplace_back("@$rpcerror", refusal.number);
    answer.messages.push_back(std::move(refusal));
    return answer;
  }
  answer.statuses.push_back(branches_.apply(request.text, text_parameter(request, "@name"),
                                            integer_parameter(request, "@flags", -1),
                                            integer_parameter(request, "@status", -1), session));
  return answer;
}

Server::Answer Server::answer_scan(const Client &client, const Request &request) const {
  Message refusal;
  if (!may_use_dtm(client, refusal)) {
    return failure(refusal.number, refusal.text);
  }
  if (text_parameter(request, "@query_type") != "xa_recover") {
    return failure(message_bad_query_type, "sp_transactions only answers the query type \"xa_recover\".");
  }
  Answer answer;
  Result result = empty_rows("xactname", ColumnType::text, name_max);
  for (std::string &name : branches_.in_doubt()) {
    result.rows.push_back({Value(std::move(name))});
  }
  answer.rows.push_back(std::move(result));
  answer.statuses.push_back(0);
  return answer;
}

Server::Answer Server::answer_object(Client &client, const Request &request) {
  const bool is_statement =
      request.kind == RequestKind::statement_prepare || request.kind == RequestKind::statement_drop;
  std::set<std::string> &objects = is_statement ? client.statements : client.cursors;
  if (request.kind == RequestKind::cursor_open || request.kind == RequestKind::statement_prepare) {
    objects.insert(request.text);
    return {};
  }
  if (!objects.contains(request.text)) {
    return failure(message_no_object, "There is no cursor or statement '" + request.text + "' on this session.");
  }
  if (request.kind != RequestKind::cursor_close) {
    objects.erase(request.text);
  }
  return {};
}

Server::Answer Server::failure(int32_t number, std::string text) {
  Answer answer;
  answer.messages.push_back({number, error_severity, std::move(text)});
  answer.failed = true;
  return answer;
}

void Server::alter(Answer &answer, const Changes &changes) {
  if (changes.scan_status) {
    answer.statuses = {*changes.scan_status};
  }
  if (changes.second_status) {
    answer.statuses.push_back(*changes.second_status);
  }
  if (changes.no_status) {
    answer.statuses.clear();
  }
  if (changes.rpcerror) {
    answer.outputs.emplace_back("@$rpcerror", *changes.rpcerror);
  }
  if (changes.xactstatus) {
    answer.outputs.emplace_back("@xactstatus", *changes.xactstatus);
  }
  if (!answer.rows.empty()) {
    Result &result = answer.rows.front();
    std::vector<std::vector<Value>> extra;
    for (const std::string &text : changes.extra_rows) {
      extra.push_back({scripted_value(result.columns.front(), text)});
    }
    result.rows.insert(result.rows.begin(), extra.begin(), extra.end());
  }
  if (changes.row) {
    answer.rows.insert(answer.rows.begin(), integer_result(ResultKind::rows, "scripted", *changes.row));
  }
}

Reply Server::compose(RequestKind kind, Answer answer, const Changes &changes) {
  Reply reply;
  reply.messages = std::move(answer.messages);
  reply.fetch_codes = changes.fetch_codes;
  reply.results = std::move(answer.rows);
  for (const int32_t status : answer.statuses) {
    reply.results.push_back(integer_result(ResultKind::status, "", status));
  }
  for (auto &[name, value] : answer.outputs) {
    reply.results.push_back(integer_result(ResultKind::parameter, name, value));
  }
  if (answer.failed) {
    reply.results.push_back({ResultKind::failed, {}, {}});
  } else if (kind != RequestKind::procedure) {
    reply.results.push_back({ResultKind::succeeded, {}, {}});
  }
  reply.results.push_back({ResultKind::done, {}, {}});
  return reply;
}

}  // namespace zdb
