/*
 * quillet_control.h - how tests steer the stand-in client library and look into it.
 *
 * libxadtm never calls any of these. All may be called from any thread.
 */
#ifndef QUILLET_CONTROL_H
#define QUILLET_CONTROL_H

#include <stdint.h>

#include "quillet.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A function that every operation of quillet.h (not the thread primitives) calls first, with the operation's name.
 * Returning 1 lets the operation go on; any other value becomes its return code and it does nothing else, except that
 * operations that give a handle back (ct_con_drop, ct_cmd_drop, ct_close) do their work all the same. Null: no hook.
 */
typedef int32_t (*QLT_CALL_HOOK)(const char *operation, void *argument);
#define QLT_HOOK_PROCEED 1
void qlt_set_call_hook(QLT_CALL_HOOK hook, void *argument);

/* Makes the nth call (from 1) from now on of any operation return CS_FAIL, or every call from the nth on; 0 stops. */
void qlt_fail_call(int32_t nth, int32_t and_all_later);
/* Calls counted since qlt_fail_call. */
int32_t qlt_calls_made(void);

/* Without thread support, the thread table is handed out empty. On by default. */
void qlt_set_thread_support(int32_t on);
/* The length that thread_identity reports: 1 to 16 give that many bytes, others are reported as they are. Default 8. */
void qlt_set_identity_length(int32_t length);

/* Live handles. */
int32_t qlt_live_connections(void);
int32_t qlt_live_commands(void);
int32_t qlt_live_objects(void);
/* Mutexes held by any thread, and whether the calling thread holds this one. */
int32_t qlt_mutexes_held(void);
int32_t qlt_mutex_held_here(int32_t handle);

/* Callbacks that new connections inherit from the context; null for none. */
void qlt_set_context_callbacks(QLT_CLIENT_MESSAGE_CB client, QLT_SERVER_MESSAGE_CB server);
/* The next ct_connect delivers this client message (and server message) first; texts are copied. */
void qlt_queue_client_message(const QLT_CLIENT_MESSAGE *message);
void qlt_queue_server_message(const QLT_SERVER_MESSAGE *message);

/*
 * What application code would have done on a connection: announces an open cursor or a prepared statement in the
 * object registry under the LRM's name and the calling thread's identity (pass its bytes and length). A cursor with a
 * statement's name gets the 152 bytes of data that tie it to that statement, and the statement is announced too unless
 * it was before. Give a null name for what is not to be announced. The mapping entries come along. Returns CS_SUCCEED,
 * or CS_FAIL when the connection is not open, a name is too long or the cursor is there already.
 */
int32_t qlt_announce_cursor(QLT_CONNECTION *connection, const char *lrm, const char *cursor, const char *statement,
                            const void *thread, int32_t threadlen);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QUILLET_CONTROL_H */
