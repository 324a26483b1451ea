/*
 * one_branch.c - the calls that a transaction manager makes for one branch, and the SQL of an application between them.
 *
 * usage: one_branch [-w SECONDS] OPEN_STRING LRM GTRID STATEMENT...
 *
 * Its exit status says what became of the statements: 0 committed, 1 not committed, 3 not known. Calls that complete
 * the branch are repeated for that many seconds, 60 unless -w says otherwise, while the server cannot be asked.
 *
 * A transaction manager has several branches in a transaction, and writes its decision to disk between the last prepare
 * and the first commit: after a crash it asks each resource manager for its branches in doubt (xa_recover) and commits
 * those that it had decided on, and rolls back the others. It never stops repeating; this program has no such record,
 * and leaves a branch that it cannot complete to the operator.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <xadtm.h>

#include "client.h"

enum { rmid = 1 };

/* What became of the statements; these are the exit statuses. */
enum answer { committed = 0, not_committed = 1, wrong_usage = 2, not_known = 3 };

static const struct xa_switch_t *const xa = &tarvex_TXS_xa_switch;
static const char *open_string;
static long seconds_to_repeat = 60;

/* Prints what a call answered, and gives it on. */
static int32_t show(const char *call, int32_t code) {
  printf("%s: %s\n", call, xacmn_log_xareturn(code));
  return code;
}

static XID make_xid(const char *gtrid) {
  XID xid = {.formatID = 1, .gtrid_length = (int32_t)strlen(gtrid), .bqual_length = 1};
  memcpy(xid.data, gtrid, strlen(gtrid));
  xid.data[xid.gtrid_length] = '1';
  return xid;
}

/* The application's part: it knows the LRM's name and nothing of the transaction. */
static int do_work(const char *lrm, char **statements, int count) {
  QLT_CONNECTION *connection = published_connection(lrm);
  if (connection == NULL) {
    fprintf(stderr, "no branch is started on LRM %s: is it the one of the open string?\n", lrm);
    return 0;
  }
  for (int i = 0; i < count; ++i) {
    if (!run_sql(connection, statements[i])) {
      return 0;
    }
  }
  return 1;
}

static int is_rolled_back(int32_t code) {
  return code >= XA_RBBASE && code <= XA_RBEND;
}

/* Whether the server has said what became of the branch. After any other code it may be as it was, or be completed. */
static int is_final(int32_t code) {
  switch (code) {
    case XA_OK:
    case XA_HEURCOM:
    case XA_HEURRB:
    case XA_HEURMIX:
    case XA_HEURHAZ:
    case XAER_NOTA:
      return 1;
    default:
      return is_rolled_back(code);
  }
}

typedef int32_t (*completing_verb)(const XID *, int32_t, int32_t);

/* The library closes a resource manager whose server is gone; opening one that is open changes nothing. */
static int32_t repeat_until_final(const char *call, completing_verb verb, const XID *xid) {
  const struct timespec pause = {.tv_sec = 0, .tv_nsec = 200000000};
  const time_t end = time(NULL) + seconds_to_repeat;
  int32_t code = show(call, verb(xid, rmid, TMNOFLAGS));
  while (!is_final(code) && time(NULL) < end) {
    nanosleep(&pause, NULL);
    if (xa->xa_open_entry(open_string, rmid, TMNOFLAGS) == XA_OK) {
      code = show(call, verb(xid, rmid, TMNOFLAGS));
    }
  }
  return code;
}

/* An operator decided as we did. When he decided otherwise, the branch stays listed until somebody has seen that. */
static enum answer agreed(const XID *xid, enum answer answer) {
  show("xa_forget", xa->xa_forget_entry(xid, rmid, TMNOFLAGS));
  return answer;
}

static enum answer unclear(const char *why) {
  fprintf(stderr, "%s\n", why);
  return not_known;
}

/* What only the data can tell, and what has to be done yet. */
static enum answer not_answered(int32_t code, const char *verb) {
  if (code == XAER_NOTA) {
    return unclear("the branch is gone: completed as decided, with the answer lost, or by an operator; ask the data");
  }
  if (code == XA_HEURMIX || code == XA_HEURHAZ) {
    return unclear("parts of the branch may have ended otherwise: compare the data, then forget the branch");
  }
  fprintf(stderr, "the branch may be in doubt: see xadtm branches, then xadtm %s\n", verb);
  return not_known;
}

