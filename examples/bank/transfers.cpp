// Text files, tables and the two updates of a transfer.
#include "transfers.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "database.h"

namespace {

constexpr const char *tables =
    "DROP TABLE IF EXISTS account; DROP TABLE IF EXISTS transfer;"
    "CREATE TABLE account (number INTEGER PRIMARY KEY, owner TEXT NOT NULL,"
    "                      balance INTEGER NOT NULL CHECK (balance >= 0));"
    "CREATE TABLE transfer (name TEXT NOT NULL PRIMARY KEY, amount INTEGER NOT NULL) WITHOUT ROWID";

}  // namespace

std::string server_of(int32_t bank) {
  return std::string("bank").append(std::to_string(bank));
}

std::string lrm_of(int32_t bank) {
  return std::string("L").append(std::to_string(bank));
}

namespace {

// The text as SQL writes it.
std::string quoted(const std::string &text) {
  std::string result = "'";
  for (const char c : text) {
    result.append(c == '\'' ? 2 : 1, c);
  }
  result.push_back('\'');
  return result;
}

// Calls the reader with each line's words; a line that it cannot read is an error with the line's number.
template <typename Reader>
void read_lines(const std::string &file, const char *form, Reader reader) {
  std::ifstream stream(file);
  if (!stream) {
    throw std::runtime_error("cannot read " + file);
  }
  std::string line;
  for (int number = 1; std::getline(stream, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    if ((words >> std::ws).eof()) {
      continue;
    }
    std::string rest;
    if (!reader(words) || (words >> rest)) {
      throw std::runtime_error(file + ":" + std::to_string(number) + ": write " + form);
    }
  }
}

bool is_bank(const AccountId &id) {
  return id.bank >= 1 && id.bank <= bank_count;
}

}  // namespace

std::vector<Account> read_accounts(const std::string &file) {
  std::vector<Account> accounts;
  read_lines(file, "BANK NUMBER OWNER BALANCE", [&](std::istringstream &words) {
    Account account;
    words >> account.id.bank >> account.id.number >> account.owner >> account.balance;
    accounts.push_back(account);
    return !words.fail() && is_bank(account.id) && account.balance >= 0;
  });
  return accounts;
}

std::vector<Transfer> read_transfers(const std::string &file) {
  std::vector<Transfer> transfers;
  read_lines(file, "NAME BANK NUMBER BANK NUMBER AMOUNT", [&](std::istringstream &words) {
    Transfer transfer;
    words >> transfer.name >> transfer.from.bank >> transfer.from.number >> transfer.to.bank >> transfer.to.number >>
        transfer.amount;
    transfers.push_back(transfer);
    constexpr size_t name_max = 40;
    return !words.fail() && is_bank(transfer.from) && is_bank(transfer.to) && transfer.amount > 0 &&
           transfer.name.size() <= name_max;
  });
  return transfers;
}

void load_accounts(const std::vector<Account> &accounts) {
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    OwnConnection connection(server_of(bank), teller, teller_password);
    connection.run(tables);
    for (const Account &account : accounts) {
      if (account.id.bank == bank) {
        connection.run("INSERT INTO account VALUES (" + std::to_string(account.id.number) + ", " +
                       quoted(account.owner) + ", " + std::to_string(account.balance) + ")");
      }
    }
  }
}

std::vector<Account> balances() {
  std::vector<Account> accounts;
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    OwnConnection connection(server_of(bank), teller, teller_password);
    for (const auto &row : connection.run("SELECT number, owner, balance FROM account ORDER BY number").rows) {
      accounts.push_back({{bank, std::stoi(row[0])}, row[1], std::stoll(row[2])});
    }
  }
  return accounts;
}

namespace {

void change_balance(const AccountId &account, int64_t difference, const std::string &global) {
  QLT_CONNECTION *connection = published_connection(lrm_of(account.bank));
  if (connection == nullptr) {
    throw std::runtime_error("no connection is published for " + lrm_of(account.bank));
  }
  const std::string amount = std::to_string(difference);
  const SqlAnswer changed = run_sql(connection, "UPDATE account SET balance = balance + (" + amount +
                                                    ") WHERE number = " + std::to_string(account.number));
  if (changed.count != 1) {
    throw std::runtime_error(server_of(account.bank) + " has no account " + std::to_string(account.number));
  }
  run_sql(connection, "INSERT INTO transfer VALUES (" + quoted(global) + ", " + amount +
                          ") ON CONFLICT (name) DO UPDATE SET amount = amount + excluded.amount");
}

}  // namespace

// The first bank comes first in every transfer, so that no two of them wait for each other.
void move_money(const Transfer &transfer, const std::string &global) {
  if (transfer.from.bank <= transfer.to.bank) {
    change_balance(transfer.from, -transfer.amount, global);
    change_balance(transfer.to, transfer.amount, global);
  } else {
    change_balance(transfer.to, transfer.amount, global);
    change_balance(transfer.from, -transfer.amount, global);
  }
}

std::vector<std::string> noted_transfers(int32_t bank) {
  OwnConnection connection(server_of(bank), teller, teller_password);
  std::vector<std::string> names;
  for (const auto &row : connection.run("SELECT name FROM transfer ORDER BY name").rows) {
    names.push_back(row[0]);
  }
  return names;
}
