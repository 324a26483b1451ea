// A process that loads the library and its bridge with dlopen and has no memory left at any one place: a fresh thread
// runs a whole branch with its n-th allocation refused, for every n. Not even the loader, which gives a thread its data
// at their first use, may end the process, and the next thread finds everything as it should be.
// Usage: no_memory_test LIBXADTM LIBXADTM_LP64
#include <dlfcn.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "xadtm.h"
#include "xadtm_lp64.h"

namespace {

constinit thread_local int32_t allowed = -1;  // allocations until one is refused; negative: none is

bool is_refused() {
  return allowed >= 0 && allowed-- == 0;
}

}  // namespace

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);

__attribute__((visibility("default"))) void *malloc(size_t size) {
  if (is_refused()) {
    errno = ENOMEM;
    return nullptr;
  }
  return __libc_malloc(size);
}
__attribute__((visibility("default"))) void *calloc(size_t count, size_t size) {
  if (is_refused()) {
    errno = ENOMEM;
    return nullptr;
  }
  return __libc_calloc(count, size);
}
}

namespace {

constexpr const char *open_string = "-NL1 -Utester -Ppw -Sserver -L/dev/null -Tall";
constexpr xadtm_lp64_xid xid = {1, 4, 4, "branch01"};
constexpr long success = TMSUCCESS;
constexpr long failure = TMFAIL;

using DumpXid = const char *(*)(const XID *);

// Whether every verb of a branch answered XA_OK; goes on after one that did not.
bool run_branch(const xadtm_lp64_switch &tm, DumpXid dump_xid) {
  bool fine = tm.xa_open_entry(open_string, 1, 0) == XA_OK;
  fine = tm.xa_start_entry(&xid, 1, 0) == XA_OK && fine;
  fine = tm.xa_end_entry(&xid, 1, success) == XA_OK && fine;
  fine = tm.xa_prepare_entry(&xid, 1, 0) == XA_OK && fine;
  fine = tm.xa_commit_entry(&xid, 1, 0) == XA_OK && fine;
  fine = tm.xa_close_entry("", 1, 0) == XA_OK && fine;
  constexpr XID narrow = {1, 1, 0, {7}};
  return strcmp(dump_xid(&narrow), "\t1.1.0\n\t07\n\t\n") == 0 && fine;
}

void tidy_up(const xadtm_lp64_switch &tm) {
  tm.xa_end_entry(&xid, 1, failure);
  tm.xa_rollback_entry(&xid, 1, 0);
  tm.xa_close_entry("", 1, 0);
}

template <typename Wanted>
Wanted find(const char *library, const char *name) {
  void *loaded = dlopen(library, RTLD_NOW | RTLD_GLOBAL);
  auto found = loaded != nullptr ? reinterpret_cast<Wanted>(dlsym(loaded, name)) : nullptr;
  if (found == nullptr) {
    fprintf(stderr, "%s\n", dlerror());
    exit(2);
  }
  return found;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: no_memory_test LIBXADTM LIBXADTM_LP64\n");
    return 2;
  }
  const auto dump_xid = find<DumpXid>(argv[1], "xacmn_log_dump_xid");
  const auto &tm = *find<const xadtm_lp64_switch *>(argv[2], "tarvex_TXS_xa_switch_lp64");
  int32_t refused = 0;
  for (bool was_refused = true; was_refused; ++refused) {
    bool fine = false;
    std::thread([&] {
      allowed = refused;
      fine = run_branch(tm, dump_xid);
      was_refused = allowed < 0;
      allowed = -1;
      if (!fine) {
        tidy_up(tm);
      }
    }).join();
    std::thread([&] { fine = run_branch(tm, dump_xid); }).join();
    if (!fine) {
      fprintf(stderr, "a branch with memory failed after allocation %d had been refused\n", refused + 1);
      return 1;
    }
  }
  fprintf(stderr, "%d allocations were refused in turn\n", refused - 1);
  return refused > 5 ? 0 : 1;
}
