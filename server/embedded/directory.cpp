// The servers of this process by name, and sessions on them and on those that an interfaces file names.
//
// The directory is never destroyed: threads may still use it while the process exits.
#include "embedded/directory.h"

#include <filesystem>
#include <map>
#include <mutex>

#include "embedded/interfaces_file.h"
#include "sessions/durable_server.h"
#include "sessions/server_session.h"
#include "store/memory_store.h"
#include "wire/remote_session.h"

namespace zdb {
namespace {

struct Entry {
  std::shared_ptr<Server> server;
  std::unique_ptr<DurableServer> durable;  // null for a server in memory
};

struct Directory {
  std::mutex mutex;
  std::map<std::string, Entry> servers;
  std::map<std::string, std::unique_ptr<DurableServer>> embedded;  // by their folders
};

Directory &directory() {
  static auto &instance = *new Directory;
  return instance;
}

constexpr int32_t no_server_severity = 18;

// The server embedded from the folder, opened when need be. Throws std::runtime_error with what to do.
std::shared_ptr<Server> embedded_server(const std::string &folder) {
  const std::string path = std::filesystem::weakly_canonical(folder);
  Directory &all = directory();
  const std::lock_guard<std::mutex> lock(all.mutex);
  std::unique_ptr<DurableServer> &place = all.embedded[path];
  if (place == nullptr) {
    place = std::make_unique<DurableServer>(path);
  }
  return place->server();
}

std::unique_ptr<Session> open_at(const ServerAddress &address, const Login &login, Message &refusal) {
  if (address.kind == ServerAddress::Kind::unix_socket) {
    return connect_session(address.path, login, refusal);
  }
  try {
    return log_in_to(embedded_server(address.path), login, refusal);
  } catch (const std::runtime_error &error) {
    refusal = {message_no_server, no_server_severity, std::string(error.what()) + "."};
    return nullptr;
  }
}

}  // namespace

bool add_server(const std::string &name) {
  Directory &all = directory();
  const std::lock_guard<std::mutex> lock(all.mutex);
  if (all.servers.contains(name)) {
    return false;
  }
  all.servers[name].server = std::make_shared<Server>(std::make_unique<MemoryStore>());
  return true;
}

bool add_durable_server(const std::string &name, const std::string &folder) {
  Directory &all = directory();
  const std::lock_guard<std::mutex> lock(all.mutex);
  if (all.servers.contains(name)) {
    return false;
  }
  auto durable = std::make_unique<DurableServer>(folder);
  all.servers[name] = {durable->server(), std::move(durable)};
  return true;
}

bool drop_server(const std::string &name) {
  Entry dropped;
  Directory &all = directory();
  {
    const std::lock_guard<std::mutex> lock(all.mutex);
    const auto found = all.servers.find(name);
    if (found == all.servers.end()) {
      return false;
    }
    dropped = std::move(found->second);
    all.servers.erase(found);
  }
  dropped.server->shut_down();
  return true;
}

std::shared_ptr<Server> find_server(const std::string &name) {
  Directory &all = directory();
  const std::lock_guard<std::mutex> lock(all.mutex);
  const auto found = all.servers.find(name);
  return found == all.servers.end() ? nullptr : found->second.server;
}

std::unique_ptr<Session> open_session(const std::string &server, const std::string &interfaces_file, const Login &login,
                                      Message &refusal) {
  if (const std::shared_ptr<Server> found = find_server(server)) {
    return log_in_to(found, login, refusal);
  }
  std::string problem;
  if (!interfaces_file.empty()) {
    if (const auto address = find_address(interfaces_file, server, problem)) {
      return open_at(*address, login, refusal);
    }
  }
  if (problem.empty()) {
    problem =
        interfaces_file.empty()
            ? "There is no server '" + server + "'. Check the server's name, or start it first."
            : "There is no server '" + server + "'. Check the server's name, or add it to " + interfaces_file + ".";
  }
  refusal = {message_no_server, no_server_severity, problem};
  return nullptr;
}

}  // namespace zdb
