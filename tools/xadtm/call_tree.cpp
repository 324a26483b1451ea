// Pairs "Enter" lines with return lines.
//
// Logs are cut and processes are killed, so a return line may be missing. It is given up on when a call around it
// returns, when an XA verb begins that is never called from within another, and when the process starts again.
#include "call_tree.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "xa.h"

namespace {

// What a return line says.
struct Return {
  std::string result;
  std::optional<int32_t> code;
};

constexpr std::array<std::string_view, 8> outermost_verbs = {"xa_open",     "xa_start",  "xa_prepare", "xa_commit",
                                                             "xa_rollback", "xa_complt", "xa_forget",  "xa_recover"};
// What may be kept of a thread beside its open calls.
constexpr size_t most_nodes = 10000;
constexpr std::string_view traced_entry = "trv_mts_xa_open";  // the one entry function that traces itself

bool is_outermost(std::string_view function) {
  return std::find(outermost_verbs.begin(), outermost_verbs.end(), function) != outermost_verbs.end();
}

// These end without a line, so what they call is shown beside them.
bool ends_silently(std::string_view function) {
  return function == "xal_getlrm" || function == "xal_addlrm";
}

bool is_verb(std::string_view function) {
  return is_outermost(function) || function == "xa_end" || function == "xa_close";
}

// Errors, rollbacks, and outcomes that others have decided.
bool is_failure(int32_t code) {
  return code < 0 || (code >= XA_HEURMIX && code <= XA_HEURHAZ) || (code >= XA_RBBASE && code <= XA_RBEND);
}

// Reads "retstat: -4 ([XAER_NOTA])", behind what the text begins with.
std::optional<Return> read_status(std::string_view text) {
  static constexpr std::string_view mark = "retstat: ";
  const size_t at = text.find(mark);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  text.remove_prefix(at + mark.size());
  int32_t code = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), code);
  if (error != std::errc()) {
    return std::nullopt;
  }
  const size_t open = text.find("([");
  const size_t close = text.find("])");
  const bool named = open != std::string_view::npos && close != std::string_view::npos && close > open + 2;
  return Return{named ? std::string(text.substr(open + 2, close - open - 2)) : std::to_string(code), code};
}

std::optional<Return> read_return(std::string_view text) {
  if (text.starts_with(" retstat: ") || text.starts_with("return, retstat: ") || text.starts_with("Return ")) {
    return read_status(text);
  }
  if (text == "return: Void") {
    return Return{"", std::nullopt};
  }
  if (text == "value: <nil>") {
    return Return{"0", std::nullopt};
  }
  if (text.starts_with("value: ")) {
    return Return{"0x" + std::string(text.substr(7, text.find(' ', 7) - 7)), std::nullopt};
  }
  return std::nullopt;
}

// All in one line, runs of white space as one blank.
std::string one_line(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const bool blank = c == ' ' || c == '\t' || c == '\n';
    if (!blank) {
      out += c;
    } else if (!out.empty() && out.back() != ' ') {
      out += ' ';
    }
  }
  out.resize(out.find_last_not_of(' ') + 1);
  return out;
}

LogNode &append(ThreadCalls &calls, const LogRecord &record) {
  LogNode node;
  node.depth = calls.open.size();
  node.parent = calls.open.empty() ? 0 : calls.open.back() + 1;
  node.when = record.when;
  node.begin = node.end = record.seconds;
  node.type = record.type;
  return calls.nodes.emplace_back(std::move(node));
}

LogNode &append_call(ThreadCalls &calls, const LogRecord &record) {
  LogNode &call = append(calls, record);
  call.is_call = true;
  call.name = record.function;
  return call;
}

void set_result(LogNode &call, const LogRecord &record, const Return &result) {
  call.returned = true;
  call.end = record.seconds;
  call.result = result.result;
  call.failed = call.failed || (is_verb(call.name) && result.code && is_failure(*result.code));
}

void open_call(ThreadCalls &calls) {
  LogNode &call = calls.nodes.back();
  call.open = true;
  calls.open_by_name[call.name].push_back(calls.open.size());
  calls.open.push_back(calls.nodes.size() - 1);
}

// Closes all calls but the outermost ones, so many of them.
void close_inside(ThreadCalls &calls, size_t count) {
  while (calls.open.size() > count) {
    LogNode &call = calls.nodes[calls.open.back()];
    call.open = false;
    const auto places = calls.open_by_name.find(call.name);
    places->second.pop_back();
    if (places->second.empty()) {
      calls.open_by_name.erase(places);
    }
    calls.open.pop_back();
  }
}

}  // namespace

void CallTree::enter(ThreadCalls &calls, const LogRecord &record) {
  const bool is_in_entry = !calls.open.empty() && calls.nodes[calls.open.back()].name == traced_entry;
  if (is_outermost(record.function) && !is_in_entry && !calls.open.empty()) {
    close_inside(calls, 0);
    hand_out(calls);
  }
  LogNode &call = append_call(calls, record);
  call.entered = true;
  call.untimed = ends_silently(record.function);
  if (!call.untimed) {
    open_call(calls);
  }
}

