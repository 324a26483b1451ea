// The servers of this process by name; used by the control functions and by open_session. A server that
// an interfaces file embeds is opened when the first session asks for it, and stays open as long as the process.
#pragma once

#include <memory>
#include <string>

#include "sessions/server.h"

namespace zdb {

// Makes a server in memory. False when the name is taken.
bool add_server(const std::string &name);
// Opens a server on a folder; false when the name is taken. Throws std::runtime_error with what to do.
bool add_durable_server(const std::string &name, const std::string &folder);
// Takes the server out and shuts it down; a folder is free once the last session is gone. False without such a name.
bool drop_server(const std::string &name);
std::shared_ptr<Server> find_server(const std::string &name);

}  // namespace zdb
