// The n-th call of a server's life fails, for n = 1, 2, 3 and so on until a life passes untouched; then
// the server starts without faults, and what was answered must hold: nothing that was answered as done is missing,
// nothing that was answered as not done is there, and what was not answered is either.
//
//   zdb_faults [--fault NAME] [--story N] [--from N] [--spread N] [--for-good yes]
//
// Without --fault and --story: all of them. With --spread, n grows by an N-th each time. Each life and each look at
// what it has left is a process of its own. A failure of memory that leaves the server as an exception counts as no
// answer.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "bank.h"
#include "disk/folder.h"
#include "disk/sqlite.h"
#include "disk/storage_failure.h"
#include "dtm/dtm_protocol.h"
#include "failing_files.h"
#include "sessions/durable_server.h"

namespace {

// ---- What a branch may have come to ---------------------------------------------------------------------------------

// A set of what can be met after a restart.
enum Outcome : unsigned { absent = 1, prepared = 2, committed = 4, heuristic_commit = 8, heuristic_rollback = 16 };

// A branch's letter, and what it may be.
using Outcomes = std::map<char, unsigned>;

struct Step {
  std::string request;
  char branch;
};

// In the first life "k" is prepared; what becomes of it is each story's first step.
constexpr const char *stories[] = {
    "commit k, work a, commit1 a, work b, prepare b, commit b, alone c",
    "rollback k, work a, prepare a, rollback a, work b, rollback b, work c, commit1 c, work d, prepare d",
    ("force commit k, work a, prepare a, force commit a, forget a, work b, prepare b, force rollback b, forget b, "
     "forget k, work c"),
    "force rollback k, alone a, work b, prepare b, force commit b, large c, commit1 c",
    "commit k, large a, prepare a, commit a",
};

std::vector<Step> steps_of(const char *story) {
  std::vector<Step> steps;
  std::istringstream text(story);
  for (std::string step; std::getline(text >> std::ws, step, ',');) {
    steps.push_back({step.substr(0, step.size() - 2), step.back()});
  }
  return steps;
}

unsigned outcome_of(const std::string &request, unsigned before) {
  if (request == "prepare") {
    return prepared;
  }
  if (request == "force commit") {
    return heuristic_commit;
  }
  if (request == "force rollback") {
    return heuristic_rollback;
  }
  if (request == "forget") {
    return ((before & heuristic_commit) != 0 ? committed : 0U) | ((before & heuristic_rollback) != 0 ? absent : 0U) |
           (before & (committed | absent));
  }
  return request == "rollback" || request == "work" || request == "large" ? absent : committed;
}

// A line of a life is "REQUEST=BRANCH?" before it is made, then "+" done, "-" not done, or "?" not known.
void note(Outcomes &outcomes, const std::string &line) {
  const std::size_t mark = line.find('=');
  unsigned &outcome = outcomes.try_emplace(line[mark + 1], absent).first->second;
  const unsigned done = outcome_of(line.substr(0, mark), outcome);
  const bool known = line.back() != '?';
  outcome = !known ? outcome | done : line.back() == '+' ? done : outcome;
}

// ---- A life ---------------------------------------------------------------------------------------------------------

std::string sql_for(const Step &step) {
  const bool large = step.request == "large";
  const std::string letter(1, step.branch);
  const std::string row = "('" + letter + "', zeroblob(" + (large ? "9000000" : "5000") + "))";
  return "insert into moves values " + row + ", " + row +
         "; update total set rows = rows + 2; delete from pool where "
         "id in (select id from pool limit 3); create table made_by_" +
         letter + " (a primary key)";
}

class Life {
 public:
  Life(zdb::DurableServer &server, int answers)
      : server_(server), client_(std::make_unique<Client>(server.server())), answers_(answers) {}

  // A refused prepare or one-phase commit is followed by the rollback that a manager asks for.
  void play(const char *story) {
    for (const Step &step : steps_of(story)) {
      const bool done = ask(step.request, step.branch);
      if (!done && step.request != "alone") {
        ask(step.request == "commit" || step.request.starts_with("fo") ? step.request : "rollback", step.branch);
      }
    }
  }

 private:
  void tell(const std::string &text) const {
    if (write(answers_, text.data(), text.size()) < 0) {
      abort();
    }
  }

  bool ask(const std::string &request, char branch) {
    tell(request + "=" + branch + "?");
    char answer = '?';
    try {
      answer = request == "work" || request == "large" ? work({request, branch}) : end(request, branch);
    } catch (const zdb::StoreError &) {
      answer = '-';
    } catch (const std::bad_alloc &) {
      answer = '?';
    }
    if (!client_->alive()) {
      answer = '?';  // it was lost with the session
      client_ = std::make_unique<Client>(server_.server());
    }
    tell(std::string(1, answer) + "\n");
    return answer == '+';
  }

  char work(const Step &step) const {
    const std::string name(1, step.branch);
    const std::string sql = sql_for(step);
    const Watched watched;
    const bool worked = client_->dtm("begin", name) == 0 && client_->sql(sql).find('!') == std::string::npos;
    return client_->dtm("end", name) >= 0 && worked ? '+' : '-';
  }

