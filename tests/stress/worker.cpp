// Transactions through the TUX switch, as one process of an application makes them.
#include "worker.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>

#include "coordinator.h"
#include "database.h"
#include "transfers.h"
#include "xadtm.h"

namespace {

std::atomic<bool> stopping{false};

std::vector<ResourceManager> managers(int32_t count) {
  std::vector<ResourceManager> all;
  for (int32_t bank = 1; bank <= count; ++bank) {
    all.push_back(
        {bank, lrm_of(bank), "-N" + lrm_of(bank) + " -U" + teller + " -P" + teller_password + " -S" + server_of(bank)});
  }
  return all;
}

std::string decisions_of(const std::string &name) {
  const char *folder = std::getenv("TARVEX");
  if (folder == nullptr) {
    throw std::runtime_error("workers are started by stress itself, which sets $TARVEX");
  }
  return std::string(folder) + "/decisions" + name;
}

void print_call(const std::string &call, int32_t code) {
  std::cout << getpid() << " xa_" << call << " => " << xa_code_name(code) << std::endl;
}

int exit_code_of(Outcome outcome) {
  switch (outcome) {
    case Outcome::committed:
      return worker_committed;
    case Outcome::rolled_back:
      return worker_rolled_back;
    case Outcome::mixed:
    case Outcome::unknown:
      break;
  }
  return worker_unknown;
}

}  // namespace

int do_transaction(const std::string &kind, const std::string &global) {
  hear_messages();
  const bool one_phase = kind == "one-phase";
  Decisions decisions(decisions_of(""));
  Coordinator coordinator(tarvex_TUX_xa_switch, managers(one_phase ? 1 : bank_count), decisions, print_call);
  coordinator.open();
  const Transfer transfer{global, {1, 1}, {one_phase ? 1 : 2, 2}, 7};
  const Outcome outcome = coordinator.run(
      global, [&] { move_money(transfer, global); }, [&] { return kind != "rollback"; });
  std::cout << getpid() << ' ' << global << ' ' << coordinator.reason() << std::endl;
  coordinator.close();
  return exit_code_of(outcome);
}

int do_recovery(const std::string &name) {
  hear_messages();
  Decisions decisions(decisions_of(name));
  Coordinator coordinator(tarvex_TUX_xa_switch, managers(bank_count), decisions, print_call);
  coordinator.open();
  coordinator.recover(name.empty() ? name : name + '.');
  coordinator.close();
  return worker_committed;
}

int do_transfers(const std::string &name, unsigned seed, int accounts_a_bank, int rolled_back_percent, bool quiet) {
  hear_messages();
  std::signal(SIGTERM, [](int) { stopping = true; });
  std::mt19937 random(seed);
  std::uniform_int_distribution<int32_t> account(1, accounts_a_bank);
  std::uniform_int_distribution<int32_t> amount(1, 50);
  std::uniform_int_distribution<int> percent(1, 100);
  Decisions decisions(decisions_of(name));
  Coordinator coordinator(tarvex_TUX_xa_switch, managers(bank_count), decisions,
                          quiet ? [](const std::string &, int32_t) {} : print_call);
  coordinator.open();
  coordinator.recover(name + '.');
  const std::string run = name + '.' + std::to_string(getpid()) + '.';
  for (int64_t number = 1; !stopping; ++number) {
    const int32_t from = percent(random) > 50 ? 1 : 2;
    const std::string global = run + std::to_string(number);
    const Transfer transfer{global, {from, account(random)}, {3 - from, account(random)}, amount(random)};
    const bool confirmed = percent(random) > rolled_back_percent;
    const Outcome outcome = coordinator.run(
        global, [&] { move_money(transfer, global); }, [&] { return confirmed; });
    if (outcome != Outcome::committed && confirmed) {
      std::cout << getpid() << ' ' << global << ' ' << coordinator.reason() << std::endl;
      std::this_thread::sleep_for(std::chrono::milliseconds(amount(random)));  // the data are held by somebody else
    }
  }
  coordinator.recover(name + '.');
  coordinator.close();
  return worker_committed;
}
