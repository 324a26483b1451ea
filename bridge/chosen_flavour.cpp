// Picks the record by the environment. A wrong name must not start a manager in a flavour that nobody asked for, and
// managers take what they are given without a look, so there is a record for it, too.
#include "chosen_flavour.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "xa.h"

namespace {

const char *flavour_name() {
  const char *name = getenv("XADTM_FLAVOUR");
  return name != nullptr ? name : "";
}

int refuse_open(const char * /*info*/, int /*rmid*/, long /*flags*/) {
  fprintf(stderr,
          "libxadtm: XADTM_FLAVOUR is \"%s\", which is no flavour. Set it to TXS (each thread has resource managers of "
          "its own), TUX or MTS (all threads share them), or leave it unset for TXS.\n",
          flavour_name());
  return XAER_INVAL;
}

int close_nothing(const char * /*info*/, int /*rmid*/, long /*flags*/) {
  return XA_OK;
}

// What a branch of an earlier process needs is not known: the manager is to keep its record.
int not_available(const xadtm_lp64_xid * /*xid*/, int /*rmid*/, long /*flags*/) {
  return XAER_RMFAIL;
}

int no_scan(xadtm_lp64_xid * /*xids*/, long /*count*/, int /*rmid*/, long /*flags*/) {
  return XAER_RMFAIL;
}

int complete_nothing(int * /*handle*/, int * /*result*/, int /*rmid*/, long /*flags*/) {
  return XAER_PROTO;
}

constexpr xadtm_lp64_switch no_flavour = {"TARVEX_XA_SERVER", TMNOFLAGS,     0,
                                          refuse_open,        close_nothing, not_available,
                                          not_available,      not_available, not_available,
                                          not_available,      no_scan,       not_available,
                                          complete_nothing};

}  // namespace

const xadtm_lp64_switch *chosen_flavour() {
  const char *name = flavour_name();
  if (*name == '\0' || strcmp(name, "TXS") == 0) {
    return &tarvex_TXS_xa_switch_lp64;
  }
  if (strcmp(name, "MTS") == 0) {
    return &tarvex_MTS_xa_switch_lp64;
  }
  if (strcmp(name, "TUX") == 0) {
    return &tarvex_TUX_xa_switch_lp64;
  }
  return &no_flavour;
}
