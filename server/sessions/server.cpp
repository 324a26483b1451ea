// Logins and sessions of a server, and the answers to requests: DTM procedures, the recovery scan, SQL,
// cursors and statements.
//
// An answer is worked out first and altered by the scripts that are due; only then is it laid out as results in the
// order in which the server sends them: rows, status, output parameters, end marks.
#include "sessions/server.h"
#include "dtm/dtm_protocol.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace zdb {
namespace {

constexpr std::string_view scan_procedure = "sp_transactions";
constexpr std::string_view status_procedure = "$statusTrvDtmXact";
constexpr int32_t name_max = 255;
constexpr const char *too_long_name = "A name may have 255 bytes.";

// With the names' length this bounds what a session, and all of them together, can make the server remember.
constexpr std::size_t objects_max = 1000;  // cursors of a session, and as many statements
constexpr std::size_t branches_max = 10'000;

Result integer_result(ResultKind kind, std::string column, int32_t value) {
  return {kind, {{std::move(column), ColumnType::integer, 4}}, {{Value(int64_t{value})}}};
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

// The name by which scripts match a request.
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

// A scripted row fitted into the result's only column.
Value scripted_value(const Column &column, const std::string &text) {
  if (column.type == ColumnType::text) {
    return text.substr(0, static_cast<std::size_t>(column.max_length));
  }
  int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// What a request asks of the work of its branch.
void apply(Effect effect, Work &work) {
  switch (effect) {
    case Effect::prepare:
      work.prepare();
      break;
    case Effect::commit:
      work.commit();
      break;
    case Effect::roll_back:
      work.roll_back();
      break;
    case Effect::forget:
      work.forget();
      break;
    case Effect::none:
      break;
  }
}

bool has_user(Store &store, const std::string &name) {
  const std::vector<User> users = store.users();
  return std::any_of(users.begin(), users.end(), [&](const User &user) { return user.name == name; });
}

Reply broken_reply() {
  Reply reply;
  reply.broken_off = true;
  return reply;
}

}  // namespace

// Takes the lock again at its end.
struct Server::Relock {
  Lock &lock;
  ~Relock() { lock.lock(); }
};

// Calls the action on the branch's work without the lock, the branch being busy meanwhile.
template <typename Action>
auto Server::with_work(Lock &lock, const std::string &branch, Action action) {
  Branch &record = *branches_.find(branch);
  const std::shared_ptr<Work> work = record.work;
  record.busy = true;
  lock.unlock();
  struct Return {
    Server &server;
    Lock &lock;
    const std::string &branch;
    ~Return() {
      lock.lock();
      if (Branch *settled = server.branches_.find(branch)) {
        settled->busy = false;
      }
      server.idle_.notify_all();
    }
  } const back{*this, lock, branch};
  return action(*work);
}

Server::Server(std::unique_ptr<Store> store) : store_(std::move(store)) {
  store_->list_branches_by([this] { return branches(); });
  for (KeptBranch &kept : store_->take_kept_branches()) {
    // Every kept branch was prepared once; that gives it its place in the order of scans.
    branches_.change(kept.row.name, DTM_STATE_PREPARED, 0);
    Branch &branch = *branches_.find(kept.row.name);
    branch.state = kept.row.state;
    branch.since = kept.row.since;
    branch.work = std::move(kept.work);
  }
}

// ---- Setting up and steering ----------------------------------------------------------------------------------------

void Server::refuse_failover(bool on) {
  const Lock lock(mutex_);
  refuse_failover_ = on;
}

bool Server::add_script(const ZDB_SCRIPT &script) {
  const Lock lock(mutex_);
  return scripts_.add(script);
}

void Server::clear_scripts() {
  const Lock lock(mutex_);
  scripts_.clear();
}

int32_t Server::branch_state(const std::string &name) const {
  const Lock lock(mutex_);
  return branches_.state(name);
}

int32_t Server::branch_count() const {
  const Lock lock(mutex_);
  return static_cast<int32_t>(branches_.count());
}

int32_t Server::commit_count() const {
  const Lock lock(mutex_);
  return commits_;
}

std::vector<BranchRow> Server::branches() const {
  const Lock lock(mutex_);
  return branches_.rows();
}

bool Server::force(const std::string &name, bool commit) {
  Lock lock(mutex_);
  const Branch *branch = wait_until_idle(lock, name, false);
  if (branch == nullptr || branch->state != DTM_STATE_PREPARED) {
    return false;
  }
  settle(lock, name, commit);
  return true;
}

bool Server::plant_prepared(const std::string &name) {
  const std::shared_ptr<Work> work = store_->make_work(name);
  const Lock lock(mutex_);
  if (name.empty() || branches_.find(name) != nullptr) {
    return false;
  }
  work->prepare();
  branches_.change(name, DTM_STATE_PREPARED, 0).work = work;
  return true;
}

void Server::undo_orphans(Clock::time_point ended_before) {
  Lock lock(mutex_);
  for (const std::string &name : branches_.orphans(ended_before)) {
    const Branch *branch = branches_.find(name);
    if (branch != nullptr && !branch->busy && branch->state != DTM_STATE_ATTACHED && branch->since < ended_before) {
      undo(lock, name);
    }
  }
}

Server::Ending Server::roll_back_by_force(const std::string &name) {
  Lock lock(mutex_);
  const bool may_run_sql = branches_.state(name) == DTM_STATE_ATTACHED;
  const Branch *branch = wait_until_idle(lock, name, may_run_sql);
  switch (branch == nullptr ? DTM_STATE_UNKNOWN : branch->state) {
    case DTM_STATE_UNKNOWN:
      return Ending::unknown;
    case DTM_STATE_PREPARED:
      settle(lock, name, false);
      return Ending::heuristic;
    case DTM_STATE_HEUR_COMMITTED:
    case DTM_STATE_HEUR_ROLLEDBACK:
      return Ending::settled_before;
    case DTM_STATE_ABORTONLY:
      branches_.remove(name);
      return Ending::forgotten;
    default:
      undo(lock, name);
  }
  const int32_t left = branches_.state(name);
  if (left != DTM_STATE_UNKNOWN && left != DTM_STATE_ABORTONLY) {
    throw StoreError(message_storage, "The branch's work cannot be undone now. Look at the server's disk.");
  }
  return Ending::undone;
}

// Gives an idle prepared branch a heuristic outcome.
void Server::settle(Lock &lock, const std::string &branch, bool commit) {
  with_work(lock, branch, [&](Work &work) { work.settle(commit); });
  if (branches_.find(branch) != nullptr) {  // else the server shuts down
    branches_.change(branch, commit ? DTM_STATE_HEUR_COMMITTED : DTM_STATE_HEUR_ROLLEDBACK, 0);
  }
}

bool Server::is_at_hand(const std::string &branch) const {
  for (const auto &[session, client] : clients_) {
    for (const std::string &name : client->attached) {
      if (name == branch) {
        return true;
      }
    }
  }
  return false;
}

void Server::forget_abort_only(Clock::time_point since_before) {
  const Lock lock(mutex_);
  for (const std::string &name : branches_.abort_only(since_before)) {
    if (!is_at_hand(name)) {
      branches_.remove(name);
    }
  }
}

int32_t Server::break_sessions(const char *user) {
  Lock lock(mutex_);
  std::vector<int> broken;
  for (const auto &[session, client] : clients_) {
    if (user == nullptr || client->user == user) {
      broken.push_back(session);
    }
  }
  for (const int session : broken) {
    break_off(lock, session);
  }
  return static_cast<int32_t>(broken.size());
}

int32_t Server::session_count() const {
  const Lock lock(mutex_);
  return static_cast<int32_t>(clients_.size());
}

void Server::shut_down() {
  const Lock lock(mutex_);
  running_ = false;
  for (const auto &[session, client] : clients_) {
    client->gone = true;
  }
  clients_.clear();  // first: no statement that is stopped now answers
  store_->stop();
  branches_.interrupt_work();
  branches_.clear();
  idle_.notify_all();
}

// ---- Sessions -------------------------------------------------------------------------------------------------------

std::optional<int> Server::log_in(const Login &login, Message &refusal) {
  // Outside the lock: checking a password takes its time.
  const bool admitted = store_->admits(login.user, login.password);
  Lock lock(mutex_);
  if (!running_) {
    refusal = {message_shut_down, error_severity, "The server is shutting down. Connect again later."};
    return std::nullopt;
  }
  if (login.failover && refuse_failover_) {
    refusal = {message_no_failover, denied_severity,
               "This server has no failover partner. Connect without asking for failover."};
    return std::nullopt;
  }
  // The login may have been dropped meanwhile, and its sessions ended.
  if (!admitted || !has_user(*store_, login.user)) {
    if (store_->slows_guessing()) {
      idle_.wait_for(lock, penalty_for(login.user), [this] { return !running_; });
    }
    refusal = {message_login_refused, denied_severity,
               "Login of user '" + login.user + "' refused. Check the user name and the password."};
    return std::nullopt;
  }
  const auto client = std::make_shared<Client>();
  client->user = login.user;
  clients_[++last_session_] = client;
  return last_session_;
}

// Doubles with each failure, for users that exist and others alike: few names share a place.
std::chrono::milliseconds Server::penalty_for(const std::string &user) {
  constexpr std::chrono::milliseconds first{50};
  constexpr std::chrono::seconds forgotten_after{60};
  constexpr int doubled_max = 6;
  const auto now = std::chrono::steady_clock::now();
  Failures &failures = failures_[std::hash<std::string>()(user) % failures_.size()];
  failures.count = now - failures.last > forgotten_after ? 0 : std::min(failures.count + 1, doubled_max);
  failures.last = now;
  return first * (1 << failures.count);
}

void Server::log_out(int session) {
  Lock lock(mutex_);
  break_off(lock, session);
}

bool Server::alive(int session) const {
  const Lock lock(mutex_);
  return clients_.contains(session);
}

void Server::abandon(int session) noexcept {
  const Lock lock(mutex_);
  const auto found = clients_.find(session);
  if (found == clients_.end()) {
    return;
  }
  found->second->gone = true;
  store_->wake();
  for (const std::string &name : found->second->attached) {
    const Branch *branch = branches_.find(name);
    if (branch != nullptr && branch->busy && branch->state == DTM_STATE_ATTACHED && branch->holder == session) {
      branch->work->interrupt();
    }
  }
}

// The work of branches that it holds cannot be told apart from lost work.
void Server::break_off(Lock &lock, int session) {
  if (const auto found = clients_.find(session); found != clients_.end()) {
    found->second->gone = true;
    store_->wake();
    clients_.erase(found);
  }
  for (const std::string &name : branches_.held_by(session)) {
    const Branch *branch = wait_until_idle(lock, name, true);
    if (branch != nullptr && branch->state == DTM_STATE_ATTACHED && branch->holder == session) {
      undo(lock, name);
    }
  }
}

// ---- The work of branches -------------------------------------------------------------------------------------------

Branch *Server::wait_until_idle(Lock &lock, const std::string &branch, bool interrupt) {
  for (;;) {
    Branch *record = branches_.find(branch);
    if (record == nullptr || !record->busy) {
      return record;
    }
    if (interrupt) {
      record->work->interrupt();
    }
    idle_.wait(lock);
  }
}

// Undoes the work of an idle branch, which is then abort-only.
void Server::undo(Lock &lock, const std::string &branch) {
  try {
    with_work(lock, branch, [](Work &work) { work.roll_back(); });
  } catch (const StoreError &) {
    return;  // it stays as it is; whoever asks for it next meets the same trouble
  }
  if (branches_.find(branch) != nullptr) {
    branches_.change(branch, DTM_STATE_ABORTONLY, 0);
  }
}

// False when memory ran out: what became of the request is not known, so the session ends as if the answer were lost.
bool Server::apply_to_work(Lock &lock, const std::string &branch, Effect effect, int session) {
  try {
    with_work(lock, branch, [&](Work &work) { apply(effect, work); });
    return true;
  } catch (const std::bad_alloc &) {
    break_off(lock, session);
    return false;
  }
}

// Carries a DTM request out and returns the status to answer.
int32_t Server::carry_out(Lock &lock, const DtmRequest &request, int session) {
  Plan plan = branches_.plan(request, session);
  if (plan.next == stays) {
    return plan.answer;
  }
  wait_until_idle(lock, request.branch, plan.effect == Effect::roll_back);
  if (!clients_.contains(session)) {
    return DTM_WRONG_STATE;  // it broke off meanwhile and must not hold anything; nobody reads the answer
  }
  plan = branches_.plan(request, session);
  if (plan.next == stays) {
    return plan.answer;
  }
  if (plan.effect != Effect::none && !apply_to_work(lock, request.branch, plan.effect, session)) {
    return DTM_WRONG_STATE;
  }
  if (plan.next == gone) {
    branches_.remove(request.branch);
    commits_ += plan.effect == Effect::commit ? 1 : 0;
    return plan.answer;
  }
  // First: a branch without work must not be there when memory runs out in between.
  std::shared_ptr<Work> work = branches_.find(request.branch) == nullptr ? store_->make_work(request.branch) : nullptr;
  Branch &branch = branches_.change(request.branch, plan.next, session);
  if (work != nullptr) {
    branch.work = std::move(work);
  }
  return plan.answer;
}

// ---- Requests -------------------------------------------------------------------------------------------------------

Reply Server::execute(int session, const Request &request) {
  Lock lock(mutex_);
  const auto found = clients_.find(session);
  if (found == clients_.end()) {
    return broken_reply();
  }
  const std::shared_ptr<Client> client = found->second;
  const Changes changes = scripts_.take(script_name(request));
  if (changes.drop_before) {
    break_off(lock, session);
    return broken_reply();
  }
  Answer work;
  if (changes.fail) {
    work.failed = true;
  } else if (changes.status) {
    work.statuses.push_back(*changes.status);
  } else {
    try {
      work = answer(lock, session, *client, request);
    } catch (const StoreError &error) {
      work = failure(error.number, error.what());
    } catch (const std::bad_alloc &) {
      if (request.kind == RequestKind::language) {
        throw;  // some of it may be done
      }
      work = failure(message_no_memory, no_memory);
    }
  }
  if (changes.drop_after) {
    break_off(lock, session);
  }
  if (!clients_.contains(session)) {
    return broken_reply();
  }
  alter(work, changes);
  return compose(request.kind, std::move(work), changes);
}

Server::Answer Server::answer(Lock &lock, int session, Client &client, const Request &request) {
  switch (request.kind) {
    case RequestKind::language:
      return answer_sql(lock, session, client, request.text);
    case RequestKind::procedure:
      if (is_dtm_procedure(request.text)) {
        return answer_dtm(lock, session, client, request);
      }
      if (request.text == scan_procedure) {
        return answer_scan(client, request);
      }
      return failure(message_no_procedure, "Procedure '" + request.text + "' does not exist. Check its name.");
    case RequestKind::administer:
      return failure(message_not_allowed, "Operators' commands are not taken here. Use zdbd --admin.");
    default:
      return answer_object(client, request);
  }
}

SqlOutcome Server::run_sql(Lock &lock, int session, Client &client, const std::string &sql) {
  const std::string name = client.attached.empty() ? std::string() : client.attached.back();
  const Branch *branch = wait_until_idle(lock, name, false);
  if (branch == nullptr || branch->state != DTM_STATE_ATTACHED || branch->holder != session) {
    lock.unlock();
    const Relock back{lock};
    return store_->run(sql, !name.empty(), client.counts, client.gone);
  }
  SqlOutcome outcome = with_work(lock, name, [&](Work &work) { return work.run(sql, client.counts); });
  if (outcome.work_lost && branches_.find(name) != nullptr) {
    branches_.change(name, DTM_STATE_ABORTONLY, 0);
  }
  return outcome;
}

Server::Answer Server::answer_sql(Lock &lock, int session, Client &client, const std::string &sql) {
  SqlOutcome outcome = run_sql(lock, session, client, sql);
  Answer answer;
  answer.messages = std::move(outcome.messages);
  answer.results = std::move(outcome.results);
  answer.failed = outcome.failed;
  return answer;
}

bool Server::may_use_dtm(const Client &client, Message &refusal) const {
  if (store_->setting(dtm_setting) != 1) {
    refusal = {message_dtm_off, error_severity,
               "Distributed transaction management is switched off. Set \"enable DTM\" to 1."};
    return false;
  }
  if (!store_->has_dtm_role(client.user)) {
    refusal = {message_no_role, denied_severity,
               "User '" + client.user + "' lacks the role for DTM. Grant dtm_tm_role to it."};
    return false;
  }
  return true;
}

Server::Answer Server::answer_dtm(Lock &lock, int session, Client &client, const Request &request) {
  Answer answer;
  Message refusal;
  DtmRequest asked{request.text, text_parameter(request, "@name"), integer_parameter(request, "@flags", -1),
                   integer_parameter(request, "@status", -1)};
  if (asked.branch.size() > std::size_t{name_max}) {
    return failure(message_over_limit, too_long_name);
  }
  if (branches_.count() >= branches_max && branches_.find(asked.branch) == nullptr) {
    return failure(message_over_limit, "The server has as many branches as it can. Settle or roll back some.");
  }
  if (!may_use_dtm(client, refusal)) {
    answer.outputs.emplace_back("@$rpcerror", refusal.number);
    answer.messages.push_back(std::move(refusal));
    return answer;
  }
  // Now, since a request that was carried out must not be answered as a failed one.
  answer.statuses.reserve(1);
  client.attached.reserve(client.attached.size() + 1);
  answer.statuses.push_back(carry_out(lock, asked, session));
  note_attachment(client, asked, session);
  return answer;
}

// A branch that was taken from the session stays its own until it asks something of it, and so learns what happened:
// its SQL must not go on by itself, outside the branch. Takes no memory: there is room for one more.
void Server::note_attachment(Client &client, DtmRequest &done, int session) {
  const Branch *branch = branches_.find(done.branch);
  const bool attached = branch != nullptr && branch->state == DTM_STATE_ATTACHED && branch->holder == session;
  if (!attached && done.procedure == status_procedure) {
    return;
  }
  std::erase(client.attached, done.branch);
  if (attached) {
    client.attached.push_back(std::move(done.branch));
  }
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
  Result result{ResultKind::rows, {{"xactname", ColumnType::text, name_max}}, {}};
  for (std::string &name : branches_.in_doubt()) {
    result.rows.push_back({Value(std::move(name))});
  }
  answer.results.push_back(std::move(result));
  answer.statuses.push_back(0);
  return answer;
}

Server::Answer Server::answer_object(Client &client, const Request &request) {
  const bool is_statement =
      request.kind == RequestKind::statement_prepare || request.kind == RequestKind::statement_drop;
  std::set<std::string> &objects = is_statement ? client.statements : client.cursors;
  if (request.kind == RequestKind::cursor_open || request.kind == RequestKind::statement_prepare) {
    if (request.text.size() > std::size_t{name_max}) {
      return failure(message_over_limit, too_long_name);
    }
    if (objects.size() >= objects_max && !objects.contains(request.text)) {
      return failure(message_over_limit, "The session has too many cursors or statements. Drop some.");
    }
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
  const auto rows = std::find_if(answer.results.begin(), answer.results.end(),
                                 [](const Result &result) { return result.kind == ResultKind::rows; });
  if (rows != answer.results.end()) {
    std::vector<std::vector<Value>> extra;
    for (const std::string &text : changes.extra_rows) {
      extra.push_back({scripted_value(rows->columns.front(), text)});
    }
    rows->rows.insert(rows->rows.begin(), extra.begin(), extra.end());
  }
  if (changes.row) {
    answer.results.insert(answer.results.begin(), integer_result(ResultKind::rows, "scripted", *changes.row));
  }
}

Reply Server::compose(RequestKind kind, Answer answer, const Changes &changes) {
  Reply reply;
  reply.messages = std::move(answer.messages);
  reply.fetch_codes = changes.fetch_codes;
  reply.results = std::move(answer.results);
  for (const int32_t status : answer.statuses) {
    reply.results.push_back(integer_result(ResultKind::status, "", status));
  }
  for (auto &[name, value] : answer.outputs) {
    reply.results.push_back(integer_result(ResultKind::parameter, name, value));
  }
  const bool ended = !reply.results.empty() && reply.results.back().kind == ResultKind::done;
  if (answer.failed) {
    reply.results.push_back({ResultKind::failed, {}, {}});
  } else if (kind != RequestKind::procedure && !ended) {
    reply.results.push_back({ResultKind::succeeded, {}, {}});
  }
  if (answer.failed || !ended) {
    reply.results.push_back({ResultKind::done, {}, {}});
  }
  return reply;
}

}  // namespace zdb
