// SQL as application code runs it: on the connection that libxadtm has published for a branch, or on one
// of the application's own, where every statement commits by itself.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "quillet.h"

// The server refused the SQL, or went away; the text is its last message.
struct SqlError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct SqlAnswer {
  std::vector<std::vector<std::string>> rows;  // all values as texts, null as an empty one
  int32_t count = -1;                          // rows returned or changed by the last statement
};

// Has the client library's and the servers' messages kept, for SqlError. To be called before the first connection is
// made, by whomever: connections take their callbacks from the context. Throws SqlError when there is no client
// library.
void hear_messages();

// Throws SqlError unless all of it was done.
SqlAnswer run_sql(QLT_CONNECTION *connection, const std::string &sql);

// The connection published for the resource manager (a TUX switch), null when none is.
QLT_CONNECTION *published_connection(const std::string &lrm);

// A connection of the application's own, outside any branch.
class OwnConnection {
 public:
  // Throws SqlError when the server cannot be reached or refuses the login.
  OwnConnection(const std::string &server, const std::string &user, const std::string &password);
  ~OwnConnection();
  OwnConnection(const OwnConnection &) = delete;
  OwnConnection &operator=(const OwnConnection &) = delete;

  SqlAnswer run(const std::string &sql) { return run_sql(connection_, sql); }

 private:
  QLT_CONNECTION *connection_ = nullptr;
};
