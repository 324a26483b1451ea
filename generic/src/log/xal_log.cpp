// The log file: choosing and opening it, the layout of a line, and the message types.
//
// Owns log_fd, xasl_xalog_pid, _xa__log_threadfn and the trace mask. The log is opened inside xa_open, under the
// serialisation mutex; it is written by any thread, without a lock: each line is one formatted write and one flush, and
// what a writer reads is atomic. Once open, the log is neither closed nor replaced for the life of the process.
#include "log/xal_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <unistd.h>

#include "common_routines.h"
#include "quillet.h"

extern "C" {
constinit std::atomic<uint32_t> xacmn_log_tracing{0};
}

namespace {

constexpr int32_t text_size = 4096;          // longest message text built on the stack
constexpr int32_t identity_text_size = 144;  // 64 bytes as hexadecimal text with its dots

constinit std::atomic<FILE *> log_fd{nullptr};
constinit std::atomic<int32_t> xasl_xalog_pid{0};
constinit std::atomic<bool> line_cut_off{false};  // the last write failed, perhaps in the middle of its line

// The client library's thread primitives, of which only the identity is used here, and so only that slot is filled:
// by xalog_init, while any thread may be writing a line.
constinit QLT_THREAD_TABLE _xa__log_threadfn{};
using IdentityOperation = decltype(QLT_THREAD_TABLE::thread_identity);

std::atomic_ref<IdentityOperation> identity_slot() {
  return std::atomic_ref<IdentityOperation>(_xa__log_threadfn.thread_identity);
}

struct MessageType {
  int32_t code;
  const char *name;
};

// clang-format off
constexpr MessageType type_to_string[] = {
    // code           name
    {XALOG_ERROR,     "Error"},
    {XALOG_FATAL,     "Fatal Error"},
    {XALOG_XA,        "XA trace"},
    {XALOG_RM,        "RM trace"},
    {XALOG_CONN,      "Connection trace"},
    {XALOG_ZDB,       "ZDB I/F trace"},
    {XALOG_MISC,      "Misc trace"},
    {XALOG_EVENT,     "Event trace"},
    {XALOG_VERBOSE,   "Verbose trace"},
    {XALOG_FUNCTION,  "Function trace"},
    {XALOG_QUILLET,   "Quillet trace"},
    {XALOG_MESSAGE,   "Message"},
    {XALOG_WARNING,   "Warning"},
    {XALOG_NOTE,      "Note"},
    {0,               nullptr},
};
// clang-format on
static_assert(type_to_string[sizeof type_to_string / sizeof type_to_string[0] - 1].name == nullptr);

const char *type_name(int32_t type) {
  for (const MessageType *row = type_to_string; row->name != nullptr; ++row) {
    if (row->code == type) {
      return row->name;
    }
  }
  return "";
}

// The calling thread's identity as hexadecimal text, "N/A" when the client library gives none.
const char *thread_text(char *out) {
  unsigned char identity[16] = {};
  int32_t length = 0;
  const IdentityOperation operation = identity_slot().load(std::memory_order_acquire);
  if (operation == nullptr || operation(identity, sizeof identity, &length) != CS_SUCCEED || length <= 0) {
    return "N/A";
  }
  xacmn_log_hex_sprintf(out, identity, length > 16 ? 16 : length);
  return out;
}

int32_t skip_open(const TraceScope &trace, const char *path) {
  trace.message()("skipped open of %s. log file already open", path != nullptr ? path : "<nil>");
  return 1;
}

}  // namespace

void xal_log_identify_threads() {
  identity_slot().store(nullptr, std::memory_order_release);
  CS_CONTEXT *context = nullptr;
  if (cs_ctx_global(QLT_VERSION, &context) != CS_SUCCEED) {
    return;
  }
  QLT_THREAD_TABLE table{};
  if (cs_config(context, CS_GET, QLT_PROP_THREAD_TABLE, &table, QLT_UNUSED, nullptr) == CS_SUCCEED) {
    identity_slot().store(table.thread_identity, std::memory_order_release);
  }
}

void LogLine::operator()(const char *format, ...) const {
  if (!enabled_) {
    return;
  }
  char text[text_size];
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int32_t length = vsnprintf(text, sizeof text, format, arguments);
  char *whole = length >= text_size ? static_cast<char *>(comn_malloc(static_cast<size_t>(length) + 1)) : nullptr;
  if (whole != nullptr) {
    vsnprintf(whole, static_cast<size_t>(length) + 1, format, again);
  }
  va_end(again);
  va_end(arguments);
  xalog_msg(function_, whole != nullptr ? whole : text, line_, type_);
  if (whole != nullptr) {
    comn_free(whole);
  }
}

extern "C" {

void xal_display_nolog(const char *text) {
  fputs(text != nullptr ? text : "<nil>", stderr);
}

void xalog_msg(const char *function, const char *text, int32_t line, int32_t type) {
  FILE *log = log_fd.load(std::memory_order_acquire);
  if (log == nullptr) {
    if (type < 0) {
      xal_display_nolog(text);
    }
    return;
  }
  char when[32] = "";
  tm local{};
  const time_t now = time(nullptr);
  if (localtime_r(&now, &local) != nullptr) {
    strftime(when, sizeof when, "%Y/%m/%d %H:%M:%S", &local);
  }
  char identity[identity_text_size];
  const char *start = line_cut_off.exchange(false) ? "\n" : "";
  const int32_t written =
      fprintf(log, "%s%s: 0x%x,%s: [%s/%d] %s: %s\n", start, when, static_cast<uint32_t>(xasl_xalog_pid.load()),
              thread_text(identity), function != nullptr ? function : "<nil>", line, type_name(type),
              text != nullptr ? text : "<nil>");
  if (fflush(log) != 0 || written < 0) {
    line_cut_off.store(true);  // a full disk: the next line that can be written begins a line of its own
  }
}

int32_t xalog_open_file(const char *path) {
  const TraceScope trace("xalog_open_file", TRACE_NONE);
  xasl_xalog_pid.store(getpid());
  if (log_fd.load(std::memory_order_acquire) != nullptr) {
    return skip_open(trace, path);
  }
  FILE *opened = nullptr;
  errno = EINVAL;
  if (path != nullptr) {
    opened = strcmp(path, "stderr") == 0 ? stderr : fopen(path, "a+");
  }
  if (opened == nullptr) {
    char text[text_size];
    snprintf(text, sizeof text, "xalog_open_file: cannot open %s: errno %d\n", path != nullptr ? path : "<nil>", errno);
    xal_display_nolog(text);
    return 0;
  }
  FILE *none = nullptr;
  if (!log_fd.compare_exchange_strong(none, opened, std::memory_order_acq_rel)) {
    if (opened != stderr) {
      fclose(opened);  // another thread's log was quicker
    }
    return skip_open(trace, path);
  }
  trace.message()("%s started", xadtm__Vdate);
  return 1;
}

}  // extern "C"
