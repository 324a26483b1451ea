// Starts, kills and stops the workers; what they do is in worker.cpp.
#include "crowd.h"

#include <csignal>
#include <iostream>
#include <random>
#include <stdexcept>
#include <thread>

#include "worker.h"

namespace {

std::string name_of(size_t worker) {
  return std::string("w").append(std::to_string(worker));
}

class Crowd {
 public:
  Crowd(Bed &bed, int32_t size, int32_t accounts_a_bank) : bed_(bed), accounts_(accounts_a_bank) {
    for (size_t worker = 0; worker < static_cast<size_t>(size); ++worker) {
      workers_.push_back(start(worker));
    }
  }

  int32_t disturb(std::chrono::seconds duration);
  void stop();
  void recover_all() const;

 private:
  Process start(size_t worker) {
    constexpr const char *rolled_back_percent = "10";
    return bed_.worker({"transfer", name_of(worker), std::to_string(random_()), std::to_string(accounts_),
                        rolled_back_percent, "loud"});
  }

  Bed &bed_;
  const int32_t accounts_;
  std::mt19937 random_{std::random_device()()};
  std::vector<Process> workers_;
};

// Kills a worker every while and starts it again, which recovers its own transactions first.
int32_t Crowd::disturb(std::chrono::seconds duration) {
  const auto end = std::chrono::steady_clock::now() + duration;
  std::uniform_int_distribution<int> pause(100, 600);
  std::uniform_int_distribution<size_t> choice(0, workers_.size() - 1);
  int32_t kills = 0;
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(pause(random_)));
    const size_t victim = choice(random_);
    Process &worker = workers_[victim];
    worker.signal(SIGKILL);
    if (const ExitStatus status = worker.wait(); !status.killed) {
      throw std::runtime_error(name_of(victim) + " ended by itself with " + std::to_string(status.code) + "; see " +
                               bed_.folder() + "/workers.log");
    }
    ++kills;
    std::vector<Process> remaining;
    for (size_t other = 0; other < workers_.size(); ++other) {
      remaining.push_back(other == victim ? start(victim) : std::move(workers_[other]));
    }
    workers_ = std::move(remaining);
  }
  return kills;
}

void Crowd::stop() {
  for (const Process &worker : workers_) {
    worker.signal(SIGTERM);
  }
  for (size_t worker = 0; worker < workers_.size(); ++worker) {
    const ExitStatus status = workers_[worker].wait();
    // One that had not come to its signal handler yet is killed by the signal.
    if (!status.killed && status.code != worker_committed) {
      throw std::runtime_error(name_of(worker) + " ended with " + std::to_string(status.code) + "; see " +
                               bed_.folder() + "/workers.log");
    }
  }
}

void Crowd::recover_all() const {
  for (size_t worker = 0; worker < workers_.size(); ++worker) {
    const ExitStatus status = bed_.worker({"recover", name_of(worker)}).wait();
    if (status.killed || status.code != worker_committed) {
      throw std::runtime_error("the recovery of " + name_of(worker) + " failed; see " + bed_.folder() + "/workers.log");
    }
  }
}

}  // namespace

CrowdResult crowd(Bed &bed, int32_t workers, std::chrono::seconds duration, int32_t accounts_a_bank) {
  CrowdResult result;
  Crowd all(bed, workers, accounts_a_bank);
  result.kills = all.disturb(duration);
  all.stop();
  all.recover_all();
  bed.check_nothing_in_doubt();
  bed.check_money();
  result.transfers = static_cast<int64_t>(noted_transfers(1).size());
  return result;
}
