// The database server as a process: makes a folder, serves one, or carries an operator's command out on one.
#include <getopt.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "disk/folder.h"
#include "disk/statement_memory.h"
#include "disk/watched_files.h"
#include "sessions/durable_server.h"
#include "sessions/operator.h"
#include "sessions/server_session.h"
#include "shown_text.h"
#include "wire/listener.h"
#include "wire/remote_session.h"
#include "zdbd/server_log.h"
#include "zdbd/stop_signal.h"

namespace {

constexpr int exit_fine = 0;
constexpr int exit_failed = 1;
constexpr int exit_usage = 2;

constexpr const char *usage = R"(usage: zdbd --init DIR
       zdbd DIR --listen PATH [--mode OCTAL]
       zdbd --admin DIR COMMAND [ARGUMENT...]

zdbd is a small stand-in for a ZDB server, to try and to test with. Client libraries find it by a line
"NAME = unix:PATH" in their interfaces file.

The first form makes a server's folder: a catalog and a database for the users' tables, readable by its
owner only. The second serves the folder on a Unix-domain socket until SIGTERM or SIGINT; the socket is
open to its owner only (mode 0600) unless --mode says otherwise. It logs to standard error. The third
carries an operator's command out, on a running server or on a folder that nobody serves.

exit status: 0 done, 1 refused or failed, 2 bad usage

Commands:
)";

struct Options {
  std::string make;
  std::string admin;
  std::string listen;
  mode_t mode = S_IRUSR | S_IWUSR;
  std::vector<std::string> words;
};

int usage_error(const std::string &message) {
  std::cerr << "zdbd: " << message << "; --help explains the usage\n";
  return exit_usage;
}

std::optional<mode_t> mode_of(const char *text) {
  unsigned mode = 0;
  const char *end = text + std::strlen(text);
  const auto [rest, error] = std::from_chars(text, end, mode, 8);
  if (error != std::errc() || rest != end || mode > 0777) {
    return std::nullopt;
  }
  return static_cast<mode_t>(mode);
}

// Fills options in; an exit status when there is nothing more to do.
std::optional<int> read_options(int argc, char **argv, Options &options) {
  static constexpr option long_options[] = {
      {"init", required_argument, nullptr, 'i'},   {"admin", required_argument, nullptr, 'a'},
      {"listen", required_argument, nullptr, 'l'}, {"mode", required_argument, nullptr, 'm'},
      {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0},
  };
  int letter = 0;
  while ((letter = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
    switch (letter) {
      case 'i':
        options.make = optarg;
        break;
      case 'a':
        options.admin = optarg;
        break;
      case 'l':
        options.listen = optarg;
        break;
      case 'm': {
        const std::optional<mode_t> mode = mode_of(optarg);
        if (!mode) {
          return usage_error(std::string("'") + optarg + "' is no file mode; write it in octal, as in 0660");
        }
        options.mode = *mode;
        break;
      }
      case 'h':
        std::cout << usage << zdb::operator_commands();
        return exit_fine;
      default:
        return usage_error("unusable option");
    }
  }
  options.words.assign(argv + optind, argv + argc);
  return std::nullopt;
}

// ---- Serving --------------------------------------------------------------------------------------------------------

class ClientService final : public zdb::Service {
 public:
  explicit ClientService(std::shared_ptr<zdb::Server> server) : server_(std::move(server)) {}
  std::unique_ptr<zdb::Session> log_in(const zdb::Login &login, zdb::Message &refusal) override {
    return zdb::log_in_to(server_, login, refusal);
  }

 private:
  std::shared_ptr<zdb::Server> server_;
};

// Whoever can reach the socket in the folder has its owner's rights.
class OperatorService final : public zdb::Service {
 public:
  explicit OperatorService(std::shared_ptr<zdb::Server> server) : server_(std::move(server)) {}
  std::unique_ptr<zdb::Session> log_in(const zdb::Login &, zdb::Message &) override {
    return zdb::operator_session(server_);
  }

 private:
  std::shared_ptr<zdb::Server> server_;
};

// For all sessions and branches at once; where that is more than the process may have, some are refused later.
void raise_descriptor_limit() {
  constexpr rlim_t wanted = 4096;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < wanted) {
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    (void)setrlimit(RLIMIT_NOFILE, &limit);
  }
}

