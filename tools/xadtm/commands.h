// The commands of xadtm, the exit statuses, and the errors that end one.
#pragma once

#include <stdexcept>

#include "arguments.h"

inline constexpr int exit_done = 0;
inline constexpr int exit_refused = 1;    // it was not done
inline constexpr int exit_usage = 2;      // nothing was tried
inline constexpr int exit_no_branch = 3;  // there is no such branch
inline constexpr int exit_not_sure = 4;   // the question was not answered with yes
inline constexpr int exit_otherwise = 5;  // the branch has another outcome already
inline constexpr int exit_unknown = 6;    // it is not known whether it was done

// Wrong words on the command line, or a file that cannot be read; the text says what to do.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The resource manager, or the library in its place, refused something.
class Refused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Each carries a command out and answers the exit status.
int names_command(const Arguments &arguments);
int check_command(const Arguments &arguments);
int log_command(const Arguments &arguments);
int branches_command(const Arguments &arguments);
int settle_command(const Arguments &arguments);  // commit, rollback or forget
