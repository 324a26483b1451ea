// Plays a parsed script: runs each command on its thread, prints its result, stops at the first surprise.
//
// The main thread goes through the script and waits for each line, unless the line is a background one; several threads
// print only then, so output and verdict stand under one mutex.
#include "player.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "branch_text.h"
#include "shown_text.h"
#include "sql_runner.h"
#include "tokens.h"
#include "workers.h"
#include "xa_names.h"

namespace {

struct Outcome {
  int32_t code = 0;
  std::vector<std::string> xids;   // sorted names of the XIDs that a scan returned
  std::vector<std::string> rows;   // of SQL, in the server's order
  std::vector<std::string> lines;  // shown below the command
};

class Player {
 public:
  Player(const Script &script, const Libraries &libraries) : script_(script), libraries_(libraries) {}

  bool play();

 private:
  void dispatch(const Command &command);
  void perform(const Command &command);
  Outcome outcome_of(const Command &command) const;
  int32_t call_switch(const Command &command) const;
  Outcome call_recover(const Command &command) const;
  Outcome call_sql(const Command &command) const;
  int32_t steer_server(const Command &command) const;
  void report(const Command &command, const Outcome &outcome);
  bool surprised();

  const Script &script_;
  const Libraries &libraries_;
  std::mutex mutex_;
  bool surprised_ = false;  // under mutex_
  Workers workers_;         // last: its threads use all of the above
};

const char *pointer_to(const std::optional<std::string> &text) {
  return text ? text->c_str() : nullptr;
}

Outcome outcome(int32_t code) {
  return {code, {}, {}, {}};
}

const XID *pointer_to(const std::optional<XID> &xid) {
  return xid ? &*xid : nullptr;
}

}  // namespace

int32_t Player::call_switch(const Command &command) const {
  const struct xa_switch_t &xa = *libraries_.xa;
  const XID *xid = pointer_to(command.xid);
  int32_t handle = 0;
  int32_t result = 0;
  switch (command.verb) {
    case Verb::open:
      return xa.xa_open_entry(pointer_to(command.info), command.rmid, command.flags);
    case Verb::close:
      return xa.xa_close_entry(pointer_to(command.info), command.rmid, command.flags);
    case Verb::start:
      return xa.xa_start_entry(xid, command.rmid, command.flags);
    case Verb::end:
      return xa.xa_end_entry(xid, command.rmid, command.flags);
    case Verb::prepare:
      return xa.xa_prepare_entry(xid, command.rmid, command.flags);
    case Verb::commit:
      return xa.xa_commit_entry(xid, command.rmid, command.flags);
    case Verb::rollback:
      return xa.xa_rollback_entry(xid, command.rmid, command.flags);
    case Verb::forget:
      return xa.xa_forget_entry(xid, command.rmid, command.flags);
    default:
      return xa.xa_complete_entry(&handle, &result, command.rmid, command.flags);
  }
}

Outcome Player::call_recover(const Command &command) const {
  std::vector<XID> found(static_cast<size_t>(std::max(command.number, 1)));
  Outcome outcome;
  outcome.code = libraries_.xa->xa_recover_entry(found.data(), command.number, command.rmid, command.flags);
  const size_t stored = std::min(static_cast<size_t>(std::max(outcome.code, 0)), found.size());
  for (size_t i = 0; i < stored; ++i) {
    outcome.xids.push_back(script_.xids.name_of(found[i]));
  }
  std::sort(outcome.xids.begin(), outcome.xids.end());
  return outcome;
}

int32_t Player::steer_server(const Command &command) const {
  const std::vector<std::string> &words = command.words;
  const char *server = words[0].c_str();
  switch (command.verb) {
    case Verb::server:
      return libraries_.create_server(server);
    case Verb::user:
      return libraries_.add_user(server, words[1].c_str(), words[2].c_str(), command.number);
    case Verb::dtm:
      return libraries_.set_dtm(server, command.number);
    case Verb::force:
      return libraries_.force(server, branch_name(*command.xid, words[1]).c_str(), command.number);
    case Verb::state:
      return libraries_.branch_state(server, branch_name(*command.xid, words[1]).c_str());
    default:
      return libraries_.break_sessions(server, words.size() > 1 ? words[1].c_str() : nullptr);
  }
}