/* After a good prepare only the decision counts: a commit that could not be delivered is repeated. */
static enum answer commit(const XID *xid) {
  const int32_t code = repeat_until_final("xa_commit", xa->xa_commit_entry, xid);
  switch (code) {
    case XA_OK:
      return committed;
    case XA_HEURCOM:
      return agreed(xid, committed);
    case XA_HEURRB:
      return not_committed;
    default:
      return is_rolled_back(code) ? not_committed : not_answered(code, "commit");
  }
}

/* After a prepare that failed: the branch may be prepared all the same, and would keep its locks for ever. */
static enum answer roll_back_voted(const XID *xid, int32_t vote) {
  const int32_t code = repeat_until_final("xa_rollback", xa->xa_rollback_entry, xid);
  switch (code) {
    case XA_OK:
      return not_committed;
    case XA_HEURRB:
      return agreed(xid, not_committed);
    case XA_HEURCOM:
      return committed;
    case XAER_NOTA:
      /* When prepare did not find the branch either, it was never prepared. */
      return vote == XAER_NOTA ? not_committed : not_answered(code, "rollback");
    default:
      return is_rolled_back(code) ? not_committed : not_answered(code, "rollback");
  }
}

/* What was never prepared cannot be committed; the server undoes it by itself when this call does not reach it. */
static enum answer roll_back_unprepared(const XID *xid) {
  show("xa_rollback", xa->xa_rollback_entry(xid, rmid, TMNOFLAGS));
  return not_committed;
}

static enum answer complete(const XID *xid) {
  const int32_t vote = show("xa_prepare", xa->xa_prepare_entry(xid, rmid, TMNOFLAGS));
  switch (vote) {
    case XA_OK:
      return commit(xid);
    case XA_RDONLY: /* nothing was changed: the branch is gone */
      return committed;
    default:
      return is_rolled_back(vote) ? not_committed : roll_back_voted(xid, vote);
  }
}

static enum answer run_branch(const char *lrm, const char *gtrid, char **statements, int count) {
  const XID xid = make_xid(gtrid);
  if (show("xa_start", xa->xa_start_entry(&xid, rmid, TMNOFLAGS)) != XA_OK) {
    return not_committed; /* no statement was run; XAER_DUPID: another branch has this name, leave it alone */
  }
  const int worked = do_work(lrm, statements, count);
  const int32_t ended = show("xa_end", xa->xa_end_entry(&xid, rmid, worked ? TMSUCCESS : TMFAIL));
  return worked && ended == XA_OK ? complete(&xid) : roll_back_unprepared(&xid);
}

/* Takes "-w SECONDS" off the front of the arguments. */
static int take_seconds(int *argc, char ***argv) {
  if (*argc < 2 || strcmp((*argv)[1], "-w") != 0) {
    return 1;
  }
  char *rest = NULL;
  seconds_to_repeat = *argc > 2 ? strtol((*argv)[2], &rest, 10) : -1;
  *argc -= 2;
  *argv += 2;
  return seconds_to_repeat >= 0 && rest != NULL && *rest == '\0';
}

int main(int argc, char **argv) {
  static const char *const answers[] = {"committed", "not committed", "", "not known"};
  if (!take_seconds(&argc, &argv) || argc < 5 || strlen(argv[3]) == 0 || strlen(argv[3]) > MAXGTRIDSIZE) {
    fputs("usage: one_branch [-w SECONDS] OPEN_STRING LRM GTRID STATEMENT...   (GTRID has 1 to 64 characters)\n",
          stderr);
    return wrong_usage;
  }
  open_string = argv[1];
  if (!start_client() || show("xa_open", xa->xa_open_entry(open_string, rmid, TMNOFLAGS)) != XA_OK) {
    fputs("the trace log says why: see trouble-shooting.md\n", stderr);
    return not_committed;
  }
  const enum answer answer = run_branch(argv[2], argv[3], argv + 4, argc - 4);
  show("xa_close", xa->xa_close_entry("", rmid, TMNOFLAGS));
  puts(answers[answer]);
  return (int)answer;
}
