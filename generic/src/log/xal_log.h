// The library's one road into the log: trace categories, the trace scope that pairs "Enter" with the return line, and
// the line object that keeps a message's text whole at its call.
//
// The trace mask and the log stream are read by threads that hold no lock, so both are atomics. Texts are built on the
// stack, after the mask has been tested; memory is asked for only for those of more than 4,095 bytes.
#pragma once

#include <atomic>
#include <cstdint>

#include "xadtm.h"

// Message types of xalog_msg.
inline constexpr int32_t XALOG_ERROR = -1;
inline constexpr int32_t XALOG_FATAL = -2;
inline constexpr int32_t XALOG_XA = 0;
inline constexpr int32_t XALOG_RM = 1;
inline constexpr int32_t XALOG_CONN = 2;
inline constexpr int32_t XALOG_ZDB = 3;
inline constexpr int32_t XALOG_MISC = 4;
inline constexpr int32_t XALOG_EVENT = 5;
inline constexpr int32_t XALOG_VERBOSE = 6;
inline constexpr int32_t XALOG_FUNCTION = 10;
inline constexpr int32_t XALOG_QUILLET = 11;
inline constexpr int32_t XALOG_MESSAGE = 100;
inline constexpr int32_t XALOG_WARNING = 101;
inline constexpr int32_t XALOG_NOTE = 102;

// Trace-mask bits; the bit of category c is 1 << c.
inline constexpr uint32_t XATR_XA = 0x1;
inline constexpr uint32_t XATR_RM = 0x2;
inline constexpr uint32_t XATR_CONN = 0x4;
inline constexpr uint32_t XATR_ZDB = 0x8;
inline constexpr uint32_t XATR_MISC = 0x10;
inline constexpr uint32_t XATR_EVENT = 0x20;
inline constexpr uint32_t XATR_VERBOSE = 0x40;
inline constexpr uint32_t XATR_FUNCTION = 0x400;
inline constexpr uint32_t XATR_QUILLET = 0x800;

// The trace mask. Bits are only ever added, while xa_open reads its configuration.
extern "C" std::atomic<uint32_t> xacmn_log_tracing;

// Fetches the client library's thread identity for the log's lines; until then, and when there is none, they show
// "N/A".
void xal_log_identify_threads();

// True when every given bit is set in the trace mask.
inline bool tracing(uint32_t bits) {
  return (xacmn_log_tracing.load(std::memory_order_relaxed) & bits) == bits;
}

// One message still to be written: who writes it, from which source line, as which type. A disabled one writes nothing.
class LogLine {
 public:
  constexpr LogLine(const char *function, int32_t type, int32_t line, bool enabled = true)
      : function_(function), type_(type), line_(line), enabled_(enabled) {}

  [[gnu::format(printf, 2, 3), gnu::cold]] void operator()(const char *format, ...) const;

 private:
  const char *function_;
  int32_t type_;
  int32_t line_;
  bool enabled_;
};

// How a category traces: the mask bits that switch it on and the message type it writes.
struct TraceCategory {
  uint32_t bits;
  int32_t type;
};
inline constexpr TraceCategory TRACE_XA{XATR_XA, XALOG_XA};
inline constexpr TraceCategory TRACE_RM{XATR_RM, XALOG_RM};
inline constexpr TraceCategory TRACE_CONN{XATR_CONN, XALOG_CONN};
inline constexpr TraceCategory TRACE_ZDB{XATR_ZDB, XALOG_ZDB};
inline constexpr TraceCategory TRACE_MISC{XATR_MISC, XALOG_MISC};
inline constexpr TraceCategory TRACE_VERBOSE{XATR_VERBOSE, XALOG_MISC};
inline constexpr TraceCategory TRACE_NONE{0, XALOG_MISC};  // only names the function; writes no trace

// Names the running function for its messages and pairs its trace lines: "Enter" is written by the constructor under
// the category's bits, and the return line is written exactly when "Enter" was, whatever became of the mask meanwhile.
// Every return of a traced function passes its result through one of the returning members.
//
// It is inlined and its writing kept out of the way whatever the compiler thinks of it: that saves 330 of the branch
// cycle's 6,600 instructions.
class TraceScope {
 public:
  [[gnu::always_inline]] TraceScope(const char *function, TraceCategory category, int32_t line = __builtin_LINE())
      : function_(function), type_(category.type), entered_(category.bits != 0 && tracing(category.bits)) {
    if (entered_) {
      write(function_, "Enter", line, type_);
    }
  }

  bool entered() const { return entered_; }

  // The result as an XA code, a client-library code or a hexadecimal value; each returns its argument.
  [[gnu::always_inline]] int32_t xa(int32_t code, int32_t line = __builtin_LINE()) const {
    if (entered_) {
      write(function_, xacmn_log_xareturn(code), line, type_);
    }
    return code;
  }
  [[gnu::always_inline]] int32_t cs(int32_t code, int32_t line = __builtin_LINE()) const {
    if (entered_) {
      write(function_, xacmn_log_csreturn(code), line, type_);
    }
    return code;
  }
  [[gnu::always_inline]] int32_t hex(int32_t value, int32_t line = __builtin_LINE()) const {
    if (entered_) {
      write(function_, xacmn_log_hexreturn(value), line, type_);
    }
    return value;
  }
  [[gnu::always_inline]] void nothing(int32_t line = __builtin_LINE()) const {
    if (entered_) {
      write(function_, "return: Void", line, type_);
    }
  }

  // Messages that are written whatever the mask.
  LogLine error(int32_t line = __builtin_LINE()) const { return {function_, XALOG_ERROR, line}; }
  LogLine message(int32_t line = __builtin_LINE()) const { return {function_, XALOG_MESSAGE, line}; }
  LogLine warning(int32_t line = __builtin_LINE()) const { return {function_, XALOG_WARNING, line}; }
  LogLine note(int32_t line = __builtin_LINE()) const { return {function_, XALOG_NOTE, line}; }
  // A message of another type, written when all the bits are set. Arguments that cost anything need tracing() first.
  LogLine detail(uint32_t bits, int32_t type, int32_t line = __builtin_LINE()) const {
    return {function_, type, line, tracing(bits)};
  }
  LogLine event(int32_t line = __builtin_LINE()) const { return detail(XATR_EVENT, XALOG_EVENT, line); }
  LogLine misc(int32_t line = __builtin_LINE()) const { return detail(XATR_MISC, XALOG_MISC, line); }
  LogLine verbose(int32_t line = __builtin_LINE()) const { return detail(XATR_VERBOSE, XALOG_MISC, line); }
  // The messages about what a verb sets up and waits for, which want both the event and the verbose bit.
  LogLine progress(int32_t line = __builtin_LINE()) const {
    return detail(XATR_EVENT | XATR_VERBOSE, XALOG_EVENT, line);
  }

 private:
  // Takes copies, so that an untraced scope needs no place in memory.
  [[gnu::cold, gnu::noinline]] static void write(const char *function, const char *text, int32_t line, int32_t type) {
    xalog_msg(function, text, line, type);
  }

  const char *function_;
  int32_t type_;
  bool entered_;
};
