/* settle_command.cpp - xadtm commit, rollback and forget: settle one branch past its transaction manager. */
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "branch_name.h"
#include "commands.h"
#include "session.h"
#include "texts.h"

static int32_t settle(const xa_switch_t &xa, const std::string &verb, const XID &xid) {
  if (verb == "commit") {
    return xa.xa_commit_entry(&xid, tool_rmid, TMNOFLAGS);
  }
  return verb == "rollback" ? xa.xa_rollback_entry(&xid, tool_rmid, TMNOFLAGS)
                            : xa.xa_forget_entry(&xid, tool_rmid, TMNOFLAGS);
}

static bool is_done(const std::string &verb, int32_t code) {
  return code == XA_OK || (verb == "rollback" && code >= XA_RBBASE && code <= XA_RBEND);
}

static const char *advice(const std::string &verb, int32_t code) {
  if (verb == "forget" && code == XAER_NOTA) {
    return "only branches that were settled past their transaction manager can be forgotten; xadtm commit or rollback "
           "settles one that is prepared";
  }
  switch (code) {
    case XA_HEURCOM:
      return "it had been committed before, past its transaction manager; xadtm forget removes it from the list";
    case XA_HEURRB:
      return "it had been rolled back before, past its transaction manager; xadtm forget removes it from the list";
    case XA_HEURMIX:
    case XA_HEURHAZ:
      return "parts of it may have been committed and others rolled back; look at the data, then xadtm forget removes "
             "it from the list";
    case XA_RETRY:
      return "it cannot be settled now; try again later";
    case XAER_NOTA:
      return "the server does not know it any more; xadtm branches shows what is left";
    case XAER_PROTO:
      return "its state does not allow that: only prepared branches can be committed, and only those that were settled "
             "past their transaction manager forgotten";
    case XAER_RMFAIL:
    case XAER_RMERR:
      return "it is not known what became of it; xadtm check tells whether the server can be reached, and xadtm "
             "branches whether the branch is still there";
    default:
      return "the library's log tells more; xadtm log FILE --failures shows it";
  }
}

static void show(const XID &xid, const std::string &name) {
  std::cout << "branch   " << printable(name) << '\n';
  std::cout << "formatID " << xid.formatID << '\n';
  std::cout << "gtrid    " << hex_of(gtrid_of(xid)) << '\n';
  std::cout << "bqual    " << (bqual_of(xid).empty() ? "-" : hex_of(bqual_of(xid))) << '\n';
  std::cout
      << "This goes past the transaction manager. If it decides otherwise, or has decided otherwise elsewhere, the "
         "data of the resource managers will not agree.\n";
}

static bool is_confirmed(const std::string &verb) {
  std::cout << "Type yes to " << verb << " it: " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "yes";
}

int settle_command(const Arguments &arguments) {
  const std::string &verb = arguments.words[0];
  if (arguments.words.size() != 2) {
    throw UsageError("write " + verb + " NAME -o OPEN_STRING, NAME being a branch name as xadtm branches lists it");
  }
  const NamedBranch branch = read_branch_name(arguments.words[1]);
  open_string_of(arguments);
  if (!arguments.yes && isatty(STDIN_FILENO) == 0) {
    throw UsageError("there is no terminal to ask at, and nothing was done; --yes answers the question beforehand");
  }
  const Session session(arguments);
  if (session.lrm() != branch.lrm) {
    std::cerr << "xadtm: the branch belongs to the LRM " << printable(branch.lrm)
              << "; give the open string that names it with -N\n";
    return exit_no_branch;
  }
  const std::vector<XID> xids = session.in_doubt();
  if (std::none_of(xids.begin(), xids.end(), [&](const XID &xid) { return same_xid(xid, branch.xid); })) {
    std::cerr << "xadtm: there is no branch of this name in doubt; xadtm branches lists those that are\n";
    return exit_no_branch;
  }
  show(branch.xid, arguments.words[1]);
  if (!arguments.yes && !is_confirmed(verb)) {
    std::cout << "\nNothing was done, since the answer was not yes.\n";
    return exit_not_sure;
  }
  const int32_t code = settle(session.xa(), verb, branch.xid);
  std::cout << "xa_" << verb << ": " << code_text(code) << '\n';
  if (is_done(verb, code)) {
    return exit_done;
  }
  std::cout.flush();
  std::cerr << "xadtm: " << verb << " was not done: " << advice(verb, code) << '\n';
  return exit_refused;
}
