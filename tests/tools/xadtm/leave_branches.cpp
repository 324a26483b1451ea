// Prepares branches at a server and leaves them in doubt.
//
// usage: leave_branches OPEN_STRING < names; "T1.a" is the branch "a" of the global transaction "T1". Without -N they
// are those of an LRM without a name. The libraries are linked, since AddressSanitizer does not know the functions of
// libraries that a program loads later.
#include <iostream>
#include <string>
#include <string_view>

#include "xadtm.h"
#include "xid_bytes.h"

namespace {

XID named_xid(const std::string &name) {
  const size_t dot = name.find('.');
  return xid_of(0x5841, name.substr(0, dot), name.substr(dot + 1));
}

bool prepare(const xa_switch_t &xa, const XID &xid) {
  return xa.xa_start_entry(&xid, 1, TMNOFLAGS) == XA_OK && xa.xa_end_entry(&xid, 1, TMSUCCESS) == XA_OK &&
         xa.xa_prepare_entry(&xid, 1, TMNOFLAGS) == XA_OK;
}

}  // namespace

int main(int argc, char **argv) {
  const bool has_name = argc == 2 && std::string_view(argv[1]).find("-N") != std::string_view::npos;
  const xa_switch_t &xa = has_name ? tarvex_TXS_xa_switch : tarvex_MTS_xa_switch;
  if (argc != 2 || xa.xa_open_entry(argv[1], 1, TMNOFLAGS) != XA_OK) {
    return 1;
  }
  for (std::string name; std::cin >> name;) {
    if (!prepare(xa, named_xid(name))) {
      return 1;
    }
  }
  return xa.xa_close_entry("", 1, TMNOFLAGS) == XA_OK ? 0 : 1;
}
