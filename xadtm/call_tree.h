/*
 * call_tree.h - the calls that a trace log shows, for every thread of every process.
 */
#ifndef XADTM_TOOL_CALL_TREE_H
#define XADTM_TOOL_CALL_TREE_H

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "log_file.h"

/* A call, or a message that was written within one. */
struct LogNode {
  bool is_call = false;
  bool entered = false;  /* the log holds where it begins */
  bool returned = false; /* and where it ends */
  bool untimed = false;  /* the library writes no end of such calls */
  bool failed = false;
  size_t depth = 0;
  size_t parent = 0; /* index + 1; 0 at the top */
  std::string when;
  int64_t begin = 0;
  int64_t end = 0;
  std::string name;   /* the function, or the type of the message */
  std::string type;   /* of the line that begins a call */
  std::string text;   /* a call's arguments, or the message */
  std::string result; /* decoded */
};

/* Nodes in the order of the log: what a call contains follows it, one deeper. */
struct ThreadCalls {
  std::string process;
  std::string thread;
  std::vector<LogNode> nodes;
  std::vector<size_t> open; /* the calls that have not returned, outermost first */
};

class CallTree {
 public:
  void add(const LogRecord &record);

  const std::vector<ThreadCalls> &threads() const { return threads_; }
  /* Return lines of calls whose beginning is not in the log. */
  int64_t stray_returns() const { return stray_returns_; }

 private:
  ThreadCalls &thread_of(const LogRecord &record);

  std::vector<ThreadCalls> threads_;
  std::map<std::tuple<std::string, int64_t, std::string>, size_t> index_; /* process, its life, thread */
  std::map<std::string, int64_t> lives_;                                  /* a process's number may be used again */
  int64_t stray_returns_ = 0;
};

#endif /* XADTM_TOOL_CALL_TREE_H */
