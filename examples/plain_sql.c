/*
 * plain_sql.c - runs statements on a connection of the program's own: each commits by itself.
 *
 * usage: plain_sql SERVER USER PASSWORD STATEMENT...
 */
#include <stdio.h>

#include "client.h"

int main(int argc, char **argv) {
  if (argc < 5) {
    fputs("usage: plain_sql SERVER USER PASSWORD STATEMENT...\n", stderr);
    return 2;
  }
  if (!start_client()) {
    return 1;
  }
  QLT_CONNECTION *connection = open_connection(argv[1], argv[2], argv[3]);
  if (connection == NULL) {
    fprintf(stderr, "cannot connect to %s\n", argv[1]);
    return 1;
  }
  int good = 1;
  for (int i = 4; i < argc && good; ++i) {
    good = run_sql(connection, argv[i]);
  }
  close_connection(connection);
  if (fflush(stdout) != 0 || ferror(stdout)) {
    fputs("the rows could not be written\n", stderr);
    return 1;
  }
  return good ? 0 : 1;
}