// Until a signal comes. Neither a reader of the log who goes away nor a file that must not grow ends the process.
int serve(const std::string &folder, const Options &options) {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  block_stop_signals();
  raise_descriptor_limit();
  zdb::bound_statement_memory();
  ServerLog log;
  StopSignal stop(log);
  const auto log_line = [&log](const std::string &text) { log.write(text); };
  {
    const zdb::DurableServer durable(folder);
    ClientService clients(durable.server());
    OperatorService operators(durable.server());
    zdb::Listener control(zdb::control_path(folder), S_IRUSR | S_IWUSR, operators, log_line);
    zdb::Listener listener(options.listen, options.mode, clients, log_line);
    log_line("serving " + folder + " on " + options.listen);
    stop.wait();
    listener.close();
    control.close();
    durable.server()->shut_down();
  }
  log_line("stopped; syncs made: " + std::to_string(zdb::syncs_made()));
  return exit_fine;
}

// ---- Operators' commands --------------------------------------------------------------------------------------------

// On the server that has the folder, else on the folder itself.
zdb::Reply administer(const std::string &folder, const zdb::Request &request) {
  zdb::Message refusal;
  if (const auto session = zdb::connect_session(zdb::control_path(folder), {}, refusal)) {
    return session->execute(request);
  }
  const zdb::DurableServer durable(folder);
  return zdb::administer(*durable.server(), request);
}

std::string shown(const zdb::Value &value) {
  if (const auto *number = std::get_if<int64_t>(&value)) {
    return std::to_string(*number);
  }
  const auto *text = std::get_if<std::string>(&value);
  return text == nullptr ? "" : pasteable(*text);
}

// Prints the reply; true when the command succeeded.
bool print(const zdb::Reply &reply) {
  bool failed = reply.broken_off;
  for (const zdb::Result &result : reply.results) {
    failed = failed || result.kind == zdb::ResultKind::failed;
    for (std::size_t column = 0; column < result.columns.size(); ++column) {
      std::cout << (column == 0 ? "" : "\t") << result.columns[column].name;
    }
    std::cout << (result.columns.empty() ? "" : "\n");
    for (const auto &row : result.rows) {
      for (std::size_t column = 0; column < row.size(); ++column) {
        std::cout << (column == 0 ? "" : "\t") << shown(row[column]);
      }
      std::cout << '\n';
    }
  }
  for (const zdb::Message &message : reply.messages) {
    (failed ? std::cerr << "zdbd: " : std::cout) << visible(message.text) << '\n';
  }
  if (reply.broken_off) {
    std::cerr << "zdbd: the server went away before it answered; look at its branches before you repeat the command\n";
  }
  return !failed;
}

// Names of branches and users are taken as listings show them; a new user's is taken as it stands.
std::string argument_of(const std::string &command, const std::string &word) {
  const bool names_what_is_listed = command == "commit" || command == "rollback" || command == "drop-user";
  return names_what_is_listed ? original_of(word) : word;
}

int run_command(const Options &options) {
  if (options.words.empty()) {
    return usage_error("give a command after --admin DIR");
  }
  zdb::Request request;
  request.kind = zdb::RequestKind::administer;
  request.text = options.words[0];
  for (std::size_t word = 1; word < options.words.size(); ++word) {
    request.parameters.push_back({"", argument_of(request.text, options.words[word])});
    if (word == 1 && request.text == "add-user") {
      std::string password;
      std::getline(std::cin, password);
      request.parameters.push_back({"", password});
    }
  }
  return print(administer(options.admin, request)) ? exit_fine : exit_failed;
}

int run(int argc, char **argv) {
  Options options;
  if (const std::optional<int> status = read_options(argc, argv, options)) {
    return *status;
  }
  const int forms = (options.make.empty() ? 0 : 1) + (options.admin.empty() ? 0 : 1) + (options.listen.empty() ? 0 : 1);
  if (forms != 1) {
    return usage_error("give one of --init, --listen and --admin");
  }
  if (!options.make.empty()) {
    zdb::create_folder(options.make);
    std::cout << "made " << options.make << "; add a login with zdbd --admin " << options.make << " add-user\n";
    return exit_fine;
  }
  if (!options.admin.empty()) {
    return run_command(options);
  }
  if (options.words.size() != 1) {
    return usage_error("give the server's folder");
  }
  return serve(options.words[0], options);
}

}  // namespace

int main(int argc, char **argv) {
  fill_standard_streams();
  umask(S_IRWXG | S_IRWXO);  // whatever it makes is its owner's only; the listener opens its socket as told
  try {
    return run(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "zdbd: " << visible(error.what()) << '\n';
    return exit_failed;
  }
}
