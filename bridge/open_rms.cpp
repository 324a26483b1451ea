// The memory of open resource managers. See the header.
#include "open_rms.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

constinit std::atomic<bool> lacked{false};

}  // namespace

void note_lack_of_memory() {
  lacked.store(true);
}

bool lacked_memory() {
  return lacked.load();
}

OpenString::OpenString(const char *info) {
  const size_t size = strlen(info) + 1;
  text_ = static_cast<char *>(malloc(size));
  if (text_ != nullptr) {
    memcpy(text_, info, size);
  }
}

OpenString::~OpenString() {
  if (text_ != nullptr) {
    explicit_bzero(text_, strlen(text_));
    free(text_);
  }
}

void OpenString::swap(OpenString &other) {
  char *const text = text_;
  text_ = other.text_;
  other.text_ = text;
}

void OpenString::become(OpenString &other) {
  OpenString old;
  swap(old);
  swap(other);
}

class OpenRms::Lock {
 public:
  explicit Lock(OpenRms &rms) : rms_(rms) { pthread_mutex_lock(&rms_.mutex_); }
  ~Lock() { pthread_mutex_unlock(&rms_.mutex_); }
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;

 private:
  OpenRms &rms_;
};

OpenRms::Rm *OpenRms::find(int32_t rmid) const {
  Rm *rm = rms_;
  while (rm != nullptr && rm->rmid != rmid) {
    rm = rm->next;
  }
  return rm;
}

bool OpenRms::reserve(int32_t rmid) {
  const Lock lock(*this);
  if (find(rmid) != nullptr) {
    return true;
  }
  auto *rm = static_cast<Rm *>(calloc(1, sizeof(Rm)));
  if (rm == nullptr) {
    note_lack_of_memory();
    return false;
  }
  rm->rmid = rmid;
  rm->next = rms_;
  rms_ = rm;
  return true;
}

void OpenRms::remember(int32_t rmid, OpenString &info) {
  const Lock lock(*this);
  Rm *rm = find(rmid);
  rm->info.become(info);
  ++rm->opening;
  rm->failed = false;
}

void OpenRms::note_failure(int32_t rmid) {
  const Lock lock(*this);
  find(rmid)->failed = true;
}

void OpenRms::forget_failure(int32_t rmid) {
  const Lock lock(*this);
  Rm *rm = find(rmid);
  if (rm != nullptr) {
    rm->failed = false;
  }
}

Memory OpenRms::look_up(int32_t rmid, OpenString &info) const {
  const Rm *rm = find(rmid);
  if (rm == nullptr || rm->info.text() == nullptr) {
    return lacked_memory() || (rm != nullptr && rm->failed) ? Memory::unusable : Memory::nothing;
  }
  if (rm->closes > 0 && rm->opening <= rm->closed_to) {
    return Memory::closing;
  }
  OpenString copy(rm->info.text());
  info.become(copy);
  return info.text() != nullptr ? Memory::open : Memory::unusable;
}

Memory OpenRms::recall(int32_t rmid, OpenString &info) {
  const Lock lock(*this);
  return look_up(rmid, info);
}

Memory OpenRms::begin_reopen(int32_t rmid, OpenString &info) {
  const Lock lock(*this);
  const Memory found = look_up(rmid, info);
  if (found == Memory::open) {
    ++find(rmid)->reopens;
  }
  return found;
}

void OpenRms::end_reopen(int32_t rmid) {
  const Lock lock(*this);
  --find(rmid)->reopens;
  pthread_cond_broadcast(&reopened_);
}

OpenRms::Opening OpenRms::begin_close(int32_t rmid) {
  const Lock lock(*this);
  Rm *rm = find(rmid);
  if (rm == nullptr) {
    return 0;
  }
  // From here on nobody begins to open it again.
  ++rm->closes;
  rm->closed_to = rm->opening;
  while (rm->reopens > 0) {
    pthread_cond_wait(&reopened_, &mutex_);
  }
  return rm->closed_to;
}

void OpenRms::end_close(int32_t rmid, Opening last, bool closed) {
  const Lock lock(*this);
  Rm *rm = find(rmid);
  if (rm == nullptr || rm->closes == 0) {
    return;
  }
  --rm->closes;
  if (closed && rm->opening <= last) {
    OpenString none;
    rm->info.become(none);
    rm->keeps_scan = false;
  }
}

ScanClaim OpenRms::begin_scan(int32_t rmid) {
  const Lock lock(*this);
  Rm *rm = find(rmid);
  if (rm == nullptr || rm->info.text() == nullptr) {
    return ScanClaim::unknown;
  }
  if (rm->is_scanned) {
    return ScanClaim::busy;
  }
  rm->is_scanned = true;
  return ScanClaim::claimed;
}

void OpenRms::end_scan(int32_t rmid, bool kept) {
  const Lock lock(*this);
  Rm *rm = find(rmid);
  rm->is_scanned = false;
  rm->keeps_scan = kept;
}

bool OpenRms::scan_is_kept(int32_t rmid) {
  const Lock lock(*this);
  const Rm *rm = find(rmid);
  return rm != nullptr && rm->keeps_scan;
}

void OpenRms::clear() {
  while (rms_ != nullptr) {
    Rm *rm = rms_;
    rms_ = rm->next;
    rm->info.~OpenString();
    free(rm);
  }
}
