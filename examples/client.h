/*
 * client.h - SQL as application code runs it through the client library: on the connection that libxadtm has published
 * for a branch, or on one of the application's own, on which each statement commits by itself.
 */
#ifndef EXAMPLES_CLIENT_H
#define EXAMPLES_CLIENT_H

#include <quillet.h>

/* Sets the client library up, with messages to standard error. 1, or 0 when it cannot be used. */
int start_client(void);

/* Runs a statement and prints its rows, values separated by blanks. 1, or 0 when the server refused it. */
int run_sql(QLT_CONNECTION *connection, const char *statement);

/*
 * The connection of the branch that the calling thread has started on this LRM through the TXS switch, or null when
 * there is none. It belongs to libxadtm: ask for it again in each branch, use it between xa_start and xa_end only, and
 * never close it. (Under TUX a connection is published without the thread: threadlen is QLT_UNUSED. libxadtm(3) says
 * what MTS adds.)
 */
QLT_CONNECTION *published_connection(const char *lrm);

/* A new connection, or null. close_connection closes it and gives it back. */
QLT_CONNECTION *open_connection(const char *server, const char *user, const char *password);
void close_connection(QLT_CONNECTION *connection);

#endif
