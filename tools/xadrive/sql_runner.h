// Runs SQL as application code does: on the connection that the library has published for a resource
// manager.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libraries.h"
#include "xa_names.h"

struct SqlRun {
  int32_t result = sql_none;
  std::vector<std::string> rows;   // one text a row, its columns separated by " | "
  std::vector<std::string> lines;  // all there is to show, in the server's order: rows, counts, messages
};

// Has messages on connections reach the runs that cause them; call it before the first connection is made.
void listen_for_messages(const Libraries &libraries);

// Runs one language command for the LRM of that name (under MTS: and lookup key) on the calling thread's connection.
SqlRun run_sql(const Libraries &libraries, const std::string &lrm, const std::string &lookup_key,
               const std::string &sql);
