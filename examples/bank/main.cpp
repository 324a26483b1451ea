// The example application: money moved between two banks by global transactions, and the recovery of one
// that was left in doubt.
#include <unistd.h>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>

#include <csignal>

#include "coordinator.h"
#include "database.h"
#include "transfers.h"
#include "xadtm.h"

namespace {

constexpr const char *usage =
    R"(usage: bank load ACCOUNTS       makes the tables of both banks and loads the accounts
       bank balances            prints all accounts and their sum
       bank transfer TRANSFERS [--die-in-doubt NAME]
                                runs each transfer as a global transaction; the process
                                kills itself when NAME is prepared and decided on
       bank recover             completes what is in doubt at the banks

The servers bank1 and bank2 are found by $TARVEX/interfaces, the configuration of the
resource managers by $XACONFIGFILE. Decisions are kept in $TARVEX/decisions.
)";

std::string decisions_file() {
  const char *folder = std::getenv("TARVEX");
  if (folder == nullptr) {
    throw std::runtime_error("set $TARVEX to the folder of the file interfaces");
  }
  return std::string(folder) + "/decisions";
}

std::vector<ResourceManager> resource_managers() {
  std::vector<ResourceManager> managers;
  for (int32_t bank = 1; bank <= bank_count; ++bank) {
    managers.push_back(
        {bank, lrm_of(bank), "-N" + lrm_of(bank) + " -U" + teller + " -P" + teller_password + " -S" + server_of(bank)});
  }
  return managers;
}

void print_call(const std::string &call, int32_t code) {
  const bool counts = call.starts_with("recover") && code >= 0;
  std::cout << "  xa_" << call << " => " << (counts ? std::to_string(code) : xa_code_name(code)) << std::endl;
}

int print_balances() {
  int64_t sum = 0;
  for (const Account &account : balances()) {
    std::cout << "  " << server_of(account.id.bank) << ' ' << std::setw(3) << account.id.number << "  " << std::left
              << std::setw(8) << account.owner << std::right << std::setw(8) << account.balance << '\n';
    sum += account.balance;
  }
  std::cout << "  sum" << std::setw(22) << sum << std::endl;
  return 0;
}

std::string outcome_text(Outcome outcome, const std::string &reason) {
  switch (outcome) {
    case Outcome::committed:
      return "committed";
    case Outcome::rolled_back:
      return "rolled back: " + reason;
    case Outcome::mixed:
      return "committed in part only: " + reason + "; put the data right, then forget the branch";
    case Outcome::unknown:
      break;
  }
  return "not known, committed or rolled back: " + reason;
}

int run_transfers(const std::string &file, const std::string &fatal) {
  const std::vector<Transfer> transfers = read_transfers(file);
  Decisions decisions(decisions_file());
  Coordinator coordinator(tarvex_TUX_xa_switch, resource_managers(), decisions,
                          [&](const std::string &call, int32_t code) {
                            print_call(call, code);
                            if (call == "prepare " + fatal + " 2" && code == XA_OK) {
                              decisions.commit(fatal);
                              std::cout << "  " << fatal << " is prepared and decided; the process dies" << std::endl;
                              kill(getpid(), SIGKILL);
                            }
                          });
  coordinator.open();
  for (const Transfer &transfer : transfers) {
    std::cout << transfer.name << ": " << transfer.amount << " from " << server_of(transfer.from.bank) << '/'
              << transfer.from.number << " to " << server_of(transfer.to.bank) << '/' << transfer.to.number
              << std::endl;
    const Outcome outcome = coordinator.run(transfer.name, [&] { move_money(transfer, transfer.name); });
    std::cout << "  " << outcome_text(outcome, coordinator.reason()) << std::endl;
  }
  coordinator.close();
  return 0;
}

int recover() {
  Decisions decisions(decisions_file());
  Coordinator coordinator(tarvex_TUX_xa_switch, resource_managers(), decisions, print_call);
  coordinator.open();
  const int32_t completed = coordinator.recover("");
  coordinator.close();
  std::cout << "  branches completed: " << completed << std::endl;
  return 0;
}

int run(const std::vector<std::string> &words) {
  if (words.size() == 2 && words[0] == "load") {
    load_accounts(read_accounts(words[1]));
    return 0;
  }
  if (words.size() == 1 && words[0] == "balances") {
    return print_balances();
  }
  if (words.size() == 2 && words[0] == "transfer") {
    return run_transfers(words[1], "");
  }
  if (words.size() == 4 && words[0] == "transfer" && words[2] == "--die-in-doubt") {
    return run_transfers(words[1], words[3]);
  }
  if (words.size() == 1 && words[0] == "recover") {
    return recover();
  }
  std::cerr << usage;
  return 2;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    hear_messages();
    return run({argv + 1, argv + argc});
  } catch (const std::exception &error) {
    std::cerr << "bank: " << error.what() << '\n';
    return 1;
  }
}
