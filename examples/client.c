/*
 * client.c - what the examples need of the client library.
 */
#include "client.h"

#include <stdio.h>
#include <string.h>

enum { most_columns = 16, value_size = 256 };

static CS_CONTEXT *context;

static int32_t hear_server(CS_CONTEXT *of, QLT_CONNECTION *connection, QLT_SERVER_MESSAGE *message) {
  (void)of;
  (void)connection;
  fprintf(stderr, "server: %s\n", message->msg_text);
  return CS_SUCCEED;
}

static int32_t hear_client(CS_CONTEXT *of, QLT_CONNECTION *connection, QLT_CLIENT_MESSAGE *message) {
  (void)of;
  (void)connection;
  fprintf(stderr, "client library: %s\n", message->msg_text);
  return CS_SUCCEED;
}

/* Callbacks are passed as object pointers, as POSIX allows. */
static void set_callback(int32_t kind, void (*callback)(void)) {
  void *pointer = NULL;
  memcpy(&pointer, &callback, sizeof pointer);
  ct_callback(context, NULL, CS_SET, kind, pointer);
}

int start_client(void) {
  if (cs_ctx_global(QLT_VERSION, &context) != CS_SUCCEED || ct_init(context, QLT_VERSION) != CS_SUCCEED) {
    fputs("the client library cannot be used\n", stderr);
    return 0;
  }
  set_callback(QLT_SERVERMSG_CB, (void (*)(void))hear_server);
  set_callback(QLT_CLIENTMSG_CB, (void (*)(void))hear_client);
  return 1;
}

/* Binds all columns as texts and prints row by row. */
static int print_rows(QLT_COMMAND *command) {
  static char values[most_columns][value_size];
  int32_t lengths[most_columns] = {0};
  int32_t indicators[most_columns] = {0};
  int32_t columns = 0;
  ct_res_info(command, QLT_NUM_COLUMNS, &columns, QLT_UNUSED, NULL);
  if (columns > most_columns) {
    fprintf(stderr, "more than %d columns: select fewer\n", most_columns);
    return 0;
  }
  for (int32_t i = 0; i < columns; ++i) {
    QLT_FORMAT format = {0};
    ct_describe(command, i + 1, &format);
    format.fmt_datatype = QLT_CHAR_TYPE;
    format.fmt_format = QLT_FMT_NULLTERM;
    format.fmt_maxlen = value_size;
    ct_bind(command, i + 1, &format, values[i], &lengths[i], &indicators[i]);
  }
  int32_t rows = 0;
  int32_t code = 0;
  while ((code = ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &rows)) == CS_SUCCEED) {
    for (int32_t i = 0; i < columns; ++i) {
      printf("%s%s", i == 0 ? "  " : " ", indicators[i] == QLT_IND_NULL ? "null" : values[i]);
    }
    putchar('\n');
  }
  return code == CS_END_DATA;
}

static int read_results(QLT_COMMAND *command) {
  int good = 1;
  int32_t kind = 0;
  int32_t code = 0;
  while ((code = ct_results(command, &kind)) == CS_SUCCEED) {
    if (kind == CS_CMD_FAIL || (kind == CS_ROW_RESULT && !print_rows(command))) {
      good = 0;
    }
    if (!good) {
      ct_cancel(NULL, command, CS_CANCEL_ALL);
      return 0;
    }
  }
  return code == CS_END_RESULTS;
}

int run_sql(QLT_CONNECTION *connection, const char *statement) {
  QLT_COMMAND *command = NULL;
  if (ct_cmd_alloc(connection, &command) != CS_SUCCEED) {
    return 0;
  }
  const int good =
      ct_command(command, QLT_LANG_COMMAND, statement, (int32_t)strlen(statement), QLT_UNUSED) == CS_SUCCEED &&
      ct_send(command) == CS_SUCCEED && read_results(command);
  ct_cmd_drop(command);
  return good;
}

/* The calling thread's identity as the client library knows it; its length in bytes, or 0. */
static int32_t thread_identity(void *identity, int32_t size) {
  QLT_THREAD_TABLE threads = {0};
  int32_t length = 0;
  if (cs_config(context, CS_GET, QLT_PROP_THREAD_TABLE, &threads, QLT_UNUSED, NULL) != CS_SUCCEED ||
      threads.thread_identity == NULL || threads.thread_identity(identity, size, &length) != CS_SUCCEED) {
    return 0;
  }
  return length;
}

QLT_CONNECTION *published_connection(const char *lrm) {
  char identity[16];
  QLT_OBJECT_NAME name = {0};
  QLT_OBJECT_DATA data = {0};
  const size_t length = strlen(lrm);
  if (length > sizeof name.last_name) {
    return NULL;
  }
  name.obj_type = QLT_OBJ_CONNECTION;
  memcpy(name.last_name, lrm, length);
  name.lnlen = (int32_t)length;
  name.fnlen = QLT_UNUSED;
  name.scopelen = QLT_UNUSED;
  name.thread = identity;
  name.threadlen = thread_identity(identity, sizeof identity);
  data.buflen = QLT_UNUSED;
  return cs_objects(context, CS_GET, &name, &data) == CS_SUCCEED && data.actuallyexists == 1 ? data.connection : NULL;
}

static void set_property(QLT_CONNECTION *connection, int32_t property, const char *value) {
  ct_con_props(connection, CS_SET, property, (void *)value, (int32_t)strlen(value), NULL);
}

QLT_CONNECTION *open_connection(const char *server, const char *user, const char *password) {
  QLT_CONNECTION *connection = NULL;
  if (ct_con_alloc(context, &connection) != CS_SUCCEED) {
    return NULL;
  }
  set_property(connection, QLT_PROP_USER, user);
  set_property(connection, QLT_PROP_PASSWORD, password);
  if (ct_connect(connection, server, (int32_t)strlen(server)) != CS_SUCCEED) {
    ct_con_drop(connection);
    return NULL;
  }
  return connection;
}

void close_connection(QLT_CONNECTION *connection) {
  ct_close(connection, QLT_UNUSED);
  ct_con_drop(connection);
}
