// Sessions on a server in another process.
#pragma once

#include <memory>
#include <string>

#include "interface/session.h"

namespace zdb {

// Logs in to the server that listens on the path. Null when it cannot be reached or refuses the login; refusal then
// says what to do about it. The session's requests may come from different threads, one at a time; alive() may be asked
// meanwhile.
std::unique_ptr<Session> connect_session(const std::string &socket_path, const Login &login, Message &refusal);

}  // namespace zdb
