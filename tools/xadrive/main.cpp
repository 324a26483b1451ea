// The command line of xadrive: options, reading the script, exit status.
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "libraries.h"
#include "log_place.h"
#include "parser.h"
#include "player.h"
#include "shown_text.h"
#include "standard_files.h"

namespace {

constexpr int exit_fine = 0;
constexpr int exit_differs = 1;
constexpr int exit_unusable = 2;

struct Options {
  std::string script;
  std::string flavour;
  std::string library_folder;
  bool check_only = false;
};

constexpr const char *help_head = R"(usage: xadrive [--flavour mts|tux|txs] [--lib-dir DIR] [--check] SCRIPT|-

Plays an XA script: loads libtrvcommon.so, libquillet.so and libxadtm.so, takes the switch record of a
transaction-manager flavour and makes the calls that the script's lines ask for, one after the other.
Each call is printed with its result. The first result that a line does not expect ends the run.

  --flavour NAME  the switch to use; goes before the script's own flavour line
  --lib-dir DIR   where the libraries are; otherwise where the loader finds them: along LD_LIBRARY_PATH, then
                  where they were built or installed with this program, then in the system's folders
  --check         only read the script and say what is wrong with it
  --help          this text

exit status: 0 all results as expected, 1 a result differed, 2 bad usage, a bad script, a library that
cannot be loaded, or output that could not be written (the script is played to its end all the same)

Lines of a script (words in capitals stand for values, brackets for what may be left out):
)";

constexpr const char *help_tail = R"(
A line may end in "=> RESULT": an XA code for an XA call (=> XA_OK), a number of XIDs and perhaps their
names for recover (=> 2 X1 X2), a number for statement and break, a branch state for state (=> prepared),
done (which is what these expect by themselves) or refused for server, user, dtm and force, and for sql ok
(perhaps with all rows, => ok "7 | Ann" "8 | null"), failed (the server refused) or none (no connection).
Without it the result is not checked.
A line may begin with "@NAME": it then runs on the thread of that name, made at its first use, and the next
line waits for it. After "@NAME&" the next line does not wait; "wait NAME" does.
server makes an empty server in memory; user, dtm, force, break and state reach these servers only. Open may
lead to others, too: those of the interfaces file.
sql runs on the connection that the library has published for RMID, as application code does between start
and end. Its rows, row counts and messages are printed below it; binaries are hexadecimal digits.
FLAGS are TM... names joined by "|", or 0x and hexadecimal digits. GTRID and BQUAL are hexadecimal digits
or quoted text. The XID T1.a, unless an xid line defines it, is branch "a" of the global transaction "T1",
T1 alone its branch "1", with formatID 0x5841; null gives a null pointer. Texts with blanks stand in double
quotes, with the escapes \" \\ \n \t \xHH. "#" begins a comment.

Example:
  flavour tux
  env XACONFIGFILE xa_config             # holds [xa] with lrm=L1
  server bank1
  user bank1 sa secret
  open 1 "-NL1 -Usa -Psecret -Sbank1" => XA_OK
  start 1 X1 TMNOFLAGS => XA_OK
  sql 1 "select name from t where id = 7" => ok "Ann"
  end 1 X1 TMSUCCESS => XA_OK
  prepare 1 X1 => XA_OK
  recover 1 10 TMSTARTRSCAN => 1 X1
  commit 1 X1 => XA_OK
  @other open 1 "-NL1 -Usa -Psecret -Sbank1" => XA_OK
  close 1 => XA_OK
)";

int usage_error(const std::string &message) {
  std::cerr << "xadrive: " << visible(message) << "; --help explains the usage\n";
  return exit_unusable;
}

// Fills options in; an exit status when there is nothing more to do.
std::optional<int> read_options(int argc, char **argv, Options &options) {
  static constexpr option long_options[] = {
      {"flavour", required_argument, nullptr, 'f'},
      {"lib-dir", required_argument, nullptr, 'l'},
      {"check", no_argument, nullptr, 'c'},
      {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0},
  };
  opterr = 0;  // getopt's own messages show words as they are
  int letter = 0;
  while ((letter = getopt_long(argc, argv, "f:l:ch", long_options, nullptr)) != -1) {
    switch (letter) {
      case 'f':
        options.flavour = optarg;
        break;
      case 'l':
        options.library_folder = optarg;
        break;
      case 'c':
        options.check_only = true;
        break;
      case 'h':
        std::cout << help_head << script_forms() << help_tail;
        return exit_fine;
      default:
        return usage_error("unusable option, or one without its value: " + std::string(argv[optind - 1]));
    }
  }
  if (!options.flavour.empty() && !is_flavour(options.flavour)) {
    return usage_error("\"" + options.flavour + "\" is no flavour: give mts, tux or txs");
  }
  if (optind + 1 != argc) {
    return usage_error("give one script, or - for standard input");
  }
  options.script = argv[optind];
  return std::nullopt;
}

std::optional<std::string> text_of_script(const std::string &path) {
  if (path == "-") {
    return text_of_file(STDIN_FILENO);
  }
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::optional<std::string> text = text_of_file(file);
  close(file);
  return text;
}

bool makes_calls(const Script &script) {
  for (const Command &command : script.commands) {
    if (command.verb <= Verb::sql) {
      return true;
    }
  }
  return false;
}

// The open string of the first open, which decides where the log goes; none without any open.
std::optional<std::string> first_open_string(const Script &script) {
  for (const Command &command : script.commands) {
    if (command.verb == Verb::open) {
      return command.info.value_or("");
    }
  }
  return std::nullopt;
}

int play_script(const Options &options, const Script &script) {
  const std::string flavour = options.flavour.empty() ? script.flavour : options.flavour;
  if (flavour.empty() && makes_calls(script)) {
    std::cerr << "xadrive: " << visible(script.file)
              << ": no flavour: give --flavour, or write a line such as \"flavour tux\" before the first XA call\n";
    return exit_unusable;
  }
  const Libraries libraries = load_libraries(options.library_folder, flavour);
  const bool as_expected = play(script, libraries);
  if (const std::optional<std::string> info = first_open_string(script)) {
    std::cout << "trace log: " << visible(log_place(libraries, *info)) << std::endl;
  }
  return as_expected ? exit_fine : exit_differs;
}

int run(int argc, char **argv) {
  Options options;
  if (const std::optional<int> status = read_options(argc, argv, options)) {
    return *status;
  }
  const std::optional<std::string> text = text_of_script(options.script);
  if (!text) {
    std::cerr << "xadrive: cannot read " << visible(options.script) << '\n';
    return exit_unusable;
  }
  std::vector<std::string> errors;
  const Script script = parse_script(options.script, *text, errors);
  for (const std::string &error : errors) {
    std::cerr << visible("xadrive: " + options.script + ':' + error) << '\n';
  }
  if (!errors.empty()) {
    return exit_unusable;
  }
  return options.check_only ? exit_fine : play_script(options, script);
}

// The script has been played to its end, so that no branch is left half done; but nobody has seen all of it.
int with_output(int status) {
  if (std::cout.flush() || status != exit_fine) {
    return status;
  }
  std::cerr << "xadrive: the output cannot be written; look at the place that it goes to\n";
  return exit_unusable;
}

}  // namespace

int main(int argc, char **argv) {
  occupy_standard_files();
  std::signal(SIGPIPE, SIG_IGN);  // a script goes on when nobody reads its output any more
  try {
    return with_output(run(argc, argv));
  } catch (const std::exception &error) {
    std::cerr << "xadrive: " << visible(error.what()) << '\n';
    return exit_unusable;
  }
}
