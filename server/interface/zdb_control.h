/*
 * zdb_control.h - how tests, tools and operators set up and steer the embedded database servers.
 *
 * These servers live in the process and are found by their names; the client library logs in to them with ct_connect,
 * as it does to those of an interfaces file. All
 * functions may be called from any thread. They return 1 on success and 0 when the server (or the branch) is unknown
 * or the arguments are bad, unless stated otherwise. libxadtm never calls any of them.
 */
#ifndef ZDB_CONTROL_H
#define ZDB_CONTROL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Makes an empty server with DTM switched on; 0 when the name is taken, empty or longer than 31 characters. */
int32_t zdb_create_server(const char *server);
/*
 * Opens the folder, made when it does not exist, as a server of that name that keeps its data there. 0 also when the
 * folder cannot be opened.
 */
int32_t zdb_open_folder(const char *server, const char *folder);
/* Removes a server: its sessions break off, its branches are gone, but for what a folder keeps. */
int32_t zdb_drop_server(const char *server);
/* Adds or replaces a login; dtm_role says whether it may call the DTM procedures. */
int32_t zdb_add_user(const char *server, const char *user, const char *password, int32_t dtm_role);
/*
 * The value of the configuration row "enable DTM"; ZDB_NO_CONFIG_ROW removes the row. With any value but 1 the DTM
 * procedures refuse.
 */
#define ZDB_NO_CONFIG_ROW (-1)
int32_t zdb_set_dtm(const char *server, int32_t value);
/* While on, a login with failover asked for (property 9196 set to 1) fails; one without it succeeds. */
int32_t zdb_refuse_failover_logins(const char *server, int32_t on);

/* The state of a branch by its name, a DTM_STATE_ number of dtm_protocol.h; 0 when the server does not know it. */
int32_t zdb_branch_state(const char *server, const char *branch);
/* The number of branches that the server knows, heuristic ones included; -1 for an unknown server. */
int32_t zdb_branch_count(const char *server);
/* The number of branches that transaction managers have committed on it; -1 for an unknown server. */
int32_t zdb_commit_count(const char *server);
/* The operator's forced outcome of a prepared branch: commit (1) or roll back (0). 0 unless it was prepared. */
int32_t zdb_force(const char *server, const char *branch, int32_t commit);
/* Puts a prepared branch of that name on the server, as if some other process had prepared it. */
int32_t zdb_plant_prepared(const char *server, const char *branch);
/* Breaks off every session of the server, or those of one user; returns how many. */
int32_t zdb_break_sessions(const char *server, const char *user);
/* The number of sessions that are logged in; -1 for an unknown server. */
int32_t zdb_session_count(const char *server);

/*
 * Scripted replies: the next matching requests of any session are answered as told instead of by the rule book. A
 * script has a procedure name ("$commitTrvDtmXact", "sp_transactions", "language" for language commands, "cursor" or
 * "statement" for requests on those, or "*" for any request), how many matching requests pass untouched first, and how
 * many are then changed.
 *
 * Scripts of different kinds that are due change the same reply together. Of two scripts of one kind the first one that
 * was added changes its requests before the other has its turn, except that extra rows and fetch codes add up. Of the
 * kinds that replace the work, ZDB_REPLY_DROP_BEFORE wins over ZDB_REPLY_CMD_FAIL and that over ZDB_REPLY_STATUS.
 */
typedef enum zdb_reply_kind {
  ZDB_REPLY_STATUS,         /* answer the status `value`, without doing the work */
  ZDB_REPLY_RPCERROR,       /* answer "@$rpcerror" = value with the status the rule book gives, work done */
  ZDB_REPLY_XACTSTATUS,     /* do the work, add "@xactstatus" = value */
  ZDB_REPLY_TWO_STATUSES,   /* do the work, answer its status and then the status `value` */
  ZDB_REPLY_ROW,            /* do the work, put a one-row integer result with `value` before the status */
  ZDB_REPLY_CMD_FAIL,       /* do nothing, answer CS_CMD_FAIL and CS_CMD_DONE */
  ZDB_REPLY_NO_STATUS,      /* do the work, leave the status out */
  ZDB_REPLY_DROP_BEFORE,    /* break the session off before the work is done */
  ZDB_REPLY_DROP_AFTER,     /* break the session off after the work is done, before the reply */
  ZDB_REPLY_SCAN_STATUS,    /* sp_transactions: rows as usual, then the status `value` */
  ZDB_REPLY_SCAN_NO_STATUS, /* sp_transactions: rows as usual, no status */
  ZDB_REPLY_SCAN_EXTRA_ROW, /* any reply with rows: `text` as one more row before the others, as a number if need be */
  ZDB_REPLY_FETCH_CODE      /* the first ct_fetch on the reply, or the next one, returns `value` (CS_BUSY, ...) once */
} ZDB_REPLY_KIND;

typedef struct zdb_script {
  const char *procedure; /* exact name, "language", or "*" */
  int32_t skip;          /* matching requests left alone first */
  int32_t times;         /* matching requests changed after that; -1 for all that follow */
  ZDB_REPLY_KIND kind;
  int32_t value;
  const char *text; /* copied; null unless the kind uses it */
} ZDB_SCRIPT;

/* Adds a script; 0 also when it lacks the text that its kind needs. Scripts are tried in the order they were added. */
int32_t zdb_add_script(const char *server, const ZDB_SCRIPT *script);
int32_t zdb_clear_scripts(const char *server);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* ZDB_CONTROL_H */
