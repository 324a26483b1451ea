// The calls that a trace log shows, for every thread of every process.
//
// They are handed out as the log is read, so that a log may have any length: what is kept is the calls that have not
// returned, and of what stands inside them, or before a call that may fail, no more than a fixed number of lines.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "log_file.h"

// A call, or a message that was written within one.
struct LogNode {
  bool is_call = false;
  bool entered = false;   // the log holds where it begins
  bool returned = false;  // and where it ends
  bool open = false;      // its end may be yet to come
  bool untimed = false;   // the library writes no end of such calls
  bool failed = false;
  size_t depth = 0;
  size_t parent = 0;  // index + 1; 0 at the top
  std::string when;
  int64_t begin = 0;
  int64_t end = 0;
  std::string name;    // the function, or the type of the message
  std::string type;    // of the line that begins a call
  std::string text;    // a call's arguments, or the message
  std::string result;  // decoded
};

// Nodes in the order of the log: what a call contains follows it, one deeper.
struct ThreadCalls {
  std::string process;
  std::string thread;
  std::vector<LogNode> nodes;
  std::vector<size_t> open;  // the calls that have not returned, outermost first
  std::unordered_map<std::string, std::vector<size_t>> open_by_name;  // places in "open", outermost first
};

struct CallTotals {
  int64_t calls = 0;
  int64_t failed = 0;
  int64_t unfinished = 0;
  int64_t stray_returns = 0;  // return lines of calls whose beginning is not in the log
};

class CallTree {
 public:
  // Takes calls at the top with all that is in them, and messages between them. Very long calls come in parts: a call
  // that is still open comes again with the next part.
  using Sink = std::function<void(const ThreadCalls &)>;

  // Whether messages at the top are kept until a call follows them.
  CallTree(Sink sink, bool keeps_messages) : sink_(std::move(sink)), keeps_messages_(keeps_messages) {}

  void add(const LogRecord &record);
  // The log ends here.
  void finish();

  const CallTotals &totals() const { return totals_; }
  bool is_empty() const { return is_empty_; }

 private:
  using Threads = std::map<std::pair<std::string, std::string>, ThreadCalls>;  // by process and thread

  static constexpr size_t most_idle_threads = 10000;  // that have nothing but messages

  void add_to(ThreadCalls &calls, const LogRecord &record);
  void enter(ThreadCalls &calls, const LogRecord &record);
  void settle(Threads::iterator place);
  void hand_out(ThreadCalls &calls);
  void hand_out_part(ThreadCalls &calls);
  void end_process(const std::string &process);
  void drop_messages();
  void count(const LogNode &node);

  Sink sink_;
  const bool keeps_messages_;
  Threads threads_;  // those with open calls or kept messages
  size_t most_threads_ = most_idle_threads;
  CallTotals totals_;
  bool is_empty_ = true;
};
