// One round of the sweep: a victim that dies at a step, a transaction, the restart of what died, a
// recovery, the checks. A victim that outlives its transaction ends the rounds of that kind.
#include "sweep.h"

#include <iostream>
#include <stdexcept>

#include "decisions.h"
#include "worker.h"

namespace {

enum class Victim { first_server, second_server, application };

struct Kind {
  const char *name;
  bool needs_doubt;  // a transaction is left in doubt first, and its recovery is what the victim dies in
  int undisturbed;   // how the application ends when nothing dies
};

constexpr Kind kinds[] = {{"two-phase", false, worker_committed},
                          {"one-phase", false, worker_committed},
                          {"rollback", false, worker_rolled_back},
                          {"recovery", true, worker_committed}};
constexpr const char *victim_names[] = {"the first server", "the second server", "the application"};

class Round {
 public:
  Round(Bed &bed, Kind kind, Victim victim, uint64_t step, std::string global)
      : bed_(bed), kind_(kind), victim_(victim), step_(step), global_(std::move(global)) {}

  // True when the victim died.
  bool run();

 private:
  void leave_in_doubt() const;
  ExitStatus act() const;
  void recover() const;
  void check(const ExitStatus &status) const;

  Bed &bed_;
  Kind kind_;
  Victim victim_;
  uint64_t step_;
  std::string global_;
};

// The application's last step before it tells the banks of its decision: both are prepared then.
void Round::leave_in_doubt() const {
  constexpr uint64_t steps_to_decision = 2 * 8 + 2;  // open, start, end and prepare at two banks; the decision
  bed_.worker({"work", "two-phase", global_}, steps_to_decision).wait();
  if (Bed::in_doubt(1) != 1 || Bed::in_doubt(2) != 1) {
    throw std::runtime_error("the transaction was not left in doubt");
  }
}

ExitStatus Round::act() const {
  const uint64_t fatal = victim_ == Victim::application ? step_ : 0;
  if (kind_.needs_doubt) {
    return bed_.worker({"recover", ""}, fatal).wait();
  }
  return bed_.worker({"work", kind_.name, global_}, fatal).wait();
}

void Round::recover() const {
  const ExitStatus status = bed_.worker({"recover", ""}).wait();
  if (status.killed || status.code != worker_committed) {
    throw std::runtime_error("the recovery failed; see " + bed_.folder() + "/workers.log");
  }
}

// What was decided, or reported as committed, is noted; what was reported as rolled back is not.
void Round::check(const ExitStatus &status) const {
  bed_.check_nothing_in_doubt();
  bed_.check_money();
  const bool noted = Bed::is_noted(1, global_);
  const bool decided = Decisions(bed_.folder() + "/decisions").is_committed(global_);
  const bool one_phase = std::string(kind_.name) == "one-phase";
  if (!one_phase && noted != decided) {
    throw std::runtime_error(noted ? "an undecided transfer is noted" : "a decided transfer is not noted");
  }
  if (one_phase && !status.killed && status.code == worker_committed && !noted) {
    throw std::runtime_error("a committed transfer is not noted");
  }
  if (one_phase && !status.killed && status.code == worker_rolled_back && noted) {
    throw std::runtime_error("a transfer that was rolled back is noted");
  }
}

bool Round::run() {
  if (kind_.needs_doubt) {
    leave_in_doubt();
  }
  if (victim_ != Victim::application) {
    const int32_t bank = victim_ == Victim::first_server ? 1 : 2;
    bed_.stop_server(bank);
    bed_.start_server(bank, step_);
  }
  const ExitStatus status = act();
  bool died = status.killed;
  if (victim_ != Victim::application) {
    const int32_t bank = victim_ == Victim::first_server ? 1 : 2;
    died = bed_.stop_server(bank);
  }
  if (!died && status.code != kind_.undisturbed) {
    throw std::runtime_error("nothing died, but the application ended with " + std::to_string(status.code));
  }
  bed_.revive_servers();
  bed_.wait_for_orphans();
  recover();
  check(status);
  return died;
}

}  // namespace

int32_t sweep(Bed &bed, uint64_t stride) {
  int32_t kills = 0;
  int32_t rounds = 0;
  for (const Kind &kind : kinds) {
    for (const Victim victim : {Victim::first_server, Victim::second_server, Victim::application}) {
      int32_t deaths = 0;
      for (uint64_t step = 1;; step += stride) {
        const std::string mark = std::string(kind.name) == "one-phase" ? std::string(1, local_mark) : "S";
        const std::string global = mark + std::to_string(++rounds);
        try {
          if (!Round(bed, kind, victim, step, global).run()) {
            break;
          }
        } catch (const std::exception &error) {
          throw std::runtime_error(std::string(kind.name) + ", " + victim_names[static_cast<int>(victim)] +
                                   " killed at step " + std::to_string(step) + ", transaction " + global + ": " +
                                   error.what());
        }
        ++deaths;
      }
      std::cout << kind.name << ": " << victim_names[static_cast<int>(victim)] << " killed at " << deaths << " steps"
                << std::endl;
      kills += deaths;
    }
  }
  return kills;
}
