// Loads a ready-made module as a transaction manager does, which has nothing of the database in it, and asks for its
// switch record. Usage: module_test MODULE FUNCTION EXPECTED, where EXPECTED is MTS, TUX, TXS or none.
//
// The program exports functions of the names of libxadtm's generic entry points, as one with a second resource
// manager's library has them: nothing may get into those.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "xa_long.h"

namespace {

int caught = 0;

using GetSwitch = const xa_switch_t *(*)();

int complain(const char *what) {
  fprintf(stderr, "%s\n", what);
  return 1;
}

// Walks through the entries. The configuration names a server that is not there, so the library installs its flavour
// and then cannot open, and nothing is available; the functions below would answer XA_OK.
int try_entries(const xa_switch_t &xa, bool has_flavour) {
  char info[] = "-NL1 -Usa -Ppw -KK1";
  XID xid{1, 1, 1, "ab"};
  const struct {
    const char *name;
    int expected;
    int answer;
  } calls[] = {
      {"open", has_flavour ? XAER_RMERR : XAER_INVAL, xa.xa_open_entry(info, 1, TMNOFLAGS)},
      {"start", XAER_RMFAIL, xa.xa_start_entry(&xid, 1, TMNOFLAGS)},
      {"end", XAER_RMFAIL, xa.xa_end_entry(&xid, 1, TMSUCCESS)},
      {"prepare", XAER_RMFAIL, xa.xa_prepare_entry(&xid, 1, TMNOFLAGS)},
      {"commit", XAER_RMFAIL, xa.xa_commit_entry(&xid, 1, TMNOFLAGS)},
      {"rollback", XAER_RMFAIL, xa.xa_rollback_entry(&xid, 1, TMNOFLAGS)},
      {"forget", XAER_RMFAIL, xa.xa_forget_entry(&xid, 1, TMNOFLAGS)},
      {"recover", XAER_RMFAIL, xa.xa_recover_entry(&xid, 1, 1, TMSTARTRSCAN)},
      {"close", has_flavour ? XAER_INVAL : XA_OK, xa.xa_close_entry(info, 1, TMASYNC)},
  };
  int failed = 0;
  for (const auto &call : calls) {
    if (call.answer != call.expected) {
      fprintf(stderr, "%s answered %d, not %d\n", call.name, call.answer, call.expected);
      failed = 1;
    }
  }
  return caught == 0 ? failed : complain("a call went to the program's own functions");
}

}  // namespace

#define CATCH_CALLS(name)                                        \
  extern "C" __attribute__((visibility("default"))) int name() { \
    ++caught;                                                    \
    return XA_OK;                                                \
  }
CATCH_CALLS(xa_open)
CATCH_CALLS(xa_close)
CATCH_CALLS(xa_start)
CATCH_CALLS(xa_end)
CATCH_CALLS(xa_rollback)
CATCH_CALLS(xa_prepare)
CATCH_CALLS(xa_commit)
CATCH_CALLS(xa_recover)
CATCH_CALLS(xa_forget)

int main(int argc, char **argv) {
  if (argc != 4) {
    return complain("usage: module_test MODULE FUNCTION EXPECTED");
  }
  // Lazy binding and local scope: what a call needs has to be among the module's own needs.
  void *module = dlopen(argv[1], RTLD_LAZY | RTLD_LOCAL);
  if (module == nullptr) {
    return complain(dlerror());
  }
  const auto get_switch = reinterpret_cast<GetSwitch>(dlsym(module, argv[2]));
  if (get_switch == nullptr) {
    return complain(dlerror());
  }
  const xa_switch_t *xa = get_switch();
  if (xa == nullptr) {
    return complain("no record was given out");
  }
  if (strcmp(argv[3], "none") == 0) {
    return try_entries(*xa, false);
  }
  void *bridge = dlopen(getenv("XADTM_LP64_FILE"), RTLD_LAZY | RTLD_NOLOAD);
  const std::string name = std::string("tarvex_") + argv[3] + "_xa_switch_lp64";
  const auto *flavour = bridge == nullptr ? nullptr : static_cast<const xa_switch_t *>(dlsym(bridge, name.c_str()));
  if (flavour == nullptr || flavour->xa_commit_entry != xa->xa_commit_entry) {
    return complain("another flavour's record was given out");
  }
  // The library has no tear-down and stays, whatever the manager does.
  dlclose(bridge);
  dlclose(module);
  return try_entries(*xa, true);
}
