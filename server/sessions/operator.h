// What an operator can do with a server: look at its branches, settle one by force, look after logins and
// configuration. Who may be an operator is the caller's business.
#pragma once

#include <memory>
#include <string>

#include "interface/session.h"
#include "sessions/server.h"

namespace zdb {

// The commands, one a line, for help texts.
std::string operator_commands();

// Carries a command out: its name is the request's text, its arguments are the values of the parameters in their order.
// The reply has rows for the commands that list something, and a message that says what was done or why it was not.
Reply administer(Server &server, const Request &request);

// A session that takes operators' commands and nothing else.
std::unique_ptr<Session> operator_session(std::shared_ptr<Server> server);

}  // namespace zdb