Outcome Player::call_sql(const Command &command) const {
  SqlRun run = run_sql(libraries_, command.lrm, command.lookup_key, command.info.value_or(""));
  return {run.result, {}, std::move(run.rows), std::move(run.lines)};
}

Outcome Player::outcome_of(const Command &command) const {
  switch (command.verb) {
    case Verb::recover:
      return call_recover(command);
    case Verb::sql:
      return call_sql(command);
    case Verb::statement:
      return outcome(libraries_.statement_number(command.rmid));
    case Verb::sleep:
      std::this_thread::sleep_for(std::chrono::duration<double>(command.seconds));
      return {};
    case Verb::env:
      return outcome(setenv(command.words[0].c_str(), command.words[1].c_str(), 1));
    case Verb::echo:
    case Verb::wait:
      return {};
    case Verb::server:
    case Verb::user:
    case Verb::dtm:
    case Verb::force:
    case Verb::state:
    case Verb::disconnect:
      return outcome(steer_server(command));
    default:
      return outcome(call_switch(command));
  }
}

namespace {

std::string text_of(ResultKind kind, const Outcome &outcome) {
  switch (kind) {
    case ResultKind::xa_code:
      return name_of(Vocabulary::xa_codes, outcome.code);
    case ResultKind::answer:
      return name_of(Vocabulary::answers, outcome.code);
    case ResultKind::branch_state:
      return name_of(Vocabulary::branch_states, outcome.code);
    case ResultKind::sql:
      return name_of(Vocabulary::sql_results, outcome.code);
    default:
      break;
  }
  if (outcome.code < 0) {
    return name_of(Vocabulary::xa_codes, outcome.code);
  }
  std::string text = std::to_string(outcome.code);
  for (const std::string &xid : outcome.xids) {
    text += ' ';
    text += xid;
  }
  return text;
}

bool meets(const Outcome &outcome, const Expectation &expected) {
  return outcome.code == expected.code && (expected.xids.empty() || outcome.xids == expected.xids) &&
         (expected.rows.empty() || outcome.rows == expected.rows);
}

}  // namespace

bool Player::surprised() {
  const std::scoped_lock lock(mutex_);
  return surprised_;
}

void Player::report(const Command &command, const Outcome &outcome) {
  const std::scoped_lock lock(mutex_);
  const std::string shown = visible(command.thread + ' ' + command.shown);
  std::cout << command.line << ": @" << shown;
  if (command.kind == ResultKind::nothing) {
    std::cout << std::endl;
    return;
  }
  std::string got = text_of(command.kind, outcome);
  std::cout << " => " << got << std::endl;
  for (const std::string &line : outcome.lines) {
    std::cout << "    " << visible(line) << std::endl;
  }
  if (!command.expected || meets(outcome, *command.expected)) {
    return;
  }
  surprised_ = true;
  for (const std::string &row : outcome.rows) {
    got += ' ';
    got += ::quoted(row);  // not the standard library's, which the row's type would bring in
  }
  std::cerr << "xadrive: " << visible(script_.file) << ':' << command.line << ": @" << shown << ": expected "
            << visible(command.expected->text) << ", got " << got << std::endl;
}

void Player::perform(const Command &command) {
  if (!surprised()) {
    report(command, outcome_of(command));
  }
}

void Player::dispatch(const Command &command) {
  if (command.verb == Verb::wait) {
    workers_.named(command.words[0]).wait_idle();
  }
  if (command.thread == main_thread) {
    perform(command);
    return;
  }
  Worker &worker = workers_.named(command.thread);
  worker.post([this, &command] { perform(command); });
  if (!command.background) {
    worker.wait_idle();
  }
}

bool Player::play() {
  listen_for_messages(libraries_);
  for (const Command &command : script_.commands) {
    if (surprised()) {
      break;
    }
    dispatch(command);
  }
  workers_.wait_all();
  return !surprised();
}

bool play(const Script &script, const Libraries &libraries) {
  return Player(script, libraries).play();
}
