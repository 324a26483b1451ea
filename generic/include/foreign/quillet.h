/*
 * quillet.h - the interface of the client library, declared once for both sides.
 *
 * libxadtm calls these operations; the client library that the application loaded provides them. Handles are opaque.
 * Every operation returns a client-library code: CS_SUCCEED, CS_FAIL or one of the negative codes. Integers are passed
 * by the address of a 32-bit integer; a length argument is a byte count, QLT_NULLTERM for a zero-terminated text, or
 * QLT_UNUSED where the value needs none.
 */
#ifndef QUILLET_H
#define QUILLET_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qlt_context CS_CONTEXT;
typedef struct qlt_connection QLT_CONNECTION;
typedef struct qlt_command QLT_COMMAND;

/* Return codes. */
#define CS_SUCCEED 1
#define CS_FAIL 0
#define CS_MEM_ERROR (-1)
#define CS_PENDING (-2)
#define CS_QUIET (-3)
#define CS_BUSY (-4)
#define CS_INTERRUPT (-5)
#define CS_BLK_HAS_TEXT (-6)
#define CS_CONTINUE (-7)
#define CS_CANCELED (-202)
#define CS_ROW_FAIL (-203)
#define CS_END_DATA (-204)
#define CS_END_RESULTS (-205)
#define CS_END_ITEM (-206)
#define CS_NOMSG (-207)
#define CS_TIMED_OUT (-208)
#define CS_PASSTHRU_EOM (-210)
#define CS_PASSTHRU_MORE (-211)
#define CS_TRYING (-213)
#define CS_EBADPARAM (-214)
#define CS_EBADLEN (-215)
#define CS_ENOCNVRT (-216)
#define CS_EOVERFLOW (-101)
#define CS_EUNDERFLOW (-102)
#define CS_EPRECISION (-103)
#define CS_ESCALE (-104)
#define CS_ESYNTAX (-105)
#define CS_EFORMAT (-106)
#define CS_EDOMAIN (-107)
#define CS_EDIVZERO (-108)
#define CS_ERESOURC (-109)
#define CS_ENULLNOIND (-110)
#define CS_ETRUNCNOIND (-111)
#define CS_ENOBIND (-112)
#define CS_TRUNCATED (-113)
#define CS_ESTYLE (-114)
#define CS_EBADXLT (-115)
#define CS_ENOXLT (-116)

/* Actions. */
#define CS_GET 33
#define CS_SET 34
#define QLT_CLEAR 35
#define CS_INIT 36

/* Lengths. */
#define QLT_UNUSED (-99999)
#define QLT_NULLTERM (-9)
#define QLT_WILDCARD (-99) /* object keys only: matches anything */

#define QLT_VERSION 1100 /* the version given to cs_ctx_global and ct_init */

/*
 * Datatypes. A column can be bound as any of them: numbers become texts that read back, and texts numbers when they are
 * one as a whole; a floating-point number becomes an integer when it is whole; a binary becomes hexadecimal digits, two
 * a byte, and such digits a binary. Numbers bind with QLT_FMT_NONE and at least their size.
 */
#define QLT_CHAR_TYPE 0    /* fmt_maxlen bytes */
#define QLT_BINARY_TYPE 1  /* fmt_maxlen bytes */
#define QLT_INT_TYPE 8     /* 4 bytes, signed */
#define QLT_FLOAT_TYPE 10  /* 8 bytes, a double */
#define QLT_BIGINT_TYPE 30 /* 8 bytes, signed */

/* Value formats and null indicators. */
#define QLT_FMT_NONE 0
#define QLT_FMT_NULLTERM 2 /* a bound character value ends with a zero byte */
#define QLT_IND_NULL (-1)  /* indicator of a null value; 0 otherwise */

/* Results of ct_results. */
#define CS_ROW_RESULT 4040
#define QLT_CURSOR_RESULT 4041
#define CS_PARAM_RESULT 4042
#define CS_STATUS_RESULT 4043
#define QLT_MSG_RESULT 4044
#define QLT_COMPUTE_RESULT 4045
#define CS_CMD_DONE 4046
#define CS_CMD_SUCCEED 4047
#define CS_CMD_FAIL 4048

