// The accounts of banks, each bank on a server of its own, and transfers between them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// An account: the number of its bank (from 1) and its own number there.
struct AccountId {
  int32_t bank = 0;
  int32_t number = 0;
};

struct Account {
  AccountId id;
  std::string owner;
  int64_t balance = 0;
};

struct Transfer {
  std::string name;
  AccountId from;
  AccountId to;
  int64_t amount = 0;
};

inline constexpr int32_t bank_count = 2;
// Bank 1 is the server "bank1" behind the resource manager "L1", and so on; all have the same teller.
std::string server_of(int32_t bank);
std::string lrm_of(int32_t bank);
inline constexpr const char *teller = "teller";
inline constexpr const char *teller_password = "secret";

// Lines "BANK NUMBER OWNER BALANCE" and "NAME BANK NUMBER BANK NUMBER AMOUNT"; "#" begins a comment.
std::vector<Account> read_accounts(const std::string &file);
std::vector<Transfer> read_transfers(const std::string &file);

// Makes the tables of all banks, empty, and puts the accounts into them. Throws SqlError.
void load_accounts(const std::vector<Account> &accounts);
std::vector<Account> balances();

// Does both halves of a transfer on the published connections of a running global transaction, and notes it at both
// banks under the name. Throws std::runtime_error when it cannot be done.
void move_money(const Transfer &transfer, const std::string &global);

// The names noted at a bank, sorted.
std::vector<std::string> noted_transfers(int32_t bank);
