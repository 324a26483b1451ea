// Xadtm log: shows the calls of a trace log.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <string_view>

#include "call_tree.h"
#include "commands.h"
#include "open_string.h"
#include "texts.h"

namespace {

// What stands inside a call, or, when nothing was traced, the messages before it.
void choose_causes(const std::vector<LogNode> &nodes, size_t failed, std::vector<bool> &chosen) {
  size_t at = failed + 1;
  for (; at < nodes.size() && nodes[at].depth > nodes[failed].depth; ++at) {
    chosen[at] = true;
  }
  if (at != failed + 1) {
    return;
  }
  for (at = failed; at > 0 && !nodes[at - 1].is_call && nodes[at - 1].depth == nodes[failed].depth; --at) {
    chosen[at - 1] = true;
  }
}

// The failed calls, those around them, and their causes.
std::vector<bool> choose_failures(const std::vector<LogNode> &nodes) {
  std::vector<bool> chosen(nodes.size(), false);
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (!nodes[i].failed || chosen[i]) {
      continue;
    }
    choose_causes(nodes, i, chosen);
    for (size_t up = i + 1; up != 0 && !chosen[up - 1]; up = nodes[up - 1].parent) {
      chosen[up - 1] = true;
    }
  }
  return chosen;
}

std::string duration_of(const LogNode &call) {
  if (call.untimed) {
    return "";
  }
  if (!call.entered) {
    return "  (beginning not in the log)";
  }
  if (!call.returned) {
    return call.open ? "  (goes on below)" : "  (return not in the log)";
  }
  const int64_t seconds = call.end - call.begin;
  return seconds < 0 ? "  (the clock was set back)" : "  " + std::to_string(seconds) + " s";
}

// What is quoted of an open string stands at the text's end.
std::string shown(const std::string &text) {
  for (const std::string_view mark : {"info: ", "open string "}) {
    if (const size_t at = text.find(mark); at != std::string::npos) {
      const size_t end = at + mark.size();
      return printable(without_passwords(text.substr(0, end)) + masked_open_string(text.substr(end)));
    }
  }
  return printable(without_passwords(text));
}

void print_node(const LogNode &node) {
  constexpr size_t deepest = 40;
  std::cout << node.when << std::string(2 + 2 * std::min(node.depth, deepest), ' ') << printable(node.name);
  if (!node.is_call) {
    std::cout << ": " << shown(node.text) << '\n';
    return;
  }
  std::cout << (node.failed ? "  FAILED" : "") << (node.result.empty() ? "" : "  " + printable(node.result));
  std::cout << (node.entered || !node.failed ? duration_of(node) : "");
  std::cout << (node.text.empty() ? "" : "  " + shown(node.text)) << '\n';
}

// Prints calls as they come; a heading says whose they are when that changes.
class Printer {
 public:
  explicit Printer(bool only_failures) : only_failures_(only_failures) {}

  void print(const ThreadCalls &calls);
  bool has_printed() const { return !heading_.empty(); }

 private:
  void print_heading(const ThreadCalls &calls);

  const bool only_failures_;
  std::string heading_;
};

}  // namespace

void Printer::print_heading(const ThreadCalls &calls) {
  const std::string heading = "process " + calls.process + " (" +
                              std::to_string(std::stoull(calls.process, nullptr, 16)) + "), thread " + calls.thread;
  if (heading != heading_) {
    std::cout << (has_printed() ? "\n" : "") << heading << '\n';
    heading_ = heading;
  }
}

void Printer::print(const ThreadCalls &calls) {
  const std::vector<bool> chosen =
      only_failures_ ? choose_failures(calls.nodes) : std::vector<bool>(calls.nodes.size(), true);
  if (std::find(chosen.begin(), chosen.end(), true) == chosen.end()) {
    return;
  }
  print_heading(calls);
  for (size_t i = 0; i < chosen.size(); ++i) {
    if (chosen[i]) {
      print_node(calls.nodes[i]);
    }
  }
}

namespace {

void print_totals(const CallTotals &totals, const LogFile &file) {
  std::cout << "calls: " << totals.calls << ", failed: " << totals.failed << ", without a return: " << totals.unfinished
            << ", returns without their beginning: " << totals.stray_returns
            << ", lines that could not be read: " << file.unreadable() << '\n';
  if (totals.calls == 0) {
    std::cout << "no calls are in the log; traceflags=xa in the configuration's [all] section, or -Txa in the open "
                 "string, has them written\n";
  }
}

}  // namespace

int log_command(const Arguments &arguments) {
  if (arguments.words.size() != 2) {
    throw UsageError("write log FILE, FILE being a trace log");
  }
  std::ifstream stream(arguments.words[1], std::ios::binary);
  LogFile file(stream);
  Printer printer(arguments.failures);
  CallTree tree([&](const ThreadCalls &calls) { printer.print(calls); }, arguments.failures);
  for (LogRecord record; std::cout && file.next(record);) {
    tree.add(record);
  }
  tree.finish();
  if (!stream.is_open() || stream.bad()) {
    throw UsageError("the log cannot be read; look at its path and at who may read it");
  }
  if (tree.is_empty() && file.unreadable() > 0) {
    throw UsageError("the file is no trace log: of its " + std::to_string(file.lines()) +
                     " lines none has a log line's form; the log is the file of logfile, -L or $XALOGFILE, or "
                     "$TARVEX/trv_xa_log");
  }
  std::cout << (printer.has_printed() ? "\n" : "");
  print_totals(tree.totals(), file);
  return exit_done;
}
