// Xadtm's command line: help, choice of the command, exit status.
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "commands.h"
#include "shown_text.h"
#include "standard_files.h"

namespace {

struct Command {
  const char *name;
  int (*run)(const Arguments &arguments);
  const char *options;
  bool settles;  // its exit status tells what has been done, whatever becomes of the output
};

constexpr const char *help = R"(usage: xadtm check -o OPEN_STRING [--flavour F]
       xadtm branches -o OPEN_STRING [--flavour F] [--json]
       xadtm commit|rollback|forget NAME -o OPEN_STRING [--flavour F] [--yes]
       xadtm names encode FORMATID GTRID BQUAL LRM
       xadtm names decode NAME
       xadtm log FILE [--failures]
       xadtm --help

Looks after a ZDB server as an X/Open XA resource manager: tries a configuration, shows and settles branches
in doubt, reads trace logs. It works through libxadtm as a transaction manager does.

  -o OPEN_STRING  what the transaction manager gives to xa_open, in quotes: "-NL1 -Uuser -Ppassword"
  --flavour F     whose switch record to use: mts, tux or txs (which it is unless given)

The environment is that of the transaction manager: XACONFIGFILE, TARVEX, XALOGFILE; xadtm(1) explains more.

check     shows where the configuration comes from, each option of the open string and each entry of the
          configuration file that is meant for its LRM, and what of that is ignored or rejected and why; then
          opens the resource manager (with the library's check that the server is ready), probes recovery and
          closes it. Passwords are never shown. What the library says while it does so goes to a private
          temporary file, which is gone afterwards: nothing is written to the log that the configuration
          or -L names, and no trace is shown.
          exit status: 0 a transaction manager can use it as it stands (remarks may be left), 1 it cannot,
          2 bad usage

branches  lists the branches in doubt of the open string's LRM: those that are prepared, and those that were
          settled past their transaction manager and wait to be forgotten. formatID is decimal, gtrid and bqual
          are hexadecimal. A control character in a name is shown as \xHH, and understood so by the other
          commands. With --json: an array of objects with formatID, gtrid, bqual and name, in which all bytes
          beyond printing ASCII characters are \xHH.
          exit status: 0 listed, 1 the resource manager refused, 2 bad usage

commit, rollback, forget
          settle the branch NAME, which is a branch name as branches lists it. The branch is shown, and a
          question asked, which only "yes" answers; --yes answers it. Without it, input and output must be a
          terminal.
          This goes past the transaction manager: settle a branch only when its outcome elsewhere is known.
          exit status: 0 done, 1 the resource manager refused, 2 bad usage (nothing was tried), 3 there is no
          such branch, 4 the question was not answered with yes, 5 the branch has another outcome already, by
          which it was settled past the transaction manager, 6 it is not known whether it was done

names     makes a branch name of an XID, and an XID of a branch name. FORMATID is a number, or 0x and
          hexadecimal digits; GTRID and BQUAL are hexadecimal digits; "-" is an empty BQUAL.
          exit status: 0 done, 2 bad usage or no branch name

log       shows a trace log (traceflags, -T): the calls as a tree, each with the time at which it began, its
          result and how long it took, when it has returned; a heading names process and thread. The log has whole seconds: a call that is said to
          take 0 s may have taken almost one, and 1 s anything from a moment to almost two. With --failures
          only the XA calls that failed are shown, each with the calls around it and with what was said and
          called before it failed. What could not be read is counted at the end. Passwords are masked.
          exit status: 0 read, 2 bad usage or a file that cannot be read
)";

constexpr Command commands[] = {
    {"check", check_command, "-o --flavour", false},
    {"branches", branches_command, "-o --flavour --json", false},
    {"commit", settle_command, "-o --flavour --yes", true},
    {"rollback", settle_command, "-o --flavour --yes", true},
    {"forget", settle_command, "-o --flavour --yes", true},
    {"names", names_command, "", false},
    {"log", log_command, "--failures", false},
};

// An option that would do nothing is a mistake: somebody may rely on it.
void check_options(const Command &command, const Arguments &arguments) {
  for (const std::string &option : arguments.given) {
    if (std::string_view(command.options).find(option) == std::string_view::npos) {
      throw UsageError(option + " does not go with " + command.name +
                       "; leave it out (xadtm --help lists the options)");
    }
  }
}

int run_command(const Command &command, const Arguments &arguments) {
  check_options(command, arguments);
  const int status = command.run(arguments);
  if (!std::cout.flush() && !command.settles) {
    throw UsageError("the output cannot be written; look at the place that it goes to");
  }
  return status;
}

int show_help() {
  if (!(std::cout << help << std::flush)) {
    throw UsageError("the output cannot be written; look at the place that it goes to");
  }
  return exit_done;
}

int run(const Arguments &arguments) {
  if (arguments.help) {
    return show_help();
  }
  if (arguments.words.empty()) {
    throw UsageError("give a command; xadtm --help lists them");
  }
  for (const Command &command : commands) {
    if (arguments.words[0] == command.name) {
      return run_command(command, arguments);
    }
  }
  throw UsageError("there is no such command; xadtm --help lists them");
}

int complain(const std::exception &error, int status) {
  std::cout.flush();
  std::cerr << "xadtm: " << visible(error.what()) << '\n';
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  occupy_standard_files();
  std::signal(SIGPIPE, SIG_IGN);  // the exit status tells the outcome, whoever reads the output
  try {
    return run(read_arguments(argc, argv));
  } catch (const UsageError &error) {
    return complain(error, exit_usage);
  } catch (const std::exception &error) {
    return complain(error, exit_refused);
  }
}
