// The resource managers that a transaction manager has open in one thread identity, with their open strings, and their
// recovery scans. A list under a mutex, touched by open, close and recover and by verbs that were refused: a verb that
// goes well passes it by. Records are never freed while the identity lives, so they are found by rmid for ever.
//
// Open strings hold passwords: nothing is left of them in the list once the resource manager is closed.
#pragma once

#include <pthread.h>

#include <cstdint>

// A copy of an open string, wiped at its end. Null when there was no memory for it.
class OpenString {
 public:
  OpenString() = default;
  explicit OpenString(const char *info);
  ~OpenString();
  OpenString(const OpenString &) = delete;
  OpenString &operator=(const OpenString &) = delete;

  const char *text() const { return text_; }
  void swap(OpenString &other);
  // Takes the place of what was there.
  void become(OpenString &other);

 private:
  char *text_ = nullptr;
};

// What is known of an rmid.
enum class Memory {
  nothing,  // the manager has it not open
  open,     // it has, and the string is there
  closing,  // it is closing it now
  unusable  // it could not open it, or there was no memory to know
};

// What became of asking for the rmid's scan.
enum class ScanClaim { unknown, busy, claimed };  // unknown: not open, so there is nothing to share

class OpenRms {
 public:
  // Makes room for the rmid. False when there is no memory: then it must not be opened.
  bool reserve(int32_t rmid);
  // Both for an rmid that was reserved: it is open with this string, instead of an older one; it could not be opened.
  void remember(int32_t rmid, OpenString &info);
  void note_failure(int32_t rmid);

  // The string that the rmid was opened with last, when it is open.
  Memory recall(int32_t rmid, OpenString &info);

  // The same, and when it is open, closes of the rmid wait until end_reopen.
  Memory begin_reopen(int32_t rmid, OpenString &info);
  void end_reopen(int32_t rmid);

  // A close forgets what was open when it began, when it succeeded. What is opened meanwhile stays.
  using Opening = uint64_t;
  Opening begin_close(int32_t rmid);
  void end_close(int32_t rmid, Opening last, bool closed);
  void forget_failure(int32_t rmid);

  // A scan is several calls of libxadtm, and between them it lies with the identity: a second one of the rmid at the
  // same time would take branches from it, and neither would know.
  ScanClaim begin_scan(int32_t rmid);
  // Whether libxadtm keeps the scan for a later call.
  void end_scan(int32_t rmid, bool kept);
  bool scan_is_kept(int32_t rmid);

  // Frees all records, when no thread uses them any more.
  void clear();

 private:
  struct Rm {
    Rm *next;
    int32_t rmid;
    OpenString info;    // null: not open
    Opening opening;    // the number of its last opening
    Opening closed_to;  // openings up to this one are being closed, while `closes` is not 0
    uint32_t closes;
    uint32_t reopens;
    bool failed;
    bool is_scanned;
    bool keeps_scan;
  };
  class Lock;

  Rm *find(int32_t rmid) const;
  Memory look_up(int32_t rmid, OpenString &info) const;

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t reopened_ = PTHREAD_COND_INITIALIZER;
  Rm *rms_ = nullptr;
};

// Notes that something could not be remembered. From then on no rmid of the process is taken for one that is not open.
void note_lack_of_memory();
bool lacked_memory();
