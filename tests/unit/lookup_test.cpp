// The connection lookup and the registry of open resource managers.
#include <gtest/gtest.h>

#include <cstring>

#include "common_control.h"
#include "config/xal_config.h"
#include "config/xal_settings.h"
#include "connections/xal_conn.h"
#include "connections/xal_context.h"
#include "log/xal_log.h"
#include "personality/xal_threads.h"
#include "record/xal_record.h"
#include "scene.h"

using namespace fake;

namespace {

struct Record {
  int32_t state;
  XID xid;
};

class Lookup : public OpenScene {
 protected:
  // Makes rmid 1's list, newest connection first.
  void arrange(const std::vector<Record> &records) {
    reopen();
    for (size_t index = 1; index < records.size(); ++index) {
      open_connection();
    }
    for (size_t index = 0; index < records.size(); ++index) {
      XA_CONNECTION *at = set(records[index].state, records[index].xid, index);
      if (at->xc_state == XCS_CLOSED) {
        xc_hold(at);
        xc_close(at);
      }
    }
  }
  XA_CONNECTION *got = nullptr;
};

TEST_F(Lookup, priorities) {
  const XID x = branch();
  const XID y = other_branch();
  // clang-format off
  const struct {
    const char *name;
    std::vector<Record> records;
    uint32_t flags;
    XID xid;
    int32_t result;
    Lines after;  // con1 is the oldest, which stands last
  } cases[] = {
      {"an associated one wins over an earlier match", {{XCS_UNUSED, x}, {XCS_ASSOC, y}}, 0x1E, x, XCRET_ASSOC,
       {"con2 0 1234", "con1 1 2 held"}},
      {"a match wins over an earlier unused one", {{XCS_UNUSED, none()}, {XCS_UNUSED, x}}, 0x0E, x, XCRET_MATCH,
       {"con2 0 ffffffff", "con1 0 1234 held"}},
      {"the newest of two unused ones", {{XCS_UNUSED, y}, {XCS_UNUSED, none()}}, 0x0E, x, XCRET_CONN,
       {"con2 -1 2 held", "con1 0 ffffffff"}},
      {"busy ones are not unused", {{XCS_PREPARING, y}, {XCS_UNUSED, none()}}, 0x0C, x, XCRET_CONN, {"con2 103 2",
       "con1 -1 ffffffff held"}},
      {"a match in a busy state", {{XCS_ENDING, x}}, 0x02, x, XCRET_MATCH, {"con1 102 1234 held"}},
      {"null XIDs match nothing", {{XCS_UNUSED, none()}}, 0x02, none(), XCRET_NOCONN, {"con1 0 ffffffff"}},
      {"any state will do", {{XCS_PREPARING, y}}, 0x01, x, XCRET_CONN, {"con1 103 2 held"}},
      {"a suspended one whatever its branch", {{XCS_UNUSED, x}, {XCS_SUSPEND, y}}, 0x20, x, XCRET_SUSPEND,
       {"con2 0 1234", "con1 3 2 held"}},
      {"the scan's one wins over an unused one", {{XCS_UNUSED, none()}, {XCS_RECOVER, none()}}, 0x4C, x, XCRET_RECOVER,
       {"con2 0 ffffffff", "con1 108 ffffffff held"}},
      {"a new one is in use", {{XCS_ASSOC, y}}, 0x0C, x, XCRET_CONN, {"con2 -1 ffffffff held", "con1 1 2"}},
      {"closed ones are purged", {{XCS_CLOSED, x}, {XCS_CLOSED, y}}, 0x02, x, XCRET_NOCONN, {}},
      {"closed ones behind the one found stay", {{XCS_UNUSED, none()}, {XCS_CLOSED, y}}, 0x04, x, XCRET_CONN,
       {"con2 -1 ffffffff held", "none 2 2"}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.name);
    arrange(one.records);
    EXPECT_EQ(xc_get(1, &one.xid, &got, one.flags), one.result);
    EXPECT_EQ(got != nullptr, xc_handed_out(one.result));
    EXPECT_EQ(connections(), one.after);
    if (got != nullptr) {
      xc_release(got);
    }
  }
}

TEST_F(Lookup, held_records_are_passed_over_and_stay) {
  const XID x = branch();
  arrange({{XCS_CLOSED, none()}, {XCS_UNUSED, none()}});
  xc_hold(connection(0));
  xc_hold(connection(1));
  for (const uint32_t flags : {XCF_ANY, XCF_UNUSED, XCF_MATCH | XCF_UNUSED}) {
    EXPECT_EQ(xc_get(1, &x, &got, flags), XCRET_NOCONN);
  }
  EXPECT_EQ(connections(), (Lines{"none 2 ffffffff held", "con1 0 ffffffff held"}));
  xc_release(connection(1));
  xc_release(connection(0));
  EXPECT_EQ(xc_get(1, &x, &got, XCF_UNUSED), XCRET_CONN);
  EXPECT_EQ(connections(), Lines{"con1 -1 ffffffff held"});
  xc_release(got);
}

using Registry = OpenScene;
using Context = Scene;

TEST_F(Registry, identities_of_one_tag_keep_their_own_records) {
  library().identity = "own";
  EXPECT_EQ(xal_getlrm(1), nullptr);
  EXPECT_NE(xal_addlrm(1, open_string), nullptr);
  library().identity = "Own";
  EXPECT_EQ(xal_getlrm(1), nullptr);
  library().identity = "own";
  EXPECT_EQ(xal_freelrm(1), 1);
  ++blocks_at_start;  // the record of the new identity stays
  library().identity = "";
  EXPECT_NE(xal_getlrm(1), nullptr);
}

TEST_F(Registry, a_record_with_connections_stays) {
  EXPECT_EQ(xal_freelrm(1), XAER_NOTA);
  EXPECT_NE(xal_getlrm(1), nullptr);
  XA_LRMINFO *empty = xal_addlrm(2, open_string);
  empty->lrm_opens = 1;
  EXPECT_EQ(xal_freelrm(2), XAER_NOTA) << "a connection is being made";
  empty->lrm_opens = 0;
  EXPECT_EQ(xal_freelrm(2), 1);
  EXPECT_EQ(xal_getlrm(2), nullptr);
}

TEST_F(Context, is_set_up_in_order_or_not_at_all) {
  char path[] = "/path";
  const XA_SETTING settings[] = {
      {9115, 0, path, QLT_NULLTERM, XS_USER | XS_PRECONN | XS_CTX | XS_PROP, "CS_IFILE"},
      {9117, 60, nullptr, QLT_UNUSED, XS_USER | XS_PRECONN | XS_CTX | XS_PROP, "CS_TIMEOUT"},
      {7345, 9, nullptr, 4, XS_FATAL | XS_USER | XS_PRECONN | XS_CTX | XS_DTINFO, "CS_DATES_LONG"},
      {0, 0, nullptr, 0, XS_END, nullptr}};
  const Lines all{"cs_ctx_global(1100)",
                  "ct_init(1100)",
                  "ct_config(GET, 9144)",
                  "cs_diag(INIT)",
                  "ct_config(SET, 9115, \"/path\", -9)",
                  "ct_config(SET, 9117, 60, -99999)",
                  "cs_dt_info(SET, 7345, -99999, 9, 4)",
                  "ct_config(SET, 9142, 0, -99999)"};
  // clang-format off
  const struct {
    const char *operation;
    int32_t result;
    size_t calls;
    Lines log;
  } cases[] = {
      {"", 1, 8, {"[xl_init] Message: Quillet scripted 1.0"}},
      {"cs_ctx_global", 0, 1, {"[xl_init] Error: Failed to get the global context!"}},
      {"ct_init", 0, 2, {"[xl_init] Error: ct_init() failed!"}},
      {"ct_config", 1, 8, {"[xl_init] Note: Unable to get Quillet version string"}},
      {"cs_diag", 0, 4, {"[xl_init] Message: Quillet scripted 1.0", "[xl_init] Error: cs_diag(CS_INIT) failed!"}},
      {"cs_dt_info", 0, 7, {"[xl_init] Message: Quillet scripted 1.0",
       "[xc_set_values] Error: cs_dt_info(CS_SET, CS_DATES_LONG) failed!", ""}},
  };
  // clang-format on
  for (const auto &one : cases) {
    SCOPED_TRACE(one.operation);
    library().reset();
    library().fail(one.operation);
    EXPECT_EQ(xl_init(settings), one.result);
    EXPECT_EQ(library().take_calls(), Lines(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(one.calls)));
    EXPECT_EQ(take_log(), one.log);
  }
}

}  // namespace
