/*
 * one_branch.c - the calls that a transaction manager makes for one branch, and the SQL of an application between them.
 *
 * usage: one_branch OPEN_STRING LRM GTRID STATEMENT...
 *
 * A transaction manager has several branches in a transaction, and writes its decision to disk between the last prepare
 * and the first commit: after a crash it asks each resource manager for its branches in doubt (xa_recover) and commits
 * those that it had decided on, and rolls back the others.
 */
#include <stdio.h>
#include <string.h>
#include <xadtm.h>

#include "client.h"

enum { rmid = 1 };

static const struct xa_switch_t *const xa = &tarvex_TXS_xa_switch;

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

/* After a good prepare only the decision counts: a commit that could not be delivered is repeated, never given up. */
static int complete(XID *xid) {
  const int32_t vote = show("xa_prepare", xa->xa_prepare_entry(xid, rmid, TMNOFLAGS));
  if (vote == XA_RDONLY) {
    return 1; /* nothing was changed: the branch is gone */
  }
  if (vote != XA_OK) {
    return 0;
  }
  return show("xa_commit", xa->xa_commit_entry(xid, rmid, TMNOFLAGS)) == XA_OK;
}

static int run_branch(const char *lrm, const char *gtrid, char **statements, int count) {
  XID xid = make_xid(gtrid);
  if (show("xa_start", xa->xa_start_entry(&xid, rmid, TMNOFLAGS)) != XA_OK) {
    return 0;
  }
  const int worked = do_work(lrm, statements, count);
  const int32_t ended = show("xa_end", xa->xa_end_entry(&xid, rmid, worked ? TMSUCCESS : TMFAIL));
  if (worked && ended == XA_OK) {
    return complete(&xid);
  }
  show("xa_rollback", xa->xa_rollback_entry(&xid, rmid, TMNOFLAGS));
  return 0;
}

int main(int argc, char **argv) {
  if (argc < 5 || strlen(argv[3]) == 0 || strlen(argv[3]) > MAXGTRIDSIZE) {
    fputs("usage: one_branch OPEN_STRING LRM GTRID STATEMENT...   (GTRID has 1 to 64 characters)\n", stderr);
    return 2;
  }
  if (!start_client() || show("xa_open", xa->xa_open_entry(argv[1], rmid, TMNOFLAGS)) != XA_OK) {
    fputs("the trace log says why: see trouble-shooting.md\n", stderr);
    return 1;
  }
  const int committed = run_branch(argv[2], argv[3], argv + 4, argc - 4);
  show("xa_close", xa->xa_close_entry("", rmid, TMNOFLAGS));
  puts(committed ? "committed" : "not committed");
  return committed ? 0 : 1;
}
