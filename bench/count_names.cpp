// Encodes ("encode") or decodes ("decode") a branch name of 64 + 64 bytes as often as its second argument says, to be
// counted under valgrind.
#include <cstdlib>
#include <cstring>

#include "dtm/xal_dtm.h"
#include "record/xal_record.h"

int main(int argc, char **argv) {
  const bool decode = argc > 1 && strcmp(argv[1], "decode") == 0;
  const long rounds = argc > 2 ? strtol(argv[2], nullptr, 10) : 1;
  XID xid{};
  xid.gtrid_length = MAXGTRIDSIZE;
  xid.bqual_length = MAXBQUALSIZE;
  memset(xid.data, 0x5A, sizeof xid.data);
  char name[XA_NAME_SIZE];
  char gtrid[96];
  char bqual[96];
  char data[XIDDATASIZE];
  xa__dtm_encode(xid.data, MAXGTRIDSIZE, gtrid);
  xa__dtm_encode(xid.data + MAXGTRIDSIZE, MAXBQUALSIZE, bqual);
  for (long round = 0; round < rounds; ++round) {
    if (decode) {
      if (xa__dtm_decode(gtrid, data) + xa__dtm_decode(bqual, data + MAXGTRIDSIZE) != XIDDATASIZE) {
        return 1;
      }
    } else {
      xid.formatID = static_cast<int32_t>(round);
      xa__dtm_encode_xid(&xid, "L1", name);
    }
  }
  return 0;
}