namespace {

// The innermost open call of the function; the calls inside it are given up. Null when there is none.
LogNode *back_to(ThreadCalls &calls, const std::string &function) {
  const auto places = calls.open_by_name.find(function);
  if (places == calls.open_by_name.end()) {
    return nullptr;
  }
  close_inside(calls, places->second.back() + 1);
  return &calls.nodes[calls.open.back()];
}

// Ends a call; false when its beginning is not there.
bool leave(ThreadCalls &calls, const LogRecord &record, const Return &result) {
  LogNode *call = back_to(calls, record.function);
  if (call == nullptr) {
    return false;
  }
  set_result(*call, record, result);
  close_inside(calls, calls.open.size() - 1);
  return true;
}

// The report of a failed call, which is written whatever is traced: the code, then what the call was given.
void report(ThreadCalls &calls, const LogRecord &record, const Return &result) {
  LogNode *open = back_to(calls, record.function);
  LogNode &call = open != nullptr ? *open : append_call(calls, record);
  const size_t end = record.text.find('\n');
  const std::string given = end == std::string::npos ? "" : one_line(record.text.substr(end));
  call.result = result.result;
  call.failed = true;
  call.text = given.empty() ? call.text : given;
}

void add_message(ThreadCalls &calls, const LogRecord &record) {
  LogNode &message = append(calls, record);
  message.name = record.type;
  message.text = one_line(record.text);
}

bool is_trace(const std::string &type) {
  return type.ends_with("trace");
}

bool is_start_of_process(const LogRecord &record) {
  return record.function == "xalog_open_file" && record.text.ends_with(" started");
}

// The line behind a verb's "Enter" that holds its arguments.
bool are_arguments(const ThreadCalls &calls, const LogRecord &record) {
  if (calls.open.empty() || !record.text.starts_with("rmid: ")) {
    return false;
  }
  const LogNode &call = calls.nodes[calls.open.back()];
  return call.name == record.function && call.type == record.type && call.text.empty();
}

}  // namespace

void CallTree::count(const LogNode &node) {
  totals_.calls += node.is_call ? 1 : 0;
  totals_.failed += node.failed ? 1 : 0;
  totals_.unfinished += node.is_call && node.entered && !node.returned && !node.untimed ? 1 : 0;
}

void CallTree::hand_out(ThreadCalls &calls) {
  close_inside(calls, 0);
  for (const LogNode &node : calls.nodes) {
    count(node);
  }
  if (!calls.nodes.empty()) {
    sink_(calls);
  }
  calls.nodes.clear();
}

// The open calls stay, each the parent of the next.
void CallTree::hand_out_part(ThreadCalls &calls) {
  sink_(calls);
  std::vector<LogNode> kept;
  for (LogNode &node : calls.nodes) {
    if (!node.open) {
      count(node);
      continue;
    }
    node.parent = kept.size();
    kept.push_back(std::move(node));
  }
  for (size_t i = 0; i < kept.size(); ++i) {
    calls.open[i] = i;
  }
  calls.nodes = std::move(kept);
}

void CallTree::drop_messages() {
  std::erase_if(threads_, [](const auto &entry) { return entry.second.open.empty(); });
  most_threads_ = 2 * threads_.size() + most_idle_threads;
}

namespace {

// Whether the call before which they stand may still come.
bool ends_in_messages(const ThreadCalls &calls) {
  return !calls.nodes.empty() && !calls.nodes.back().is_call && calls.nodes.back().depth == 0;
}

}  // namespace

// Hands out what is whole, and forgets threads of which nothing is left.
void CallTree::settle(Threads::iterator place) {
  ThreadCalls &calls = place->second;
  if (calls.nodes.size() > 2 * calls.open.size() + most_nodes) {
    hand_out_part(calls);
  }
  if (!calls.open.empty() || (keeps_messages_ && ends_in_messages(calls))) {
    return;
  }
  hand_out(calls);
  threads_.erase(place);
}

// A process's number may be used again.
void CallTree::end_process(const std::string &process) {
  auto place = threads_.lower_bound({process, ""});
  while (place != threads_.end() && place->first.first == process) {
    hand_out(place->second);
    place = threads_.erase(place);
  }
}

void CallTree::finish() {
  for (auto &[name, calls] : threads_) {
    hand_out(calls);
  }
  threads_.clear();
}

void CallTree::add(const LogRecord &record) {
  is_empty_ = false;
  if (is_start_of_process(record)) {
    end_process(record.process);
  }
  if (threads_.size() > most_threads_) {
    drop_messages();
  }
  const auto [place, is_new] = threads_.try_emplace({record.process, record.thread});
  if (is_new) {
    place->second.process = record.process;
    place->second.thread = record.thread;
  }
  add_to(place->second, record);
  settle(place);
}

void CallTree::add_to(ThreadCalls &calls, const LogRecord &record) {
  if (is_trace(record.type)) {
    if (record.text == "Enter") {
      enter(calls, record);
      return;
    }
    if (are_arguments(calls, record)) {
      calls.nodes[calls.open.back()].text = one_line(record.text);
      return;
    }
    if (const std::optional<Return> result = read_return(record.text)) {
      if (!leave(calls, record, *result)) {
        ++totals_.stray_returns;
        set_result(append_call(calls, record), record, *result);
      }
      return;
    }
  } else if (record.text.starts_with("Return ") && is_verb(record.function)) {
    if (const std::optional<Return> result = read_status(record.text)) {
      report(calls, record, *result);
      return;
    }
  }
  add_message(calls, record);
}