/* Commands. */
#define QLT_LANG_COMMAND 148
#define QLT_RPC_COMMAND 149
#define QLT_NO_RECOMPILE 189
#define QLT_INPUT_PARAM 0x100
#define QLT_ROW_COUNT 800 /* ct_res_info at CS_CMD_DONE: the rows returned or changed, -1 when that means nothing */
#define QLT_NUM_COLUMNS 803
#define QLT_CANCEL_CURRENT 6000
#define CS_CANCEL_ALL 6001
#define QLT_CLOSE_FORCED 301
#define CS_CURSOR_CLOSE 706
#define CS_CURSOR_DEALLOC 707
#define CS_DEALLOC 711

/* Properties. */
#define QLT_PROP_USER 9100
#define QLT_PROP_PASSWORD 9101
#define QLT_PROP_APPNAME 9102
#define QLT_PROP_IFILE 9115
#define CS_CUR_STATUS 9126
#define CS_CUR_NAME 9128
#define QLT_PROP_CON_STATUS 9143
#define QLT_PROP_VERSION_TEXT 9144
#define QLT_PROP_THREAD_TABLE 9147
#define QLT_PROP_ABORT_WAIT 9190
#define QLT_PROP_FAILOVER 9196
#define QLT_CAPABILITY_RESPONSE 2 /* the capability type of every capability that is set */

/* Bits of the connection status (QLT_PROP_CON_STATUS) and of the cursor status (CS_CUR_STATUS). */
#define QLT_CON_OPEN 0x1
#define QLT_CON_BROKEN 0x2
#define QLT_CURSOR_OPEN 0x2
#define QLT_CURSOR_CLOSED 0x4

/* Callbacks and diagnostics. */
#define QLT_SERVERMSG_CB 2
#define QLT_CLIENTMSG_CB 3
#define QLT_CLIENT_MESSAGES 4700
#define QLT_SERVER_MESSAGES 4701

#define QLT_MAX_NAME 132
#define QLT_MAX_MSG 1024

/* A parameter's or column's data format. */
typedef struct qlt_format {
  char fmt_name[QLT_MAX_NAME];
  int32_t fmt_namelen; /* characters in fmt_name, or QLT_NULLTERM */
  int32_t fmt_datatype;
  int32_t fmt_format;
  int32_t fmt_maxlen; /* bytes of one value */
  int32_t fmt_status; /* QLT_INPUT_PARAM for parameters sent to the server */
  int32_t fmt_count;  /* rows bound at once */
  void *fmt_locale;   /* null */
} QLT_FORMAT;

/* A message of the client library; the number's bytes are layer (top), origin, severity and number (low). */
typedef struct qlt_client_message {
  int32_t msg_severity;
  int32_t msg_number;
  char msg_text[QLT_MAX_MSG];
  int32_t msg_textlen;
} QLT_CLIENT_MESSAGE;

/* A message of the server. */
typedef struct qlt_server_message {
  int32_t msg_number;
  int32_t msg_severity;
  char msg_text[QLT_MAX_MSG];
  int32_t msg_textlen;
  char msg_server[QLT_MAX_NAME]; /* zero-terminated */
} QLT_SERVER_MESSAGE;

typedef int32_t (*QLT_CLIENT_MESSAGE_CB)(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_CLIENT_MESSAGE *message);
typedef int32_t (*QLT_SERVER_MESSAGE_CB)(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_SERVER_MESSAGE *message);

/*
 * Key of an entry in the object registry. A length of QLT_NULLTERM means zero-terminated, QLT_WILDCARD matches any
 * value in a lookup or clear, QLT_UNUSED says that the part is not used.
 */
typedef struct qlt_object_name {
  int32_t think_exists;
  int32_t obj_type;
  char last_name[QLT_MAX_NAME];
  int32_t lnlen;
  char first_name[QLT_MAX_NAME];
  int32_t fnlen;
  void *scope;
  int32_t scopelen;
  void *thread;
  int32_t threadlen;
} QLT_OBJECT_NAME;

/* Data of an entry: on CS_GET, buflen is the size of buffer on input and the length of the stored data on output. */
typedef struct qlt_object_data {
  int32_t actuallyexists;
  QLT_CONNECTION *connection;
  QLT_COMMAND *command;
  void *buffer;
  int32_t buflen;
} QLT_OBJECT_DATA;

