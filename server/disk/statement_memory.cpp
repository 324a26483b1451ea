// Counts what each thread takes from the allocator below SQLite.
#include "disk/statement_memory.h"

#include <sqlite3.h>

#include <atomic>
#include <cstdint>

namespace zdb {
namespace {

constexpr int64_t statement_max = int64_t{128} << 20;
constexpr int64_t all_max = int64_t{1} << 30;

// What the thread's statements have taken, less what they gave back.
struct Account {
  bool open = false;
  int64_t taken = 0;
};

thread_local constinit Account account;
std::atomic<int64_t> all_taken{0};
sqlite3_mem_methods plain;

bool may_take(int64_t size) {
  return !account.open || (account.taken + size <= statement_max && all_taken + size <= all_max);
}

void note(int64_t change) {
  if (account.open) {
    account.taken += change;
    all_taken += change;
  }
}

void *take(int size) {
  void *const memory = may_take(size) ? plain.xMalloc(size) : nullptr;
  if (memory != nullptr) {
    note(plain.xSize(memory));
  }
  return memory;
}

void give_back(void *memory) {
  if (memory != nullptr) {
    note(-int64_t{plain.xSize(memory)});
  }
  plain.xFree(memory);
}

void *resize(void *memory, int size) {
  const int64_t before = plain.xSize(memory);
  void *const resized = may_take(size - before) ? plain.xRealloc(memory, size) : nullptr;
  if (resized != nullptr) {
    note(plain.xSize(resized) - before);
  }
  return resized;
}

}  // namespace

void bound_statement_memory() {
  if (sqlite3_config(SQLITE_CONFIG_GETMALLOC, &plain) != SQLITE_OK) {
    return;
  }
  sqlite3_mem_methods bounded = plain;
  bounded.xMalloc = take;
  bounded.xFree = give_back;
  bounded.xRealloc = resize;
  sqlite3_config(SQLITE_CONFIG_MALLOC, &bounded);
}

StatementMemory::StatementMemory() {
  account = {true, 0};
}

StatementMemory::~StatementMemory() {
  all_taken -= account.taken;
  account = {};
}

}  // namespace zdb
