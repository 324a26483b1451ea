// Cleaning up after application code: the cursors and prepared statements that it announced in the client library's
// object registry while it worked on a branch's connection are closed, dropped and struck off when the branch ends.
//
// Runs under the serialisation mutex. Entries are keyed by LRM name and thread identity, so a thread removes only what
// was made under its own identity. Sections: keys; cursors; dynamic statements; dumps.
#include <cstring>

#include "connections/xal_conn.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

namespace {

constexpr int32_t cursor_data_size = 153;
constexpr int32_t dynamic_data_length = 152;  // the data of a cursor that belongs to a dynamic statement
constexpr int32_t statement_name_at = 16;
constexpr int32_t statement_length_at = 148;
constexpr int32_t shown_size = 129;

// ---- Keys -----------------------------------------------------------------------------------------------------------

// A key part's length, brought into the bounds of its field.
int32_t bounded(int32_t length) {
  return length < 0 ? 0 : (length > QLT_MAX_NAME ? QLT_MAX_NAME : length);
}

// Sets everything of a cleared key but its names.
void start_key(QLT_OBJECT_NAME &name, int32_t exists, int32_t type, const void *thread, int32_t threadlen) {
  name.think_exists = exists;
  name.obj_type = type;
  name.fnlen = QLT_WILDCARD;
  name.scopelen = QLT_WILDCARD;
  name.thread = const_cast<void *>(thread);  // the client library only reads it
  name.threadlen = threadlen;
}

void set_last_name(QLT_OBJECT_NAME &name, const void *text, int32_t length) {
  name.lnlen = bounded(length);
  memcpy(name.last_name, text, static_cast<size_t>(name.lnlen));
}

void set_first_name(QLT_OBJECT_NAME &name, const void *text, int32_t length) {
  name.fnlen = bounded(length);
  memcpy(name.first_name, text, static_cast<size_t>(name.fnlen));
}

void set_lrm_name(QLT_OBJECT_NAME &name, const XA_CONNECTION *conn) {
  set_last_name(name, conn->xc_lrm->lrm_name, static_cast<int32_t>(strlen(conn->xc_lrm->lrm_name)));
}

// ---- Cursors --------------------------------------------------------------------------------------------------------

// One step of the clean-up's walk over the cursor entries.
enum class CursorStep { removed, none_left, failed };

void clear_cursor_table(const TraceScope &trace, CS_CONTEXT *context, const QLT_OBJECT_NAME &cursor_key,
                        QLT_OBJECT_DATA &cursor) {
  QLT_OBJECT_NAME table = cursor_key;
  table.obj_type = QLT_OBJ_MAPPING;
  const int32_t ret = cs_objects(context, QLT_CLEAR, &table, &cursor);
  if (ret != CS_SUCCEED) {
    trace.warning()("cs_objects clear of cursor table failed, rc=%i\n", ret);
  }
}

// Puts the cursor's name into its key; false when the client library does not give it.
bool read_cursor_name(const TraceScope &trace, QLT_OBJECT_NAME &name, const QLT_OBJECT_DATA &cursor) {
  char text[QLT_MAX_NAME] = "";
  int32_t length = 0;
  const int32_t ret = ct_cmd_props(cursor.command, CS_GET, CS_CUR_NAME, text, sizeof text, &length);
  if (ret != CS_SUCCEED) {
    trace.warning()("ct_cmd_props(CS_GET CS_CUR_NAME) failed, rc=%i\n", ret);
    if (tracing(XATR_MISC)) {
      xc__obj_log("ct_cmd_props(CS_GET CS_CUR_NAME) failure", &name, &cursor);
    }
    return false;
  }
  length = bounded(length);
  if (length > 0 && text[length - 1] == '\0') {
    --length;
  }
  set_first_name(name, text, length);
  return true;
}

CursorStep remove_next_cursor(const TraceScope &trace, CS_CONTEXT *context, XA_CONNECTION *conn,
                              const XA_THRDID &identity) {
  const void *thread = identity.tid_len > 0 ? identity.tid_bytes : nullptr;
  QLT_OBJECT_NAME name{};
  start_key(name, 0, QLT_OBJ_CURSOR, thread, identity.tid_len);
  set_lrm_name(name, conn);
  char buffer[cursor_data_size];
  QLT_OBJECT_DATA cursor{};
  cursor.buffer = buffer;
  cursor.buflen = sizeof buffer;
  // A lookup that fails fills nothing, and is recognised by that.
  static_cast<void>(cs_objects(context, CS_GET, &name, &cursor));
  if (cursor.command == nullptr) {
    clear_cursor_table(trace, context, name, cursor);
    return CursorStep::none_left;
  }
  if (!read_cursor_name(trace, name, cursor)) {
    return CursorStep::failed;
  }
  // A cursor that could not be closed is reported; its entry goes all the same.
  static_cast<void>(xc__obj_curs_dealloc(cursor.command));
  if (cursor.buflen == dynamic_data_length) {
    xa__obj_cln_dynsql(context, conn, buffer, &name, &cursor);
  }
  name.think_exists = 1;
  const int32_t ret = cs_objects(context, QLT_CLEAR, &name, &cursor);
  if (ret != CS_SUCCEED) {
    // The lookup would meet the same entry for ever.
    trace.warning()("cs_objects clear cursor failed, rc=%i\n", ret);
    return CursorStep::failed;
  }
  return CursorStep::removed;
}

// Announces the closing of a cursor by its status; CS_FAIL when there is nothing to close or it cannot be announced.
int32_t announce_close(const TraceScope &trace, QLT_COMMAND *command, int32_t status) {
  if ((status & QLT_CURSOR_OPEN) != 0) {
    const int32_t ret = ct_cursor(command, CS_CURSOR_CLOSE, nullptr, QLT_UNUSED, nullptr, QLT_UNUSED, CS_DEALLOC);
    if (ret == CS_FAIL) {
      trace.error()("ct_cursor(CS_CURSOR_CLOSE, CS_DEALLOC) failed, rc=%i\n", ret);
    }
    return ret;
  }
  if ((status & QLT_CURSOR_CLOSED) != 0) {
    const int32_t ret = ct_cursor(command, CS_CURSOR_DEALLOC, nullptr, QLT_UNUSED, nullptr, QLT_UNUSED, QLT_UNUSED);
    if (ret == CS_FAIL) {
      trace.error()("ct_cursor(CS_CURSOR_DEALLOC) failed, rc=%i\n", ret);
    }
    return ret;
  }
  return CS_FAIL;
}

void drain(QLT_COMMAND *command) {
  int32_t type = 0;
  while (ct_results(command, &type) == CS_SUCCEED) {
  }
}

}  // namespace

