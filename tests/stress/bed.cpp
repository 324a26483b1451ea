// Makes folders and servers through the programs that an operator uses, and looks at the data by SQL.
#include "bed.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "database.h"

namespace {

constexpr int64_t first_balance = 1000000;

void set_environment(const std::string &folder) {
  setenv("TARVEX", folder.c_str(), 1);
  setenv("XACONFIGFILE", (folder + "/xa_config").c_str(), 1);
  setenv("XALOGFILE", (folder + "/xa.log").c_str(), 1);
}

void write_file(const std::string &path, const std::string &text) {
  std::ofstream file(path);
  file << text;
}

}  // namespace

Bed::Bed(const std::string &folder, const std::string &programs, int32_t accounts_a_bank)
    : own_folder_(folder), folder_(own_folder_.path()), programs_(programs) {
  set_environment(folder_);
  write_file(at("interfaces"), "bank1 = unix:bank1.sock\nbank2 = unix:bank2.sock\n");
  write_file(at("xa_config"), "[xa]\nlrm=L1\nserver=bank1\n[xa]\nlrm=L2\nserver=bank2\n");
  std::vector<Account> accounts;
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    if (Process({programs_ + "/zdbd", "--init", at(server_of(bank))}, {}, at("admin.log")).wait().code != 0) {
      throw std::runtime_error("a server's folder cannot be made; see " + at("admin.log"));
    }
    administer(bank, std::string("add-user ") + teller + " dtm");
    administer(bank, "lock-timeout 400");
    administer(bank, "orphan-age 1");
    start_server(bank);
    for (int32_t number = 1; number <= accounts_a_bank; ++number) {
      accounts.push_back({{bank, number}, "owner", first_balance});
      sum_ += first_balance;
    }
  }
  load_accounts(accounts);
}

// The password is needed by one command only; the others do not read it.
void Bed::administer(int32_t bank, const std::string &words) const {
  const std::string command = "echo " + std::string(teller_password) + " | '" + programs_ + "/zdbd' --admin '" +
                              at(server_of(bank)) + "' " + words;
  if (Process({"/bin/sh", "-c", command}, {}, at("admin.log")).wait().code != 0) {
    throw std::runtime_error("an operator's command failed; see " + at("admin.log"));
  }
}

void Bed::start_server(int32_t bank, uint64_t fatal_step) {
  const std::string name = server_of(bank);
  std::optional<Process> &server = servers_[static_cast<size_t>(bank - 1)];
  server.emplace(std::vector<std::string>{programs_ + "/zdbd", at(name), "--listen", at(name + ".sock")},
                 Process::Environment{{"ZDB_CRASH_AT", std::to_string(fatal_step)}}, at(name + ".log"));
  constexpr int tries = 1000;
  for (int i = 0; i < tries; ++i) {
    if (server->ended()) {
      server.reset();
      return;
    }
    try {
      const OwnConnection probe(name, teller, teller_password);
      return;
    } catch (const SqlError &) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  throw std::runtime_error(name + " does not start; see " + at(name + ".log"));
}

bool Bed::stop_server(int32_t bank) {
  std::optional<Process> &server = servers_[static_cast<size_t>(bank - 1)];
  if (!server || server->ended()) {
    server.reset();
    return true;
  }
  server->signal(SIGTERM);
  const ExitStatus status = server->wait();
  server.reset();
  if (!status.killed && status.code != 0) {
    throw std::runtime_error(server_of(bank) + " ended with an error; see " + at(server_of(bank) + ".log"));
  }
  return status.killed;
}

int64_t Bed::syncs_of_last_life(int32_t bank) const {
  std::ifstream log(at(server_of(bank) + ".log"));
  const std::string mark = "syncs made: ";
  int64_t syncs = -1;
  for (std::string line; std::getline(log, line);) {
    const size_t found = line.find(mark);
    syncs = found == std::string::npos ? syncs : std::stoll(line.substr(found + mark.size()));
  }
  return syncs;
}

int32_t Bed::revive_servers() {
  int32_t dead = 0;
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    std::optional<Process> &server = servers_[static_cast<size_t>(bank - 1)];
    if (!server || server->ended()) {
      ++dead;
      start_server(bank);
    }
  }
  return dead;
}

Process Bed::worker(const std::vector<std::string> &words, uint64_t fatal_step) const {
  std::vector<std::string> arguments{programs_ + "/stress"};
  arguments.insert(arguments.end(), words.begin(), words.end());
  return Process(arguments, {{"BANK_DIE_AT", std::to_string(fatal_step)}}, at("workers.log"));
}

void Bed::wait_for_orphans() const {
  constexpr int tries = 1000;
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    OwnConnection connection(server_of(bank), teller, teller_password);
    int left = tries;
    while (!connection.run("SELECT xactname FROM master..systransactions WHERE state < 6").rows.empty()) {
      if (--left == 0) {
        throw std::runtime_error("a branch that was left alone is not undone at " + server_of(bank));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

namespace {

std::vector<std::string> shared_transfers(int32_t bank) {
  std::vector<std::string> names = noted_transfers(bank);
  std::erase_if(names, [](const std::string &name) { return name.front() == local_mark; });
  return names;
}

}  // namespace

void Bed::check_money() const {
  int64_t sum = 0;
  for (const Account &account : balances()) {
    sum += account.balance;
  }
  if (sum != sum_) {
    throw std::runtime_error("the sum of all balances is " + std::to_string(sum) + ", not " + std::to_string(sum_));
  }
  if (shared_transfers(1) != shared_transfers(2)) {
    throw std::runtime_error("the banks have noted different transfers");
  }
}

void Bed::check_nothing_in_doubt() const {
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    if (const size_t left = in_doubt(bank); left != 0) {
      throw std::runtime_error(std::to_string(left) + " branches are left in doubt at " + server_of(bank));
    }
  }
}

size_t Bed::in_doubt(int32_t bank) {
  OwnConnection connection(server_of(bank), teller, teller_password);
  return connection.run("SELECT xactname FROM master..systransactions WHERE state >= 7").rows.size();
}

bool Bed::is_noted(int32_t bank, const std::string &global) {
  const std::vector<std::string> names = noted_transfers(bank);
  return std::find(names.begin(), names.end(), global) != names.end();
}
