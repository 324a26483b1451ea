// Servers in processes or threads of their own, which a test can let die and answer wrongly.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <memory>
#include <string>

#include "sessions/server.h"
#include "tool.h"
#include "wire/listener.h"

// zdbd, serving the site's folder on the site's socket; stopped as an operator stops it.
class ZdbdProcess {
 public:
  // It dies at that step, as by kill -9, unless that is 0; is_up then tells whether it has come so far as to serve.
  explicit ZdbdProcess(const Site &site, int crash_at = 0);
  ~ZdbdProcess() { stop(); }
  ZdbdProcess(const ZdbdProcess &) = delete;
  ZdbdProcess &operator=(const ZdbdProcess &) = delete;

  bool is_up() const { return is_up_; }
  // Whether it has died by itself.
  bool has_died();
  void kill_hard();
  // Takes connections and serves nobody, until it is killed.
  void stand_still() const { kill(process_, SIGSTOP); }
  // Its exit status, -1 when it has died.
  int stop();

 private:
  int end(int signal);

  pid_t process_ = -1;
  bool is_up_ = false;
};

// A server of this process, on the site's socket, whose replies can be scripted. It knows one branch.
class ScriptedServer final : private zdb::Service {
 public:
  static constexpr const char *branch = "5841_l34_og_:L1";

  explicit ScriptedServer(const Site &site);
  ~ScriptedServer() override;
  ScriptedServer(const ScriptedServer &) = delete;
  ScriptedServer &operator=(const ScriptedServer &) = delete;

  zdb::Server &server() { return *server_; }

 private:
  std::unique_ptr<zdb::Session> log_in(const zdb::Login &login, zdb::Message &refusal) override;

  std::shared_ptr<zdb::Server> server_;
  std::unique_ptr<zdb::Listener> listener_;
};

// Lets the site's interfaces file lead to its socket.
void use_socket(const Site &site);
