// The same two updates of a transfer, once as a transaction of plain SQLite with one sync, and once as a
// global transaction over two servers with durable prepare and commit.
#include "rate.h"

#include <sqlite3.h>

#include <csignal>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "worker.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void execute(sqlite3 *database, const std::string &sql) {
  if (sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(std::string("plain SQLite: ") + sqlite3_errmsg(database));
  }
}

// Transactions a second: a row updated, a row inserted, the write-ahead log synced at each commit.
double plain_rate(const std::string &file, std::chrono::seconds duration) {
  sqlite3 *handle = nullptr;
  sqlite3_open(file.c_str(), &handle);
  const std::unique_ptr<sqlite3, int (*)(sqlite3 *)> database(handle, sqlite3_close);
  execute(handle,
          "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 4000;"
          "CREATE TABLE account (number INTEGER PRIMARY KEY, owner TEXT NOT NULL, balance INTEGER NOT NULL);"
          "CREATE TABLE transfer (name TEXT NOT NULL PRIMARY KEY, amount INTEGER NOT NULL) WITHOUT ROWID;"
          "INSERT INTO account VALUES (1, 'owner', 1000)");
  const auto start = Clock::now();
  int64_t done = 0;
  while (seconds_since(start) < static_cast<double>(duration.count())) {
    const std::string name = std::to_string(++done);
    execute(handle,
            "BEGIN IMMEDIATE; UPDATE account SET balance = balance + 1 WHERE number = 1;"
            "INSERT INTO transfer VALUES ('" +
                name + "', 1); COMMIT");
  }
  return static_cast<double>(done) / seconds_since(start);
}

struct Rate {
  double transfers = 0;  // a second
  double syncs = 0;      // of both servers, a transfer
};

int64_t count_transfers() {
  return static_cast<int64_t>(noted_transfers(1).size());
}

// Restarts the servers, so that their syncs are those of the measurement.
void restart(Bed &bed) {
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    bed.stop_server(bank);
    bed.start_server(bank);
  }
}

Rate transfer_rate(Bed &bed, int32_t clients, std::chrono::seconds duration, int32_t accounts) {
  restart(bed);
  const int64_t before = count_transfers();
  const auto start = Clock::now();
  std::vector<Process> workers;
  workers.reserve(static_cast<size_t>(clients));
  for (int32_t client = 0; client < clients; ++client) {
    workers.push_back(bed.worker({"transfer", std::string("r").append(std::to_string(client)), std::to_string(client),
                                  std::to_string(accounts), "0", "quiet"}));
  }
  std::this_thread::sleep_for(duration);
  const double seconds = seconds_since(start);
  const auto done = static_cast<double>(count_transfers() - before);
  for (Process &worker : workers) {
    worker.signal(SIGTERM);
  }
  for (Process &worker : workers) {
    if (worker.wait().code != worker_committed) {
      throw std::runtime_error("a client ended with an error");
    }
  }
  const auto all = static_cast<double>(count_transfers() - before);
  int64_t syncs = 0;
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    bed.stop_server(bank);
    syncs += bed.syncs_of_last_life(bank);
    bed.start_server(bank);
  }
  return {done / seconds, static_cast<double>(syncs) / all};
}

}  // namespace

void measure_rate(Bed &bed, std::chrono::seconds duration, int32_t accounts_a_bank) {
  std::cout << std::fixed << std::setprecision(2);
  const double plain = plain_rate(bed.folder() + "/plain.db", duration);
  std::cout << "plain SQLite: " << plain << " transactions a second, one sync each" << std::endl;
  for (const int32_t clients : {1, 4}) {
    const Rate rate = transfer_rate(bed, clients, duration, accounts_a_bank);
    std::cout << clients << (clients == 1 ? " client: " : " clients: ") << rate.transfers << " transfers a second, "
              << rate.syncs << " syncs of the servers each (" << rate.syncs / 2
              << " a branch); plain SQLite for as many "
              << "syncs: " << plain / rate.syncs << " a second, so " << 100 * rate.transfers * rate.syncs / plain
              << " % of it" << std::endl;
  }
  bed.check_nothing_in_doubt();
  bed.check_money();
}
