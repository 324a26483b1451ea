// The function that the transaction manager asks for a switch record, once it has loaded this module.
#include "chosen_flavour.h"

extern "C" {
__attribute__((visibility("default"))) const xadtm_lp64_switch *lixa_get_xa_switch();

const xadtm_lp64_switch *lixa_get_xa_switch() {
  return chosen_flavour();
}
}