  char end(const std::string &request, char branch) const {
    const std::string name(1, branch);
    const std::string alone = "insert into moves select '" + name + "', 1 from pool limit 2";
    const Watched watched;
    if (request == "alone") {
      return client_->sql(alone).find('!') == std::string::npos ? '+' : '-';
    }
    if (request.starts_with("force")) {
      return server_.server()->force(name, request == "force commit") ? '+' : '-';
    }
    return client_->dtm(request, name) >= 0 ? '+' : '-';
  }

  zdb::DurableServer &server_;
  std::unique_ptr<Client> client_;
  const int answers_;
};

void live(const Place &place, const char *story, const Plan &fault, int answers) {
  if (std::freopen("/dev/null", "w", stderr) == nullptr) {
    abort();
  }
  arm(fault, place.folder());
  try {
    std::unique_ptr<zdb::DurableServer> server;
    {
      const Watched watched;
      server = std::make_unique<zdb::DurableServer>(place.folder());
    }
    Life(*server, answers).play(story);
    const Watched watched;
    server.reset();
  } catch (const std::exception &) {
    // It did not start; that is a life as well.
  }
  dprintf(answers, has_failed() ? "" : "untouched\n");
}

// The first life: tables, and the branch that every story finds prepared. Its end leaves its logs as they are.
void make(const Place &place) {
  zdb::create_folder(place.folder());
  zdb::DurableServer server(place.folder());
  server.server()->store().add_user("sa", "pw", true);
  server.server()->store().set_setting(zdb::lock_timeout_setting, 20);
  const Client client(server.server());
  client.sql(
      "create table moves (branch, bytes); create table total (rows); insert into total values (0); "
      "create table pool (id integer primary key, filler); insert into pool with recursive n (i) as "
      "(select 1 union all select i + 1 from n where i < 60) select i, zeroblob(1000) from n");
  client.work("k", sql_for({"work", 'k'}));
  if (client.dtm("prepare", "k") < 0) {
    abort();
  }
  end_process();
}

// ---- A look at what it has left -------------------------------------------------------------------------------------

unsigned seen_outcome(const zdb::Server &server, const Client &client, char branch) {
  const std::string name(1, branch);
  const int32_t state = server.branch_state(name);
  const std::string rows = client.sql("select count(*) from moves where branch = '" + name + "'");
  const bool there = rows == "2#1";
  if (!there && rows != "0#1") {
    return 0;
  }
  switch (state) {
    case DTM_STATE_UNKNOWN:
      return there ? committed : absent;
    case DTM_STATE_PREPARED:
      return there ? 0U : prepared;
    case DTM_STATE_HEUR_COMMITTED:
      return there ? heuristic_commit : 0U;
    default:
      return there || state != DTM_STATE_HEUR_ROLLEDBACK ? 0U : heuristic_rollback;
  }
}

// The other tables went along with the branches' rows.
bool is_consistent(const Client &client) {
  return client.sql(
             "select (select rows from total) = count(*) and 3 * (select rows from total) = 2 * (select 60 - "
             "count(*) from pool) and (select count(*) from sqlite_schema where name like 'made%') * 2 = count(*) "
             "from moves where bytes <> 1") == "1#1";
}

// A prepared branch keeps the lock.
std::string checked(const zdb::Server &server, const Client &client, const Outcomes &outcomes) {
  std::string wrong;
  bool locked = false;
  for (const auto &[branch, possible] : outcomes) {
    const unsigned found = seen_outcome(server, client, branch);
    locked = locked || found == prepared;
    if ((found & possible) == 0) {
      wrong +=
          std::string(" ") + branch + " is " + std::to_string(found) + ", may be " + std::to_string(possible) + ";";
    }
  }
  wrong += client.sql("update total set rows = rows") == (locked ? "!3106" : "#1") ? "" : " the lock is wrong;";
  return wrong + (is_consistent(client) ? "" : " the tables contradict one another;");
}

// Ends what is left over, and returns what must be met then.
Outcomes settle(const zdb::Server &server, const Client &client, const Outcomes &outcomes) {
  Outcomes settled;
  for (const auto &[branch, possible] : outcomes) {
    const std::string name(1, branch);
    const unsigned found = seen_outcome(server, client, branch);
    const bool commits = found == prepared || found == committed || found == heuristic_commit;
    if (found == prepared) {
      client.dtm("commit", name);
    } else if ((found & (heuristic_commit | heuristic_rollback)) != 0) {
      client.dtm("forget", name);
    }
    settled[branch] = commits ? committed : absent;
  }
  return settled;
}

std::string integrity(const std::string &file) {
  const zdb::Database database(file);
  zdb::Statement statement(database, "pragma integrity_check");
  statement.step();
  return statement.text(0) == "ok" ? "" : " " + file + ": " + statement.text(0) + ";";
}

// Empty when all is as it must be.
std::string look(const Place &place, const Outcomes &outcomes) {
  std::string wrong;
  Outcomes expected = outcomes;
  try {
    for (int start = 0; start < 2 && wrong.empty(); ++start) {
      const zdb::DurableServer server(place.folder());
      const Client client(server.server());
      wrong = checked(*server.server(), client, expected);
      expected = settle(*server.server(), client, expected);
      wrong += checked(*server.server(), client, expected);
      client.work("k", "update total set rows = rows");
      wrong += client.dtm("prepare", "k") < 0 || client.dtm("commit", "k") < 0 ? " no new branch of the name;" : "";
    }
    return wrong + integrity(zdb::data_path(place.folder())) + integrity(zdb::catalog_path(place.folder()));
  } catch (const std::exception &error) {
    return wrong + " it does not start: " + error.what();
  }
}

// ---- All lives ------------------------------------------------------------------------------------------------------

constexpr unsigned life_seconds_max = 20;

// By itself, by a cut of power, or as the server does when a sync has failed.
bool ends_well(int status) {
  return status == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) ||
         (WIFEXITED(status) && WEXITSTATUS(status) == zdb::storage_failure_status);
}

