// The processes and threads behind the site's socket.
#include "serving.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "sessions/server_session.h"
#include "store/memory_store.h"

void use_socket(const Site &site) {
  site.write("interfaces", "bank1 = unix:bank1.sock\n");
}

ZdbdProcess::ZdbdProcess(const Site &site, int crash_at) {
  use_socket(site);
  site.write("zdbd.log", "");
  const std::string crash = crash_at == 0 ? "" : "export ZDB_CRASH_AT=" + std::to_string(crash_at) + "; ";
  const std::string command = site.there(crash + "exec " ZDBD " bank1 --listen bank1.sock 2>zdbd.log");
  process_ = fork();
  if (process_ == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  int ended = 0;
  while (!is_up_ && waitpid(process_, &ended, WNOHANG) == 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    is_up_ = text_of(site.at("zdbd.log")).find("serving") != std::string::npos;
  }
  process_ = is_up_ ? process_ : -1;
}

int ZdbdProcess::end(int signal) {
  int ended = 0;
  if (process_ > 0) {
    kill(process_, signal);
    waitpid(process_, &ended, 0);
    process_ = -1;
  }
  return exit_status(ended);
}

bool ZdbdProcess::has_died() {
  int ended = 0;
  if (process_ > 0 && waitpid(process_, &ended, WNOHANG) == process_) {
    process_ = -1;
  }
  return process_ <= 0;
}

void ZdbdProcess::kill_hard() {
  end(SIGKILL);
}

int ZdbdProcess::stop() {
  return end(SIGTERM);
}

ScriptedServer::ScriptedServer(const Site &site)
    : server_(std::make_shared<zdb::Server>(std::make_unique<zdb::MemoryStore>())) {
  use_socket(site);
  server_->store().add_user("teller", "topSecret", true);
  EXPECT_TRUE(server_->plant_prepared(branch));
  listener_ =
      std::make_unique<zdb::Listener>(site.at("bank1.sock"), S_IRUSR | S_IWUSR, static_cast<zdb::Service &>(*this),
                                      [](const std::string &) { /* nobody reads it */ });
}

ScriptedServer::~ScriptedServer() {
  listener_->stop();
  server_->shut_down();
}

std::unique_ptr<zdb::Session> ScriptedServer::log_in(const zdb::Login &login, zdb::Message &refusal) {
  return zdb::log_in_to(server_, login, refusal);
}
