// A client library and common routines for measuring: every call is answered at once, with the reply that a healthy
// server would send, and nothing is checked. Allocations are counted.
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "common_routines.h"
#include "instant_client.h"
#include "quillet.h"

struct qlt_context {
  int unused;
};
struct qlt_connection {
  int unused;
};
struct qlt_command {
  int32_t value;    // the reply's one value
  int32_t type;     // CS_STATUS_RESULT or CS_ROW_RESULT
  int32_t results;  // results handed out so far
  bool fetched;     // the value's row has been fetched
  void *bound;      // where the value goes
};

namespace {

qlt_context the_context;
int64_t allocations = 0;
int64_t requests = 0;

struct Answer {
  std::string_view procedure;
  int32_t status;
};
constexpr Answer answers[] = {
    {"$beginTrvDtmXact", 0},   {"$detachTrvDtmXact", 1},  {"$attachTrvDtmXact", 2},
    {"$statusTrvDtmXact", -2}, {"$prepareTrvDtmXact", 2}, {"$commitTrvDtmXact", 7},
};

int32_t answer_to(const char *procedure) {
  for (const Answer &answer : answers) {
    if (answer.procedure == procedure) {
      return answer.status;
    }
  }
  return 0;
}

int32_t make_handle(int32_t *handle) {
  *handle = 1;
  return CS_SUCCEED;
}
int32_t accept_handle(int32_t) {
  return CS_SUCCEED;
}
int32_t accept_wait(int32_t, int32_t) {
  return CS_SUCCEED;
}
int32_t identify(void *buffer, int32_t, int32_t *length) {
  memset(buffer, 1, 4);
  *length = 4;
  return CS_SUCCEED;
}

constexpr QLT_THREAD_TABLE threads = {make_handle,   accept_handle, accept_handle, accept_handle, make_handle,
                                      accept_handle, accept_handle, accept_handle, accept_wait,   identify};

}  // namespace

