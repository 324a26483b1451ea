// A session on a server of this process.
#pragma once

#include <memory>

#include "interface/session.h"
#include "sessions/server.h"

namespace zdb {

// Null, with the reason in refusal, when the server refuses the login.
std::unique_ptr<Session> log_in_to(const std::shared_ptr<Server> &server, const Login &login, Message &refusal);

}  // namespace zdb