struct FaultName {
  const char *name;
  Fault fault;
};
constexpr FaultName fault_names[] = {
    {"write", Fault::write}, {"sync", Fault::sync},         {"lost-sync", Fault::lost_sync},
    {"open", Fault::open},   {"truncate", Fault::truncate}, {"memory", Fault::memory},
    {"kill", Fault::kill},   {"cut", Fault::cut},           {"torn", Fault::torn}};

struct Options {
  std::string fault;
  uint64_t story;
  uint64_t from;
  uint64_t spread;
  bool for_good;
};

class Run {
 public:
  explicit Run(const Options &options) : options_(options) {
    int status = 0;
    in_child([this](int) { make(place_); }, status);
    std::filesystem::copy(place_.folder(), saved(), std::filesystem::copy_options::recursive);
  }

  // Returns the number of differences.
  int lives_of(const FaultName &fault, std::size_t story) {
    int differences = 0;
    lives_ = died_ = 0;
    uint64_t at = options_.from;
    while (life({fault.fault, at, options_.for_good}, story, differences)) {
      at += options_.spread == 0 ? 1 : 1 + at / options_.spread;
    }
    std::printf("%s%s, story %zu: %d lives, %d of them died, %d differences\n", fault.name,
                options_.for_good ? " for good" : "", story, lives_, died_, differences);
    std::fflush(stdout);
    return differences;
  }

 private:
  std::string saved() const { return place_.path() / "saved"; }

  // False when the fault was not reached.
  bool life(const Plan &plan, std::size_t story, int &differences) {
    std::filesystem::remove_all(place_.folder());
    std::filesystem::copy(saved(), place_.folder(), std::filesystem::copy_options::recursive);
    int status = 0;
    const std::string answers = in_child(
        [&](int pipe) {
          alarm(life_seconds_max);
          live(place_, stories[story], plan, pipe);
        },
        status);
    Outcomes outcomes{{'k', prepared}};
    std::istringstream lines(answers);
    for (std::string line; std::getline(lines, line) && line != "untouched";) {
      note(outcomes, line);
    }
    ++lives_;
    died_ += status == 0 ? 0 : 1;
    const bool untouched = answers.find("untouched") != std::string::npos;
    int looked = 0;
    std::string wrong = in_child(
        [&](int pipe) {
          alarm(life_seconds_max);
          dprintf(pipe, "%s", look(place_, outcomes).c_str());
        },
        looked);
    wrong += ends_well(status) ? "" : " it crashed, or did not end;";
    wrong += untouched && answers.find("-\n") != std::string::npos ? " refused without a fault;" : "";
    if (!wrong.empty() || looked != 0) {
      ++differences;
      std::printf("call %lu:%s (life %d, look %d)\n%s\n", static_cast<unsigned long>(plan.at), wrong.c_str(), status,
                  looked, answers.c_str());
    }
    return !untouched;
  }

  const Options options_;
  const Place place_;
  int lives_ = 0;
  int died_ = 0;
};

Options parsed(int count, char **arguments) {
  std::map<std::string, std::string> given;
  for (int i = 1; i + 1 < count; i += 2) {
    given[arguments[i]] = arguments[i + 1];
  }
  const auto number = [&](const char *name, uint64_t missing) {
    return given.contains(name) ? std::stoull(given[name]) : missing;
  };
  return {given["--fault"], number("--story", UINT64_MAX), number("--from", 1), number("--spread", 0),
          given.contains("--for-good")};
}

}  // namespace

int main(int count, char **arguments) {
  watch_memory();
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const Options options = parsed(count, arguments);
  Run run(options);
  int differences = 0;
  for (const FaultName &fault : fault_names) {
    for (std::size_t story = 0; story < std::size(stories); ++story) {
      if ((options.fault.empty() || options.fault == fault.name) &&
          (options.story == UINT64_MAX || options.story == story)) {
        differences += run.lives_of(fault, story);
      }
    }
  }
  return differences == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