/* Kinds of registry entries. */
#define QLT_OBJ_CONNECTION 1
#define QLT_OBJ_CURSOR 2
#define QLT_OBJ_STATEMENT 3
#define QLT_OBJ_MAPPING 99

/*
 * The thread primitives, fetched with cs_config(QLT_PROP_THREAD_TABLE). Handles are 32-bit values, 0 is none. An empty
 * first entry means that the client library runs without thread support.
 */
typedef struct qlt_thread_table {
  int32_t (*create_mutex)(int32_t *handle);
  int32_t (*delete_mutex)(int32_t handle);
  int32_t (*take_mutex)(int32_t handle);
  int32_t (*release_mutex)(int32_t handle);
  int32_t (*create_event)(int32_t *handle);
  int32_t (*delete_event)(int32_t handle);
  int32_t (*signal_event)(int32_t handle);
  int32_t (*reset_event)(int32_t handle);
  int32_t (*waitfor_event)(int32_t handle, int32_t timeout);
  int32_t (*thread_identity)(void *buffer, int32_t size, int32_t *length);
} QLT_THREAD_TABLE;

/* ---- Context: one a process ---- */

/* The process's context, which is made by the first call; version is QLT_VERSION. */
int32_t cs_ctx_global(int32_t version, CS_CONTEXT **context);
/*
 * Gets or sets (action CS_GET, CS_SET) a property of the context that needs no server: the thread table, the version
 * text. *outlen, which may be null, is the length of the value that was got.
 */
int32_t cs_config(CS_CONTEXT *context, int32_t action, int32_t property, void *buffer, int32_t length, int32_t *outlen);
/* As ct_diag, for messages of calls on the context. */
int32_t cs_diag(CS_CONTEXT *context, int32_t operation, int32_t type, int32_t index, void *buffer);
/* Gets or sets how values of a datatype are shown as texts: item of code, for all of the context (locale null). */
int32_t cs_dt_info(CS_CONTEXT *context, int32_t action, void *locale, int32_t code, int32_t item, void *buffer,
                   int32_t length, int32_t *outlen);
/*
 * The registry of objects that application code and the library share: CS_SET puts the entry, CS_GET looks the first
 * one up that fits the key (actuallyexists says whether there is one), QLT_CLEAR removes all that fit. Guarded by the
 * client library itself.
 */
int32_t cs_objects(CS_CONTEXT *context, int32_t action, QLT_OBJECT_NAME *name, QLT_OBJECT_DATA *data);
/* Makes the context ready for connections; to be called once after cs_ctx_global. */
int32_t ct_init(CS_CONTEXT *context, int32_t version);
/* As cs_config, for what the context's connections inherit. */
int32_t ct_config(CS_CONTEXT *context, int32_t action, int32_t property, void *buffer, int32_t length, int32_t *outlen);

/* ---- Connections: used by one thread at a time ---- */

/* A connection that is not open yet; goes by ct_con_drop. */
int32_t ct_con_alloc(CS_CONTEXT *context, QLT_CONNECTION **connection);
/* Gets or sets a property (QLT_PROP_...); those of the login count at ct_connect. */
int32_t ct_con_props(QLT_CONNECTION *connection, int32_t action, int32_t property, void *buffer, int32_t length,
                     int32_t *outlen);
/* Gets or sets an option of the server for this session; needs an open connection. */
int32_t ct_options(QLT_CONNECTION *connection, int32_t action, int32_t option, void *value, int32_t length,
                   int32_t *outlen);
/* Gets or sets what the connection asks of the server or can take from it; type QLT_CAPABILITY_RESPONSE. */
int32_t ct_capability(QLT_CONNECTION *connection, int32_t action, int32_t type, int32_t capability, void *value);
/*
 * Gets (*callback) or sets the callback for QLT_CLIENTMSG_CB or QLT_SERVERMSG_CB of a context, which its connections
 * inherit, or of a connection; the other argument is null. Callbacks run in the thread whose call got the message.
 */
