// Xadtm commit, rollback and forget: settle one branch past its transaction manager.
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "branch_name.h"
#include "branch_text.h"
#include "commands.h"
#include "hex_text.h"
#include "session.h"
#include "settle_outcome.h"
#include "shown_text.h"
#include "xid_bytes.h"

namespace {

int32_t settle(const xa_switch_t &xa, const std::string &verb, const XID &xid) {
  if (verb == "commit") {
    return xa.xa_commit_entry(&xid, tool_rmid, TMNOFLAGS);
  }
  return verb == "rollback" ? xa.xa_rollback_entry(&xid, tool_rmid, TMNOFLAGS)
                            : xa.xa_forget_entry(&xid, tool_rmid, TMNOFLAGS);
}

// Nothing is to be settled that could not be shown.
void show(const XID &xid, const std::string &name) {
  std::cout << "branch   " << pasteable(name) << '\n';
  std::cout << "formatID " << xid.formatID << '\n';
  std::cout << "gtrid    " << hex_of(gtrid_of(xid)) << '\n';
  std::cout << "bqual    " << (bqual_of(xid).empty() ? "-" : hex_of(bqual_of(xid))) << '\n';
  std::cout
      << "This goes past the transaction manager. If it decides otherwise, or has decided otherwise elsewhere, the "
         "data of the resource managers will not agree.\n";
  if (!std::cout.flush()) {
    throw UsageError("the branch cannot be shown, and nothing was done; look at the place that the output goes to");
  }
}

// Whether the question can be both seen and answered.
bool can_ask() {
  return isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

// A line that was cut off is no answer.
bool is_confirmed(const std::string &verb) {
  std::cout << "Type yes to " << verb << " it: " << std::flush;
  std::string answer;
  return std::getline(std::cin, answer) && !std::cin.eof() && answer == "yes";
}

// The exit status tells the outcome even when the output has come to nothing meanwhile.
int report(const std::string &verb, int32_t code) {
  const std::string result = std::string("xa_").append(verb).append(": ").append(code_text(code)).append("\n");
  if (!(std::cout << result << std::flush)) {
    std::cerr << result;
    std::cout.clear();
  }
  const SettleOutcome outcome = settle_outcome(verb, code);
  if (outcome.status != exit_done) {
    std::cerr << "xadtm: " << outcome.message << '\n';
  }
  return outcome.status;
}

// Whether the branch is there to be settled; says why not.
bool is_there(const Session &session, const NamedBranch &branch) {
  const std::vector<XID> xids = session.in_doubt();
  if (std::any_of(xids.begin(), xids.end(), [&](const XID &xid) { return same_xid(xid, branch.xid); })) {
    return true;
  }
  std::cerr << "xadtm: there is no branch of this name in doubt; xadtm branches lists those that are. A branch that is "
               "not prepared is rolled back by its transaction manager, or by the server's operator: zdbd --admin DIR "
               "list shows it, and zdbd --admin DIR rollback NAME ends it\n";
  return false;
}

}  // namespace

int settle_command(const Arguments &arguments) {
  const std::string &verb = arguments.words[0];
  if (arguments.words.size() != 2) {
    throw UsageError("write " + verb + " NAME -o OPEN_STRING, NAME being a branch name as xadtm branches lists it");
  }
  const NamedBranch branch = read_branch_name(original_of(arguments.words[1]));
  open_string_of(arguments);
  if (!arguments.yes && !can_ask()) {
    throw UsageError("there is no terminal to ask at, and nothing was done; --yes answers the question beforehand");
  }
  const Session session(arguments);
  if (session.lrm() != branch.lrm) {
    std::cerr << "xadtm: the branch belongs to "
              << (branch.lrm.empty()
                      ? "an LRM without a name; give its open string, without -N, and --flavour mts"
                      : "the LRM " + pasteable(branch.lrm) + "; give the open string that names it with -N")
              << '\n';
    return exit_no_branch;
  }
  if (!is_there(session, branch)) {
    return exit_no_branch;
  }
  show(branch.xid, branch_name(branch.xid, branch.lrm));
  if (!arguments.yes && !is_confirmed(verb)) {
    std::cout << "\nNothing was done, since the answer was not yes.\n";
    return exit_not_sure;
  }
  return report(verb, settle(session.xa(), verb, branch.xid));
}
