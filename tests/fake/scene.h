// What unit tests stand on: a personality whose mutex operations the fake client library follows, a connection record
// that belongs to no list, captured log lines, injected sleep, and the checks that every test ends with.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "fake_client.h"
#include "personality/xal_personality.h"
#include "record/xal_record.h"
#include "registry/xal_registry.h"

namespace fake {

constexpr const char *open_string = "-NL1 -Usa -Ppw -Sbank";
constexpr const char *branch_name = "1234_0g83_10k_:L1";

XID make_xid(int32_t format, const std::string &gtrid, const std::string &bqual = "");
XID branch();                                // the XID of branch_name
XID other_branch();                          // 2_1w__:L1
XID none();                                  // the null XID
std::string file_with(const std::string &);  // the path of a fresh temporary file

// Requests for branch(), as Library::take_requests tells them; the forced ones are those of XAPF_FORCE_ATTACH.
inline const std::string begin = "begin 1234_0g83_10k_:L1 mode 0x30000 status 1 flags 0x10";
inline const std::string attach = "attach 1234_0g83_10k_:L1 status 1 flags 0x0";
inline const std::string attach_nowait = "attach 1234_0g83_10k_:L1 status 1 flags 0x2";
inline const std::string attach_to_abort = "attach 1234_0g83_10k_:L1 status 6 flags 0x2";
inline const std::string detach = "detach 1234_0g83_10k_:L1 status 2 flags 0x0";
inline const std::string detach_nowait = "detach 1234_0g83_10k_:L1 status 2 flags 0x4";
inline const std::string ask = "status 1234_0g83_10k_:L1 status 0 flags 0x0";
inline const std::string prepare_forced = "prepare 1234_0g83_10k_:L1 status 7 flags 0x6000";
inline const std::string commit_forced = "commit 1234_0g83_10k_:L1 status 100 flags 0x6000";
inline const std::string commit_once_forced = "commit 1234_0g83_10k_:L1 status 100 flags 0x6020";
inline const std::string rollback = "rollback 1234_0g83_10k_:L1 status 101 flags 0x0";
inline const std::string rollback_forced = "rollback 1234_0g83_10k_:L1 status 101 flags 0x6000";

// The log lines since the last time, as "[function] Type: text"; further lines of a text follow as they are. The first
// call in a process opens the log.
Lines take_log();
std::string log_path();
bool log_is_open();

// Runs the body in a process of its own, since log and flavour last for a process; true when it returned true.
bool in_own_process(const std::function<bool()> &body);

// A fixture: fake library, personality and one connection, the serialisation mutex held.
class Scene : public testing::Test {
 protected:
  Scene();
  ~Scene() override;

  // Everything as at the start of a test; for the rows of a table.
  void fresh();
  // Drops the connection's handles, for a test that goes on without them.
  void drop_handles();
  // Makes a personality with these fields the active one.
  XA_PERSONALITY &behave_as(int32_t tm_type, uint32_t tm_flags);
  // The forced result of the named personality operation ("cs_obj_insert", "xa_conn_init" ...).
  void fail_operation(const std::string &operation, int32_t code = CS_FAIL);

  XA_PERSONALITY personality{};
  XA_LRMINFO lrm{};
  XA_CONNECTION conn{};
  // Allocations of the test itself that the library keeps for ever, such as the record of a thread identity.
  int64_t blocks_at_start = 0;
};

// A fixture with rmid 1 open through the registry, on one connection.
class OpenScene : public Scene {
 protected:
  OpenScene();
  ~OpenScene() override;

  XA_CONNECTION *open_connection(int32_t state = XCS_UNUSED);
  // Puts rmid 1's newest connection, or the one at the index, into a state and on a branch.
  static XA_CONNECTION *set(int32_t state, const XID &xid, size_t index = 0);
  // What was sent since the last time, but for the readiness checks of new connections.
  static Lines sent();
  // The connections of rmid 1 as "con1 state xid", newest first.
  static Lines connections();
  static XA_CONNECTION *connection(size_t index = 0);
  void close_everything();
  // Opens rmid 1 with one unused connection and forgets what that took.
  void reopen(int32_t tm_type = XATM_TUX, uint32_t tm_flags = 0);
};

}  // namespace fake
