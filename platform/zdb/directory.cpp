/*
 * directory.cpp - the servers of this process by name, and sessions on them.
 *
 * The directory is never destroyed: threads may still use it while the process exits.
 */
#include "directory.h"

#include <map>
#include <mutex>

#include "memory_store.h"

namespace zdb {
namespace {

struct Directory {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<Server>> servers;
};

Directory &directory() {
  static auto &instance = *new Directory;
  return instance;
}

class EmbeddedSession final : public Session {
 public:
  EmbeddedSession(std::shared_ptr<Server> server, int number) : server_(std::move(server)), number_(number) {}
  ~EmbeddedSession() override { server_->log_out(number_); }

  Reply execute(const Request &request) override { return server_->execute(number_, request); }
  bool alive() const override { return server_->alive(number_); }

 private:
  std::shared_ptr<Server> server_;
  int number_;
};

constexpr int32_t no_server_severity = 18;

}  // namespace

bool add_server(const std::string &name) {
  Directory &all = directory();
  const std::lock_guard<std::mutex> lock(all.mutex);
  return all.servers.try_emplace(name, std::make_shared<Server>(std::make_unique<MemoryStore>())).second;
}

std::shared_ptr<Server> remove_server(const std::string &name) {
  Directory &all = directory();
  const std::lock_guard<std::mutex> lock(all.mutex);
  const auto found = all.servers.find(name);
  if (found == all.servers.end()) {
    return nullptr;
  }
  std::shared_ptr<Server> server = std::move(found->second);
  all.servers.erase(found);
  return server;
}

std::shared_ptr<Server> find_server(const std::string &name) {
  Directory &all = directory();
  const std::lock_guard<std::mutex> lock(all.mutex);
  const auto found = all.servers.find(name);
  return found == all.servers.end() ? nullptr : found->second;
}

std::unique_ptr<Session> open_session(const std::string &server, const std::string &, const Login &login,
                                      Message &refusal) {
  const std::shared_ptr<Server> found = find_server(server);
  if (found == nullptr) {
    refusal = {message_no_server, no_server_severity,
               "There is no server '" + server + "'. Check the server's name, or start it first."};
    return nullptr;
  }
  const std::optional<int> number = found->log_in(login, refusal);
  if (!number) {
    return nullptr;
  }
  return std::make_unique<EmbeddedSession>(found, *number);
}

}  // namespace zdb
