// How a flavour publishes the connection of a branch in the client library's object registry, and what it keeps per
// connection: one body for all flavours, called under the serialisation mutex.
//
// A flavour says with key_part() and thread_part() what goes into the entry's key besides the LRM's name, and with
// counts_statements whether a connection carries a statement counter.
#pragma once

#include <cstring>

#include "common_routines.h"
#include "connections/xal_context.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"
#include "switches/xal_flavour_threads.h"

// What a flavour's part of the key came to: go on with it, nothing to publish, or the code to return.
struct KeyOutcome {
  bool go_on;
  int32_t code;
};

template <typename Flavour>
struct FlavourObjects {
  static constexpr const FlavourNames &names = Flavour::names;

  static int32_t insert(XA_CONNECTION *conn) {
    const TraceScope trace(names.obj_insert, TRACE_MISC);
    QLT_OBJECT_NAME name{};
    XA_THRDID identity{};
    const KeyOutcome key = build_key(conn, name, identity);
    if (!key.go_on) {
      return trace.cs(key.code);
    }
    QLT_OBJECT_DATA data{};
    data.connection = conn->xc_conn;
    data.command = conn->xc_cmd;
    data.buflen = QLT_UNUSED;
    return outcome(trace, cs_objects(xl_context, CS_SET, &name, &data));
  }

  static int32_t clear(XA_CONNECTION *conn) {
    const TraceScope trace(names.obj_clear, TRACE_MISC);
    QLT_OBJECT_NAME name{};
    XA_THRDID identity{};
    const KeyOutcome key = build_key(conn, name, identity);
    if (!key.go_on) {
      return trace.cs(key.code);
    }
    return outcome(trace, cs_objects(xl_context, QLT_CLEAR, &name, nullptr));
  }

  static int32_t get() {
    const TraceScope trace(names.obj_get, TRACE_MISC);
    xalog_msg(names.obj_get, Flavour::not_implemented, __LINE__, XALOG_ERROR);
    return trace.cs(CS_FAIL);
  }

  static int32_t conn_init(XA_CONNECTION *conn) {
    const TraceScope trace(names.conn_init, TRACE_MISC);
    if constexpr (Flavour::counts_statements) {
      auto *counter = static_cast<int32_t *>(comn_malloc(sizeof(int32_t)));
      if (counter != nullptr) {
        *counter = 1;
      }
      conn->xc_tmdata = counter;
    }
    return trace.cs(CS_SUCCEED);
  }

  static int32_t conn_free(XA_CONNECTION *conn) {
    const TraceScope trace(names.conn_free, TRACE_MISC);
    if constexpr (Flavour::counts_statements) {
      if (conn->xc_tmdata != nullptr) {
        comn_free(conn->xc_tmdata);
        conn->xc_tmdata = nullptr;
      }
    }
    return trace.cs(CS_SUCCEED);
  }

 private:
  // The entry's key: the LRM's name, and whatever the flavour adds to it.
  static KeyOutcome build_key(const XA_CONNECTION *conn, QLT_OBJECT_NAME &name, XA_THRDID &identity) {
    const XA_LRMINFO *lrm = conn->xc_lrm;
    name.obj_type = QLT_OBJ_CONNECTION;
    name.lnlen = static_cast<int32_t>(strlen(lrm->lrm_name));
    memcpy(name.last_name, lrm->lrm_name, static_cast<size_t>(name.lnlen));
    name.fnlen = QLT_UNUSED;
    name.scopelen = QLT_UNUSED;
    name.threadlen = QLT_UNUSED;
    return Flavour::complete_key(*lrm, name, identity);
  }

  // A code other than success is written as an error whatever the mask.
  static int32_t outcome(const TraceScope &trace, int32_t code, int32_t line = __builtin_LINE()) {
    if (code == CS_SUCCEED) {
      return trace.cs(code, line);
    }
    trace.error(line)("%s", xacmn_log_csreturn(code));
    return code;
  }
};

// The key of flavours that publish under the calling thread's identity.
inline KeyOutcome thread_key(int32_t identified, QLT_OBJECT_NAME &name, XA_THRDID &identity) {
  if (identified != 1) {
    return {false, identified};
  }
  name.threadlen = identity.tid_len;
  name.thread = identity.tid_len > 0 ? identity.tid_bytes : nullptr;
  return {true, CS_SUCCEED};
}
