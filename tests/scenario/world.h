// What a scenario runs in: two servers, a configuration, a flavour's switch record, a clock that never waits, and a
// second thread that a step can be sent to.
//
// The servers are "bank1" (LRM L1) and "bank2" (LRM L2), the user is "sa"; rmids 1 and 3 are opened on L1, rmid 2 on
// L2. The world checks at every client-library call that the serialisation mutex is free while the client library may
// wait for the server (ct_results) and held while a request goes out (ct_send).
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "interface/zdb_control.h"
#include "xadtm.h"

inline constexpr unsigned MTS = 1;
inline constexpr unsigned TUX = 2;
inline constexpr unsigned TXS = 4;
inline constexpr unsigned every_flavour = MTS | TUX | TXS;

inline constexpr const char *bank = "bank1";

const char *flavour_name(unsigned flavour);
const xa_switch_t &flavour_switch(unsigned flavour);

// A thread that runs what it is given, one piece at a time.
class Worker {
 public:
  Worker();
  ~Worker();
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  int32_t run(const std::function<int32_t()> &work);
  // Starts the work without waiting for it; result() waits.
  void start(std::function<int32_t()> work);
  bool idle();
  int32_t result();

 private:
  void loop();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::function<int32_t()> work_;
  bool busy_ = false;
  bool ends_ = false;
  int32_t result_ = 0;
  std::thread thread_;
};

// Holds a thread that has armed it at its next call of a client-library operation, until it is opened.
class Gate {
 public:
  explicit Gate(std::string operation) : operation_(std::move(operation)) {}
  // Called by the thread that is to be held.
  void hold_me();
  void wait_until_held();
  void open();
  void pass(const char *operation);

 private:
  std::string operation_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool held_ = false;
  bool open_ = false;
};

class World {
 public:
  explicit World(unsigned flavour);
  ~World();
  World(const World &) = delete;
  World &operator=(const World &) = delete;

  const xa_switch_t &xa() const { return flavour_switch(flavour); }
  std::string open_string(int32_t rmid) const;

  int32_t open(int32_t rmid) const;
  int32_t close(int32_t rmid) const { return xa().xa_close_entry("", rmid, TMNOFLAGS); }
  int32_t start(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS) const;
  int32_t end(int32_t rmid, const std::string &branch, int32_t flags = TMSUCCESS) const;
  int32_t prepare(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS) const;
  int32_t commit(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS) const;
  int32_t rollback(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS) const;
  int32_t forget(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS) const;

  bool logged(const std::string &text) const;
  // The branch's state on bank1, or on bank2 when it is named by LRM L2.
  static int32_t state(const std::string &branch, const char *lrm = "L1");
  // Starts the branch, ends it and prepares it; the first code that is not XA_OK.
  int32_t prepared(int32_t rmid, const std::string &branch) const;

  // Closes what is open in both threads; then nothing may be left, in the client library, on the servers or in memory.
  void expect_nothing_left();
  void expect_mutex_respected() const;

  unsigned flavour;
  Worker other;
  std::vector<uint32_t> slept;                               // what the library slept, in seconds
  std::map<std::size_t, std::function<void()>> when_asleep;  // by the number of the sleep, from 1
  int32_t asleep_result = INT32_MIN;
  std::vector<std::string> planted;  // in-doubt branches, in the order that a scan tells them
  std::size_t scanned = 0;           // how many of them the present scan has told
  std::atomic<Gate *> gate{nullptr};
  std::atomic<bool> watch{true};  // see the file's head
  std::atomic<int32_t> held_while_waiting{0};
  std::atomic<int32_t> free_while_sending{0};
  std::atomic<int32_t> inits{0};  // calls of ct_init

  std::atomic<int32_t> commands_made{0};  // calls of ct_cmd_alloc less those of ct_cmd_drop

  std::string server_option;  // added to the open strings
  std::string log_path;

 private:
  std::string directory_;
};

// The XID of a label: the label as gtrid and "b" as bqual. A label that begins with "*" gives 64 and 64 bytes, one that
// begins with "-" an empty bqual.
XID xid_of(const std::string &label);
std::string branch_name(const std::string &label, const char *lrm = "L1");

// Runs the work in a process of its own and gives its result, or child_failed when an expectation failed there or the
// process died.
inline constexpr int32_t child_failed = -1;
int32_t run_forked(const std::function<int32_t()> &work);
