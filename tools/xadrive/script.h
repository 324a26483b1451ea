// A parsed script: its commands in order, ready to be played.
//
// The parser makes it, the player reads it. Everything that can be checked without running anything has been.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "xa.h"
#include "xid_book.h"

enum class Verb {
  open,
  close,
  start,
  end,
  prepare,
  commit,
  rollback,
  forget,
  recover,
  complete,
  sql,  // the last that needs a flavour
  statement,
  server,
  user,
  dtm,
  force,
  disconnect,
  state,
  env,
  sleep,
  echo,
  wait,
  flavour,  // only in the text: the parser takes these two and leaves no command
  xid
};

// What a command's result is, and so how it is written.
enum class ResultKind { xa_code, xid_count, number, answer, branch_state, sql, nothing };

struct Expectation {
  int32_t code = 0;
  std::vector<std::string> xids;  // sorted names; empty when only the count matters
  std::vector<std::string> rows;  // of SQL, in their order; empty when they do not matter
  std::string text;               // as a message shows it
};

struct Command {
  int line = 0;
  std::string thread;
  bool background = false;
  Verb verb = Verb::echo;
  ResultKind kind = ResultKind::nothing;
  std::string shown;  // the command with its defaults filled in

  int32_t rmid = 0;
  int32_t flags = TMNOFLAGS;
  int32_t number = 0;  // places of a scan; 1 for "on", "commit" and a login with the DTM role
  double seconds = 0;
  std::optional<XID> xid;           // none: a null pointer
  std::optional<std::string> info;  // open or close string, none: a null pointer; or the SQL
  std::string lrm;                  // where SQL runs: of the resource manager's open string
  std::string lookup_key;           // likewise
  std::vector<std::string> words;   // names in their order
  std::optional<Expectation> expected;
};

struct Script {
  std::string file;
  std::string flavour;  // empty when the script leaves it to the command line
  std::vector<Command> commands;
  XidBook xids;
};

inline constexpr const char *main_thread = "main";
