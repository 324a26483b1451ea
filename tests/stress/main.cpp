// The stress program: the crash sweep and the crowd, and the worker processes that both are made of.
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "crowd.h"
#include "database.h"
#include "rate.h"
#include "sweep.h"
#include "worker.h"

namespace {

constexpr const char *usage = R"(usage: stress sweep FOLDER [STRIDE]
       stress crowd FOLDER [PROCESSES [SECONDS]]
       stress rate FOLDER [SECONDS]

sweep kills a server or the application at every STRIDE-th step (1 unless given) of two-phase
commit, one-phase commit, rollback and recovery, and checks after each kill, restart and recovery
that no money was lost or made. crowd lets many processes (8) transfer money between two banks at
once for some SECONDS (20), kills some of them, and checks the same in the end. rate measures
transfers a second with one and four clients next to plain SQLite. FOLDER is made unless it is
there; the run makes a folder of its own in it, which stays when something was wrong.
)";

constexpr int exit_fine = 0;
constexpr int exit_wrong = 1;
constexpr int exit_usage = 2;
constexpr int32_t sweep_accounts = 2;
constexpr int32_t crowd_accounts = 20;

std::string own_folder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

int run_sweep(const std::vector<std::string> &words) {
  const uint64_t stride = words.size() > 2 ? std::stoull(words[2]) : 1;
  Bed bed(words[1], own_folder(), sweep_accounts);
  const int32_t kills = sweep(bed, stride == 0 ? 1 : stride);
  std::cout << "kills: " << kills << "; the banks agree, the sum holds, nothing is in doubt" << std::endl;
  return exit_fine;
}

int run_crowd(const std::vector<std::string> &words) {
  const int32_t processes = words.size() > 2 ? std::stoi(words[2]) : 8;
  const std::chrono::seconds duration(words.size() > 3 ? std::stoi(words[3]) : 20);
  Bed bed(words[1], own_folder(), crowd_accounts);
  const CrowdResult result = crowd(bed, processes, duration, crowd_accounts);
  std::cout << processes << " processes, " << result.kills << " kills, " << result.transfers
            << " transfers; the banks agree, the sum holds, nothing is in doubt" << std::endl;
  return exit_fine;
}

int run_rate(const std::vector<std::string> &words) {
  const std::chrono::seconds duration(words.size() > 2 ? std::stoi(words[2]) : 10);
  Bed bed(words[1], own_folder(), crowd_accounts);
  measure_rate(bed, duration, crowd_accounts);
  return exit_fine;
}

int run(const std::vector<std::string> &words) {
  const std::string command = words.empty() ? "" : words[0];
  if (command == "work" && words.size() == 3) {
    return do_transaction(words[1], words[2]);
  }
  if (command == "recover" && words.size() == 2) {
    return do_recovery(words[1]);
  }
  if (command == "transfer" && words.size() == 6) {
    return do_transfers(words[1], static_cast<unsigned>(std::stoul(words[2])), std::stoi(words[3]), std::stoi(words[4]),
                        words[5] == "quiet");
  }
  if (command == "sweep" && words.size() >= 2) {
    hear_messages();
    return run_sweep(words);
  }
  if (command == "crowd" && words.size() >= 2) {
    hear_messages();
    return run_crowd(words);
  }
  if (command == "rate" && words.size() >= 2) {
    hear_messages();
    return run_rate(words);
  }
  std::cerr << usage;
  return exit_usage;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const std::exception &error) {
    std::cerr << "stress: " << error.what() << '\n';
    return exit_wrong;
  }
}
