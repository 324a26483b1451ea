// Picks the record by the environment. A wrong name must not start a manager in a flavour that nobody asked for.
#include "chosen_flavour.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

const xadtm_lp64_switch *chosen_flavour() {
  const char *name = getenv("XADTM_FLAVOUR");
  if (name == nullptr || strcmp(name, "TXS") == 0) {
    return &tarvex_TXS_xa_switch_lp64;
  }
  if (strcmp(name, "MTS") == 0) {
    return &tarvex_MTS_xa_switch_lp64;
  }
  if (strcmp(name, "TUX") == 0) {
    return &tarvex_TUX_xa_switch_lp64;
  }
  fprintf(stderr,
          "libxadtm: XADTM_FLAVOUR is \"%s\", which is no flavour. Set it to TXS (each thread has resource managers of "
          "its own), TUX or MTS (all threads share them), or leave it unset for TXS.\n",
          name);
  return nullptr;
}