int32_t xc_obj_cln_curs(CS_CONTEXT *context, XA_CONNECTION *conn) {
  const TraceScope trace("xc_obj_cln_curs", TRACE_CONN);
  XA_THRDID identity{};
  if (active_personality().get_thrdid(&identity) != 1) {
    identity.tid_len = QLT_UNUSED;
  }
  CursorStep step = CursorStep::removed;
  while (step == CursorStep::removed) {
    step = remove_next_cursor(trace, context, conn, identity);
  }
  return trace.cs(step == CursorStep::none_left ? CS_SUCCEED : CS_FAIL);
}

int32_t xc__obj_curs_dealloc(QLT_COMMAND *command) {
  const TraceScope trace("xc__obj_curs_dealloc", TRACE_CONN);
  int32_t status = 0;
  int32_t ret = ct_cmd_props(command, CS_GET, CS_CUR_STATUS, &status, QLT_UNUSED, nullptr);
  if (ret != CS_SUCCEED) {
    trace.error()("ct_cmd_props(CS_GET, CS_CUR_STATUS) failed, rc=%i\n", ret);
    return trace.cs(CS_FAIL);
  }
  ret = announce_close(trace, command, status);
  if (ret != CS_SUCCEED) {
    return trace.cs(ret);
  }
  ret = ct_send(command);
  if (ret != CS_SUCCEED) {
    trace.error()("ct_send failed, rc=%i\n", ret);
    return trace.cs(ret);
  }
  drain(command);
  ret = ct_cmd_drop(command);
  if (ret != CS_SUCCEED) {
    trace.error()("ct_cmd_drop failed, rc=%i\n", ret);
  }
  return trace.cs(ret);
}

// ---- Dynamic statements ---------------------------------------------------------------------------------------------

int32_t xa__obj_cln_dynsql(CS_CONTEXT *context, XA_CONNECTION *conn, const void *cursor_data,
                           const QLT_OBJECT_NAME *cursor_name, const QLT_OBJECT_DATA *) {
  const TraceScope trace("xa__obj_cln_dynsql", TRACE_MISC);
  const auto *bytes = static_cast<const char *>(cursor_data);
  int32_t length = 0;
  memcpy(&length, bytes + statement_length_at, sizeof length);
  if (length == QLT_NULLTERM) {
    length = static_cast<int32_t>(strnlen(bytes + statement_name_at, QLT_MAX_NAME));
  }

  QLT_OBJECT_NAME name{};
  start_key(name, 0, QLT_OBJ_STATEMENT, cursor_name->thread, cursor_name->threadlen);
  set_lrm_name(name, conn);
  set_first_name(name, bytes + statement_name_at, length);
  QLT_OBJECT_DATA data{};
  data.buflen = QLT_UNUSED;
  if (cs_objects(context, CS_GET, &name, &data) == CS_SUCCEED && data.actuallyexists == 1) {
    // A statement that could not be dropped is reported; its entry goes all the same.
    static_cast<void>(xa__obj_dynsql_drop(conn, cursor_data, &name, &data));
    name.think_exists = 1;
    const int32_t ret = cs_objects(context, QLT_CLEAR, &name, &data);
    if (ret != CS_SUCCEED) {
      trace.warning()("cs_objects clear statement failed, rc=%i\n", ret);
    }
  }

  QLT_OBJECT_NAME mapping{};
  start_key(mapping, 1, QLT_OBJ_MAPPING, cursor_name->thread, cursor_name->threadlen);
  set_last_name(mapping, bytes + statement_name_at, length);
  set_first_name(mapping, cursor_name->first_name, cursor_name->fnlen);
  const int32_t ret = cs_objects(context, QLT_CLEAR, &mapping, &data);
  if (ret != CS_SUCCEED) {
    trace.warning()("cs_objects clear of dynamic statement mapping failed, rc=%i\n", ret);
  }
  return trace.cs(CS_SUCCEED);
}