int32_t ct_callback(CS_CONTEXT *context, QLT_CONNECTION *connection, int32_t action, int32_t type, void *callback);
/*
 * Messages kept instead of passed to callbacks: CS_INIT begins that and replaces both callbacks by the client library's
 * own; QLT_CLEAR drops those of a type, CS_GET reads the one of that index.
 */
int32_t ct_diag(QLT_CONNECTION *connection, int32_t operation, int32_t type, int32_t index, void *buffer);
/* Opens the connection to the named server and logs in. CS_FAIL: not reached, or refused; it can be tried once more. */
int32_t ct_connect(QLT_CONNECTION *connection, const char *server, int32_t length);
/* Closes it; QLT_CLOSE_FORCED also with results unread. What is not committed is the server's to undo. */
int32_t ct_close(QLT_CONNECTION *connection, int32_t option);
/* Frees a connection that is closed or never was open, and its commands. */
int32_t ct_con_drop(QLT_CONNECTION *connection);

/* ---- Commands: what is sent, and what comes back ---- */

/* A command of an open connection; goes by ct_cmd_drop. Only one of a connection can have results at a time. */
int32_t ct_cmd_alloc(QLT_CONNECTION *connection, QLT_COMMAND **command);
/* Frees a command that has no results left. */
int32_t ct_cmd_drop(QLT_COMMAND *command);
/* Gets a property of the command: its cursor's status or name. */
int32_t ct_cmd_props(QLT_COMMAND *command, int32_t action, int32_t property, void *buffer, int32_t length,
                     int32_t *outlen);
/* Begins an SQL text (QLT_LANG_COMMAND) or a call of the procedure text (QLT_RPC_COMMAND). */
int32_t ct_command(QLT_COMMAND *command, int32_t type, const char *text, int32_t length, int32_t option);
/* Adds a parameter to a procedure call: a copy of length bytes at data; indicator QLT_IND_NULL for a null value. */
int32_t ct_param(QLT_COMMAND *command, const QLT_FORMAT *format, const void *data, int32_t length, int32_t indicator);
/* Begins a request on the command's cursor, such as CS_CURSOR_CLOSE. */
int32_t ct_cursor(QLT_COMMAND *command, int32_t type, const char *name, int32_t namelen, const char *text,
                  int32_t textlen, int32_t option);
/* Begins a request on a prepared statement, such as CS_DEALLOC. */
int32_t ct_dynamic(QLT_COMMAND *command, int32_t type, const char *name, int32_t namelen, const char *text,
                   int32_t textlen);
/* Sends what was begun. CS_FAIL: it did not go out, or the connection is lost. */
int32_t ct_send(QLT_COMMAND *command);
/*
 * Waits for the next result and says which it is (CS_ROW_RESULT, ...). CS_END_RESULTS: there are no more, and the
 * command is free; CS_FAIL: the conversation broke off.
 */
int32_t ct_results(QLT_COMMAND *command, int32_t *type);
/* About the present result: the number of columns (QLT_NUM_COLUMNS), the rows concerned (QLT_ROW_COUNT). */
int32_t ct_res_info(QLT_COMMAND *command, int32_t type, void *buffer, int32_t length, int32_t *outlen);
/* The name and datatype of a column; the first is 1. */
int32_t ct_describe(QLT_COMMAND *command, int32_t column, QLT_FORMAT *format);
/*
 * Where the next rows' values of a column go: fmt_count values of fmt_maxlen bytes each, their lengths and indicators,
 * either of which may be null. The buffers are filled by ct_fetch.
 */
int32_t ct_bind(QLT_COMMAND *command, int32_t column, const QLT_FORMAT *format, void *buffer, int32_t *lengths,
                int32_t *indicators);
/*
 * Fetches as many rows as are bound at once, or what is left; *rows is their number. CS_END_DATA: no row was left.
 * CS_ROW_FAIL: a row could not be converted. type, offset and option are QLT_UNUSED.
 */
int32_t ct_fetch(QLT_COMMAND *command, int32_t type, int32_t offset, int32_t option, int32_t *rows);
/*
 * Throws away the present result (QLT_CANCEL_CURRENT) or everything that is left (CS_CANCEL_ALL). Give a connection or
 * a command, the other null.
 */
int32_t ct_cancel(QLT_CONNECTION *connection, QLT_COMMAND *command, int32_t type);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QUILLET_H */