extern "C" {

int64_t instant_allocations() {
  return allocations;
}
int64_t instant_requests() {
  return requests;
}

void *comn_malloc(size_t size) {
  ++allocations;
  return malloc(size);
}
void comn_free(void *block) {
  free(block);
}
// A configuration file (whose content is made up below) and a log that costs nothing.
const char *com_getenv(const char *name) {
  if (strcmp(name, "XACONFIGFILE") == 0) {
    return "xa_config";
  }
  return strcmp(name, "XALOGFILE") == 0 ? "/dev/null" : nullptr;
}
int32_t com_unsignstrcmp(const char *left, const char *right) {
  return strcmp(left, right);
}
int32_t com_unsignstricmp(const char *left, const char *right) {
  return strcasecmp(left, right);
}
int32_t com_unsignstrncmp(const char *left, const char *right, int32_t count) {
  return strncmp(left, right, static_cast<size_t>(count));
}
int32_t intl_open(const char *, INTL_READER *reader) {
  reader->reader_state = nullptr;
  return 1;
}
// One [xa] section that names the LRM L1; the path does not matter.
char *intl_nextsection(INTL_READER *reader, int32_t *status) {
  static char section[] = "xa";
  *status = 0;
  if (reader->reader_state != nullptr) {
    return nullptr;
  }
  reader->reader_state = section;
  reader->reader_reserved[0] = nullptr;
  return section;
}
char *intl_nextentry(INTL_READER *reader, int32_t *status) {
  static char entry[] = "lrm";
  *status = 0;
  if (reader->reader_reserved[0] != nullptr) {
    return nullptr;
  }
  reader->reader_reserved[0] = entry;
  return entry;
}
char *intl_nextvalue(INTL_READER *, int32_t *status) {
  static char value[] = "L1";
  *status = 0;
  return value;
}
int32_t intl_close(INTL_READER *) {
  return 1;
}

int32_t cs_ctx_global(int32_t, CS_CONTEXT **context) {
  *context = &the_context;
  return CS_SUCCEED;
}
int32_t cs_config(CS_CONTEXT *, int32_t, int32_t, void *buffer, int32_t, int32_t *) {
  memcpy(buffer, &threads, sizeof threads);
  return CS_SUCCEED;
}
int32_t cs_diag(CS_CONTEXT *, int32_t, int32_t, int32_t, void *) {
  return CS_SUCCEED;
}
int32_t cs_dt_info(CS_CONTEXT *, int32_t, void *, int32_t, int32_t, void *, int32_t, int32_t *) {
  return CS_SUCCEED;
}
int32_t cs_objects(CS_CONTEXT *, int32_t, QLT_OBJECT_NAME *, QLT_OBJECT_DATA *) {
  return CS_SUCCEED;
}
int32_t ct_init(CS_CONTEXT *, int32_t) {
  return CS_SUCCEED;
}
int32_t ct_config(CS_CONTEXT *, int32_t, int32_t, void *, int32_t, int32_t *outlen) {
  if (outlen != nullptr) {
    *outlen = 0;
  }
  return CS_SUCCEED;
}
int32_t ct_con_alloc(CS_CONTEXT *, QLT_CONNECTION **connection) {
  *connection = new (std::nothrow) qlt_connection{};
  return *connection != nullptr ? CS_SUCCEED : CS_MEM_ERROR;
}
int32_t ct_con_props(QLT_CONNECTION *, int32_t action, int32_t, void *buffer, int32_t, int32_t *) {
  if (action == CS_GET) {
    *static_cast<int32_t *>(buffer) = QLT_CON_OPEN;
  }
  return CS_SUCCEED;
}
int32_t ct_options(QLT_CONNECTION *, int32_t, int32_t, void *, int32_t, int32_t *) {
  return CS_SUCCEED;
}
int32_t ct_capability(QLT_CONNECTION *, int32_t, int32_t, int32_t, void *) {
  return CS_SUCCEED;
}
int32_t ct_callback(CS_CONTEXT *, QLT_CONNECTION *, int32_t action, int32_t, void *callback) {
  if (action == CS_GET) {
    *static_cast<void **>(callback) = nullptr;
  }
  return CS_SUCCEED;
}
int32_t ct_diag(QLT_CONNECTION *, int32_t, int32_t, int32_t, void *) {
  return CS_SUCCEED;
}
int32_t ct_connect(QLT_CONNECTION *, const char *, int32_t) {
  return CS_SUCCEED;
}
int32_t ct_close(QLT_CONNECTION *, int32_t) {
  return CS_SUCCEED;
}
int32_t ct_con_drop(QLT_CONNECTION *connection) {
  delete connection;
  return CS_SUCCEED;
}
int32_t ct_cmd_alloc(QLT_CONNECTION *, QLT_COMMAND **command) {
  *command = new (std::nothrow) qlt_command{};
  return *command != nullptr ? CS_SUCCEED : CS_MEM_ERROR;
}
int32_t ct_cmd_drop(QLT_COMMAND *command) {
  delete command;
  return CS_SUCCEED;
}
int32_t ct_cmd_props(QLT_COMMAND *, int32_t, int32_t, void *, int32_t, int32_t *) {
  return CS_FAIL;
}
int32_t ct_command(QLT_COMMAND *command, int32_t type, const char *text, int32_t, int32_t) {
  const bool language = type == QLT_LANG_COMMAND;
  command->type = language ? CS_ROW_RESULT : CS_STATUS_RESULT;
  command->value = language ? 1 : answer_to(text);
  return CS_SUCCEED;
}
int32_t ct_param(QLT_COMMAND *, const QLT_FORMAT *, const void *, int32_t, int32_t) {
  return CS_SUCCEED;
}
int32_t ct_cursor(QLT_COMMAND *, int32_t, const char *, int32_t, const char *, int32_t, int32_t) {
  return CS_FAIL;
}
int32_t ct_dynamic(QLT_COMMAND *, int32_t, const char *, int32_t, const char *, int32_t) {
  return CS_FAIL;
}
int32_t ct_send(QLT_COMMAND *command) {
  command->results = 0;
  ++requests;
  return CS_SUCCEED;
}
int32_t ct_results(QLT_COMMAND *command, int32_t *type) {
  switch (command->results++) {
    case 0:
      *type = command->type;
      command->fetched = false;
      return CS_SUCCEED;
    case 1:
      *type = CS_CMD_DONE;
      return CS_SUCCEED;
    default:
      return CS_END_RESULTS;
  }
}
int32_t ct_res_info(QLT_COMMAND *, int32_t, void *buffer, int32_t, int32_t *) {
  *static_cast<int32_t *>(buffer) = 1;
  return CS_SUCCEED;
}
int32_t ct_describe(QLT_COMMAND *, int32_t, QLT_FORMAT *format) {
  format->fmt_datatype = QLT_INT_TYPE;
  format->fmt_maxlen = sizeof(int32_t);
  return CS_SUCCEED;
}
int32_t ct_bind(QLT_COMMAND *command, int32_t, const QLT_FORMAT *, void *buffer, int32_t *, int32_t *) {
  command->bound = buffer;
  return CS_SUCCEED;
}
int32_t ct_fetch(QLT_COMMAND *command, int32_t, int32_t, int32_t, int32_t *rows) {
  if (command->fetched) {
    *rows = 0;
    return CS_END_DATA;
  }
  command->fetched = true;
  *rows = 1;
  memcpy(command->bound, &command->value, sizeof command->value);
  return CS_SUCCEED;
}
int32_t ct_cancel(QLT_CONNECTION *, QLT_COMMAND *, int32_t) {
  return CS_SUCCEED;
}

}  // extern "C"
