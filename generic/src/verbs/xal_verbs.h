// What the generic XA entry points share: the flag check, the entry line and the reporting of failures, the scheme of
// the completing verbs, the closing of a resource manager whose server cannot be reached, and the check of an XID that
// no connection holds.
#pragma once

#include <cstdint>
#include <span>

#include "log/xal_log.h"
#include "record/xal_record.h"

// True when the flag word is one of the list's exact words.
inline bool flags_accepted(std::span<const int32_t> valid, int32_t flags) {
  for (const int32_t word : valid) {
    if (word == -1) {
      return false;
    }
    if (word == flags) {
      return true;
    }
  }
  return false;
}

// What a verb was called with, as its entry line shows it. The text is built at every use, since a nested verb
// overwrites the buffer it is built in.
class EntryLine {
 public:
  static EntryLine branch(int32_t rmid, int32_t flags, const XID *xid) { return {Kind::branch, rmid, flags, xid, 0}; }
  static EntryLine info(int32_t rmid, int32_t flags, const char *text) { return {Kind::info, rmid, flags, text, 0}; }
  static EntryLine recover(int32_t rmid, int32_t flags, int32_t count) {
    return {Kind::recover, rmid, flags, nullptr, count};
  }

  const char *text() const {
    switch (kind_) {
      case Kind::branch:
        return xalog_entr_dft(rmid_, flags_, static_cast<const XID *>(argument_));
      case Kind::info:
        return xalog_entr_info(rmid_, flags_, static_cast<const char *>(argument_));
      default:
        return xalog_entr_recover(rmid_, flags_, count_);
    }
  }

 private:
  enum class Kind { branch, info, recover };
  EntryLine(Kind kind, int32_t rmid, int32_t flags, const void *argument, int32_t count)
      : kind_(kind), rmid_(rmid), flags_(flags), argument_(argument), count_(count) {}

  Kind kind_;
  int32_t rmid_;
  int32_t flags_;
  const void *argument_;
  int32_t count_;
};

// The trace scope of a verb: writes the entry line after "Enter", and reports failures with it.
class VerbScope {
 public:
  VerbScope(const char *function, EntryLine entry, int32_t line = __builtin_LINE())
      : trace_(function, TRACE_XA, line), function_(function), entry_(entry) {
    if (trace_.entered()) {
      show(function, entry, line);
    }
  }

  // The result, written as an error when it is negative, and traced.
  int32_t reported(int32_t code, int32_t line = __builtin_LINE()) const {
    if (code < 0) {
      report(function_, entry_, code, line);
    }
    return trace_.xa(code, line);
  }
  // The result, only traced.
  int32_t traced(int32_t code, int32_t line = __builtin_LINE()) const { return trace_.xa(code, line); }
  TraceScope trace() const { return trace_; }

 private:
  static void show(const char *function, EntryLine entry, int32_t line) {
    xalog_msg(function, entry.text(), line, XALOG_XA);
  }
  static void report(const char *function, EntryLine entry, int32_t code, int32_t line) {
    LogLine(function, XALOG_ERROR, line)("Return %s\n%s", xacmn_log_xareturn(code), entry.text());
  }

  TraceScope trace_;
  const char *function_;
  EntryLine entry_;
};

// The result of a step of a verb: the verb's own result when it ends there, else what the next step goes on with.
struct VerbStep {
  bool ends;
  int32_t code;

  static VerbStep end(int32_t result) { return {true, result}; }
  static VerbStep go_on(int32_t value) { return {false, value}; }
};

// Closes every connection of rmid and removes it, so that the transaction manager must open it again.
void verb_close_rm(int32_t rmid);

// Puts a branch on a connection: the record's whole XID is cleared and the caller's copied into it.
void verb_set_branch(XA_CONNECTION *conn, const XID &xid);

// Gives a held connection back as free for any branch, its own branch forgotten.
void verb_free(XA_CONNECTION *conn);

// What a lookup that found nothing to work on makes of the verb: XAER_INVAL when rmid is not open, the code of a
// refused connection as it is, XAER_RMFAIL after closing the resource manager for everything else.
int32_t verb_lookup_failed(int32_t found, XA_CONNECTION *conn, int32_t rmid);

// True for the two codes after which a new connection is made and the request repeated.
inline bool verb_connection_lost(int32_t code) {
  return code == XAER_RMFAIL || code == XAER_RMERR;
}

// How a completing verb differs from its siblings.
struct Completion {
  const char *name;
  std::span<const int32_t> validflags;
  int32_t busy_state;
  int32_t (*request)(XA_CONNECTION *conn, const XID *xid, int32_t flags);
  // The result for a branch that was never ended in this thread identity; XA_OK: end it with TMFAIL and go on.
  int32_t never_ended;
};

// Completes a branch: prepare, commit, roll back or forget.
int32_t verb_complete(const Completion &verb, const XID *xid, int32_t rmid, int32_t flags);

// XAER_PROTO when the server knows the branch, XAER_NOTA when it does not, XAER_RMFAIL when it cannot be asked. Without
// a connection one is borrowed: XAER_INVAL when rmid is not open, XAER_RMERR when none can be had.
int32_t xa__check_xid(XA_CONNECTION *conn, const XID *xid, int32_t rmid);
