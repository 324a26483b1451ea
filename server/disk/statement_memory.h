// Bounds the memory that SQLite takes for clients' statements, for each one and for all together.
// A statement that wants more fails; what the server does by itself (preparing, committing) is never refused any.
#pragma once

namespace zdb {

// To be called once, before anything else of the process uses SQLite, whose memory it sees from then on. A program that
// has a server embedded is not bounded: its SQLite may be somebody else's, too.
void bound_statement_memory();

// While it lives, its thread runs a client's statements.
class StatementMemory {
 public:
  StatementMemory();
  ~StatementMemory();
  StatementMemory(const StatementMemory &) = delete;
  StatementMemory &operator=(const StatementMemory &) = delete;
};

}  // namespace zdb