int32_t xa__obj_dynsql_drop(XA_CONNECTION *, const void *, const QLT_OBJECT_NAME *name, const QLT_OBJECT_DATA *data) {
  const TraceScope trace("xa__obj_dynsql_drop", TRACE_MISC);
  int32_t ret = ct_dynamic(data->command, CS_DEALLOC, name->first_name, name->fnlen, nullptr, QLT_UNUSED);
  if (ret != CS_SUCCEED) {
    trace.warning()("ct_dynamic failed, rc=%i\n", ret);
  } else {
    ret = ct_send(data->command);
    if (ret != CS_SUCCEED) {
      trace.warning()("ct_send failed, rc=%i\n", ret);
    } else {
      drain(data->command);
    }
  }
  ret = ct_cmd_drop(data->command);
  if (ret != CS_SUCCEED) {
    trace.warning()("ct_cmd_drop failed, rc=%i\n", ret);
  }
  return trace.cs(ret);
}

// ---- Dumps ----------------------------------------------------------------------------------------------------------

namespace {

// True when a key part of this length has a value to show.
bool shown(int32_t length) {
  return length > 0 || length == QLT_NULLTERM;
}

int32_t shown_characters(int32_t length) {
  return length == QLT_NULLTERM ? QLT_MAX_NAME : bounded(length);
}

uint32_t low_word(const void *pointer) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

void log_name(const TraceScope &trace, const QLT_OBJECT_NAME &name) {
  const LogLine line = trace.detail(0, XALOG_VERBOSE);
  char text[shown_size];
  line("object name.think_exists %d", name.think_exists);
  line("object name.obj_type %d", name.obj_type);
  line("object name.lnlen %d", name.lnlen);
  if (shown(name.lnlen)) {
    line("object name.last_name %.*s", shown_characters(name.lnlen), name.last_name);
  }
  line("object name.fnlen %d", name.fnlen);
  if (shown(name.fnlen)) {
    line("object name.first_name %.*s", shown_characters(name.fnlen), name.first_name);
  }
  line("object name.scopelen %d", name.scopelen);
  if (shown(name.scopelen)) {
    xc__obj_format(name.scope, name.scopelen, text, sizeof text);
    line("object name.scope %s", text);
  }
  line("object name.threadlen %d", name.threadlen);
  if (shown(name.threadlen)) {
    xc__obj_format(name.thread, name.threadlen, text, sizeof text);
    line("object name.thread %s", text);
  }
}

void log_data(const TraceScope &trace, const QLT_OBJECT_DATA &data) {
  const LogLine line = trace.detail(0, XALOG_VERBOSE);
  line("object data.actuallyexists %d", data.actuallyexists);
  line("object data.connection 0x%x", low_word(data.connection));
  line("object data.command 0x%x", low_word(data.command));
  line("object data.buffer 0x%x", low_word(data.buffer));
  line("object data.buflen %d", data.buflen);
}

}  // namespace

void xc__obj_log(const char *title, const QLT_OBJECT_NAME *name, const QLT_OBJECT_DATA *data) {
  const TraceScope trace("xc__obj_log", {XATR_MISC | XATR_VERBOSE, XALOG_MISC});
  if (tracing(XATR_VERBOSE)) {
    trace.detail(0, XALOG_VERBOSE)("%s\n", title);
    if (name != nullptr) {
      log_name(trace, *name);
    }
    if (data != nullptr) {
      log_data(trace, *data);
    }
  }
  trace.nothing();
}

void xc__obj_format(const void *bytes, int32_t length, char *out, int32_t size) {
  static constexpr char xa__obj_hex[] = "0123456789ABCDEF";
  if (length == QLT_NULLTERM) {
    strncpy(out, static_cast<const char *>(bytes), static_cast<size_t>(size));
    out[size - 1] = '\0';
    return;
  }
  const auto *from = static_cast<const unsigned char *>(bytes);
  int32_t at = 0;
  for (int32_t i = 0; i < length && at <= size - 4; ++i) {
    out[at++] = xa__obj_hex[from[i] >> 4];
    out[at++] = xa__obj_hex[from[i] & 15];
    if (i % 4 == 3 && i + 1 < length) {
      out[at++] = '.';
    }
  }
  out[at] = '\0';
}
