// A process that exports generic entry points of its own, as one with a second resource manager's library does: calls
// inside libxadtm must still reach libxadtm's.
#include <dlfcn.h>

#include <cstdio>

#include "xa.h"

struct xa_personality;

namespace {
int32_t caught = 0;
}

extern "C" {
__attribute__((visibility("default"))) int32_t xa_open(const char *, int32_t, int32_t, const xa_personality *) {
  ++caught;
  return XA_OK;
}
__attribute__((visibility("default"))) void xalog_msg(const char *, const char *, int32_t, int32_t) {
  ++caught;
}
__attribute__((visibility("default"))) int32_t _trvtux_take_mutex(int32_t) {
  ++caught;
  return 1;
}
}

int main(int argc, char **argv) {
  void *library = argc > 1 ? dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL) : nullptr;
  if (library == nullptr) {
    fprintf(stderr, "the library could not be loaded: %s\n", argc > 1 ? dlerror() : "name it as the argument");
    return 2;
  }
  const auto *tm = static_cast<const xa_switch_t *>(dlsym(library, "tarvex_TUX_xa_switch"));
  if (tm == nullptr) {
    return 2;
  }
  // The library's own xa_open refuses the flag; the one above would accept it.
  const int32_t opened = tm->xa_open_entry("-NL1", 1, TMASYNC);
  fprintf(stderr, "xa_open answered %d, %d calls were caught\n", opened, caught);
  return opened == XAER_INVAL && caught == 0 ? 0 : 1;
}
