// The C functions by which tests and tools set servers up and steer them. Each finds the server and
// hands over to it; no exception leaves any of them.
#pragma GCC visibility push(default)
#include "interface/zdb_control.h"
#pragma GCC visibility pop

#include <cstring>
#include <exception>

#include "disk/folder.h"
#include "dtm/dtm_protocol.h"
#include "embedded/directory.h"

namespace {

constexpr std::size_t server_name_max = 31;
constexpr int32_t unknown_server = -1;

// Runs the action on the server, or returns missing when there is no such server or memory is short.
template <typename Action>
int32_t on_server(const char *server, int32_t missing, Action action) noexcept {
  if (server == nullptr) {
    return missing;
  }
  try {
    const auto found = zdb::find_server(server);
    return found == nullptr ? missing : static_cast<int32_t>(action(*found));
  } catch (const std::exception &) {
    return missing;
  }
}

}  // namespace

int32_t zdb_create_server(const char *server) {
  if (server == nullptr || *server == '\0' || std::strlen(server) > server_name_max) {
    return 0;
  }
  try {
    return zdb::add_server(server) ? 1 : 0;
  } catch (const std::exception &) {
    return 0;
  }
}

int32_t zdb_open_folder(const char *server, const char *folder) {
  if (server == nullptr || *server == '\0' || std::strlen(server) > server_name_max || folder == nullptr) {
    return 0;
  }
  try {
    if (!zdb::is_made(folder)) {
      zdb::create_folder(folder);
    }
    return zdb::add_durable_server(server, folder) ? 1 : 0;
  } catch (const std::exception &) {
    return 0;
  }
}

int32_t zdb_drop_server(const char *server) {
  return on_server(server, 0, [&](zdb::Server &) { return zdb::drop_server(server); });
}

int32_t zdb_add_user(const char *server, const char *user, const char *password, int32_t dtm_role) {
  if (user == nullptr || password == nullptr) {
    return 0;
  }
  return on_server(server, 0, [&](zdb::Server &found) {
    found.store().add_user(user, password, dtm_role != 0);
    return true;
  });
}

int32_t zdb_set_dtm(const char *server, int32_t value) {
  return on_server(server, 0, [&](zdb::Server &found) {
    found.store().set_setting(zdb::dtm_setting,
                              value == ZDB_NO_CONFIG_ROW ? std::nullopt : std::optional<int64_t>(value));
    return true;
  });
}

int32_t zdb_refuse_failover_logins(const char *server, int32_t on) {
  return on_server(server, 0, [&](zdb::Server &found) {
    found.refuse_failover(on != 0);
    return true;
  });
}

int32_t zdb_branch_state(const char *server, const char *branch) {
  if (branch == nullptr) {
    return DTM_STATE_UNKNOWN;
  }
  return on_server(server, DTM_STATE_UNKNOWN, [&](zdb::Server &found) { return found.branch_state(branch); });
}

int32_t zdb_branch_count(const char *server) {
  return on_server(server, unknown_server, [](zdb::Server &found) { return found.branch_count(); });
}

int32_t zdb_commit_count(const char *server) {
  return on_server(server, unknown_server, [](zdb::Server &found) { return found.commit_count(); });
}

int32_t zdb_force(const char *server, const char *branch, int32_t commit) {
  if (branch == nullptr) {
    return 0;
  }
  return on_server(server, 0, [&](zdb::Server &found) { return found.force(branch, commit != 0); });
}

int32_t zdb_plant_prepared(const char *server, const char *branch) {
  if (branch == nullptr) {
    return 0;
  }
  return on_server(server, 0, [&](zdb::Server &found) { return found.plant_prepared(branch); });
}

int32_t zdb_break_sessions(const char *server, const char *user) {
  return on_server(server, 0, [&](zdb::Server &found) { return found.break_sessions(user); });
}

int32_t zdb_session_count(const char *server) {
  return on_server(server, unknown_server, [](zdb::Server &found) { return found.session_count(); });
}

int32_t zdb_add_script(const char *server, const ZDB_SCRIPT *script) {
  if (script == nullptr) {
    return 0;
  }
  return on_server(server, 0, [&](zdb::Server &found) { return found.add_script(*script); });
}

int32_t zdb_clear_scripts(const char *server) {
  return on_server(server, 0, [](zdb::Server &found) {
    found.clear_scripts();
    return true;
  });
}
