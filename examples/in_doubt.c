/*
 * in_doubt.c - lists the branches in doubt through the bridge, whose records a transaction manager with an XA header of
 * C `long` uses: XIDs of 152 bytes, words of 64 bits.
 *
 * usage: in_doubt OPEN_STRING
 */
#include <stdio.h>
#include <xadtm_lp64.h>

enum { rmid = 1, at_once = 10 };

/* Names and values of the XA standard, as the manager's own header has them. */
static const long start_scan = 0x01000000, end_scan = 0x00800000;

static void print_bytes(const char *bytes, long count) {
  for (long i = 0; i < count; ++i) {
    printf("%02x", (unsigned char)bytes[i]);
  }
}

static void print_branch(const struct xadtm_lp64_xid *xid) {
  printf("%ld ", xid->formatID);
  print_bytes(xid->data, xid->gtrid_length);
  putchar(' ');
  print_bytes(xid->data + xid->gtrid_length, xid->bqual_length);
  putchar('\n');
}

/* A scan goes on while the array comes back full. */
static int list_branches(const struct xadtm_lp64_switch *xa) {
  struct xadtm_lp64_xid xids[at_once];
  long flags = start_scan;
  int found = 0;
  do {
    found = xa->xa_recover_entry(xids, at_once, rmid, flags);
    for (int i = 0; i < found; ++i) {
      print_branch(&xids[i]);
    }
    flags = 0;
  } while (found == at_once);
  xa->xa_recover_entry(NULL, 0, rmid, end_scan);
  if (found < 0) {
    fprintf(stderr, "xa_recover answered %d\n", found);
  }
  return found >= 0;
}

int main(int argc, char **argv) {
  if (argc != 2) {
    fputs("usage: in_doubt OPEN_STRING\n", stderr);
    return 2;
  }
  const struct xadtm_lp64_switch *const xa = &tarvex_TXS_xa_switch_lp64;
  const int code = xa->xa_open_entry(argv[1], rmid, 0);
  if (code != 0) {
    fprintf(stderr, "xa_open answered %d; the trace log says why: see trouble-shooting.md\n", code);
    return 1;
  }
  const int listed = list_branches(xa);
  xa->xa_close_entry("", rmid, 0);
  if (fflush(stdout) != 0 || ferror(stdout)) {
    fputs("the list could not be written\n", stderr); /* an empty one would say that nothing is in doubt */
    return 1;
  }
  return listed ? 0 : 1;
}
