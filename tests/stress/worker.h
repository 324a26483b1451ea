// What the worker processes of a stress run do; each has a library and a transaction manager of its own.
#pragma once

#include <string>

// Exit codes of workers.
inline constexpr int worker_committed = 0;  // or recovered
inline constexpr int worker_failed = 1;
inline constexpr int worker_rolled_back = 3;
inline constexpr int worker_unknown = 4;

// The kinds of transaction, by name: "two-phase", "one-phase", "rollback" (after all are prepared).
int do_transaction(const std::string &kind, const std::string &global);
// Completes what the worker of that name left in doubt; an empty name stands for everybody.
int do_recovery(const std::string &name);
// Random transfers under names that begin with the worker's, until the process is told to stop by SIGTERM; so many
// percent of them are rolled back after all are prepared. A quiet worker does not print its calls.
int do_transfers(const std::string &name, unsigned seed, int accounts_a_bank, int rolled_back_percent, bool quiet);
