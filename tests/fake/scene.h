// What unit tests stand on: a personality whose mutex operations the fake client library follows, a connection record
// that belongs to no list, captured log lines, injected sleep, and the checks that every test ends with.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "fake_client.h"
#include "xal_personality.h"
#include "xal_registry.h"

namespace fake {

constexpr const char *open_string = "-NL1 -Usa -Ppw -Sbank";
constexpr const char *branch_name = "1234_0g83_10k_:L1";

XID make_xid(int32_t format, const std::string &gtrid, const std::string &bqual = "");
XID branch();                                // the XID of branch_name
XID other_branch();                          // 2_1w__:L1
std::string file_with(const std::string &);  // the path of a fresh temporary file

// The log lines since the last time, as "[function] Type: text"; further lines of a text follow as they are. The first
// call in a process opens the log.
Lines take_log();
std::string log_path();
bool log_is_open();

// A fixture: fake library, personality and one connection, the serialisation mutex held.
class Scene : public testing::Test {
 protected:
  Scene();
  ~Scene() override;

  // Everything as at the start of a test; for the rows of a table.
  void fresh();
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
