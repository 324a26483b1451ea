// The function that the transaction manager asks for a switch record, once it has loaded this module.
//
// The manager suspends a branch around a call of a service in the same group, and the service's process joins it then.
// To libxadtm a suspended branch is still attached to the connection that it was begun on, and nobody else can have it.
// So a suspension is an end here, and a resumption a join.
#include <pthread.h>

#include "chosen_flavour.h"
#include "xa.h"

namespace {

constinit pthread_once_t once = PTHREAD_ONCE_INIT;
constinit const xadtm_lp64_switch *chosen = nullptr;
constinit xadtm_lp64_switch record{};

int start(const xadtm_lp64_xid *xid, int rmid, long flags) {
  const bool resumes = (flags & TMRESUME) != 0 && (flags & TMJOIN) == 0;
  return chosen->xa_start_entry(xid, rmid, resumes ? flags ^ (TMRESUME | TMJOIN) : flags);
}

int end(const xadtm_lp64_xid *xid, int rmid, long flags) {
  return chosen->xa_end_entry(xid, rmid, flags == TMSUSPEND ? TMSUCCESS : flags);
}

void make_record() {
  chosen = chosen_flavour();
  record = *chosen;
  record.xa_start_entry = start;
  record.xa_end_entry = end;
}

}  // namespace

extern "C" {
__attribute__((visibility("default"))) const xadtm_lp64_switch *ndrx_get_xa_switch();

const xadtm_lp64_switch *ndrx_get_xa_switch() {
  pthread_once(&once, make_record);
  return &record;
}
}
