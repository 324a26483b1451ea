// The actions of scenarios and their runner; see the header.
#include "scenario.h"

#include <cstring>
#include <ostream>

#include "common_control.h"
#include "connections/xal_context.h"
#include "quillet.h"
#include "quillet_control.h"
#include "registry/xal_registry.h"

namespace scenario {
namespace {

std::string call_text(const char *verb, int32_t rmid, const std::string &argument, int32_t flags) {
  std::string text(verb);
  text.append(" ").append(std::to_string(rmid)).append(" ").append(argument);
  return text.append(" ").append(xacmn_log_dump_xaflags(flags));
}

using BranchVerb = int32_t (World::*)(int32_t, const std::string &, int32_t) const;

Action branch_action(const char *verb, BranchVerb method, int32_t rmid, const std::string &branch, int32_t flags) {
  return {call_text(verb, rmid, branch, flags), [=](World &world) { return (world.*method)(rmid, branch, flags); }};
}

bool same_xid(const XID &left, const XID &right) {
  return std::memcmp(&left, &right,
                     12 + static_cast<std::size_t>(left.gtrid_length) + static_cast<std::size_t>(left.bqual_length)) ==
         0;
}

// The number of XIDs told, once each is the next of those planted.
int32_t scan(World &world, int32_t rmid, int32_t count, int32_t flags) {
  std::vector<XID> xids(static_cast<std::size_t>(count));
  const int32_t told = world.xa().xa_recover_entry(xids.data(), count, rmid, flags);
  if ((flags & TMSTARTRSCAN) != 0) {
    world.scanned = 0;
  }
  for (int32_t at = 0; at < told; ++at) {
    if (world.scanned == world.planted.size() ||
        !same_xid(xids[static_cast<std::size_t>(at)], xid_of(world.planted[world.scanned]))) {
      return wrong_xids;
    }
    ++world.scanned;
  }
  return told;
}

// The thread bytes under which the calling thread's objects are registered.
struct Identity {
  unsigned char bytes[16] = {};
  int32_t length = QLT_UNUSED;

  explicit Identity(unsigned flavour) {
    if (flavour != TXS) {
      return;
    }
    QLT_THREAD_TABLE table{};
    EXPECT_EQ(cs_config(xl_context, CS_GET, QLT_PROP_THREAD_TABLE, &table, QLT_UNUSED, nullptr), CS_SUCCEED);
    EXPECT_EQ(table.thread_identity(bytes, sizeof bytes, &length), CS_SUCCEED);
  }
};

// What the application gets when it looks its connection up.
QLT_OBJECT_DATA published_data(const World &world) {
  Identity identity(world.flavour);
  QLT_OBJECT_NAME name{};
  name.obj_type = QLT_OBJ_CONNECTION;
  std::memcpy(name.last_name, "L1", 3);
  name.lnlen = QLT_NULLTERM;
  std::memcpy(name.first_name, "K1", 3);
  name.fnlen = world.flavour == MTS ? QLT_NULLTERM : QLT_UNUSED;
  name.scopelen = QLT_UNUSED;
  name.thread = identity.bytes;
  name.threadlen = identity.length;
  QLT_OBJECT_DATA data{0, nullptr, nullptr, nullptr, QLT_UNUSED};
  EXPECT_EQ(cs_objects(xl_context, CS_GET, &name, &data), CS_SUCCEED);
  return data;
}

}  // namespace

Action open(int32_t rmid) {
  return {call_text("open", rmid, "", TMNOFLAGS), [=](World &world) { return world.open(rmid); }};
}

Action open_as(int32_t rmid, const std::string &open_string) {
  return {call_text("open", rmid, open_string, TMNOFLAGS), [=](World &world) {
            std::string text = open_string;
            return world.xa().xa_open_entry(world.flavour == MTS ? text.append(" -KK1").c_str() : text.c_str(), rmid,
                                            TMNOFLAGS);
          }};
}

Action close(int32_t rmid) {
  return {call_text("close", rmid, "", TMNOFLAGS), [=](World &world) { return world.close(rmid); }};
}

Action start(int32_t rmid, const std::string &branch, int32_t flags) {
  return branch_action("start", &World::start, rmid, branch, flags);
}

Action end(int32_t rmid, const std::string &branch, int32_t flags) {
  return branch_action("end", &World::end, rmid, branch, flags);
}

Action prepare(int32_t rmid, const std::string &branch, int32_t flags) {
  return branch_action("prepare", &World::prepare, rmid, branch, flags);
}

Action commit(int32_t rmid, const std::string &branch, int32_t flags) {
  return branch_action("commit", &World::commit, rmid, branch, flags);
}

Action rollback(int32_t rmid, const std::string &branch, int32_t flags) {
  return branch_action("rollback", &World::rollback, rmid, branch, flags);
}

Action forget(int32_t rmid, const std::string &branch, int32_t flags) {
  return branch_action("forget", &World::forget, rmid, branch, flags);
}

Action recover(int32_t rmid, int32_t count, int32_t flags) {
  return {call_text("recover", rmid, std::to_string(count), flags),
          [=](World &world) { return scan(world, rmid, count, flags); }};
}

Action statement_number(int32_t rmid) {
  return {"statement number", [=](World &) { return TrvXA_GetStatementNr(rmid); }};
}

Action plant(int32_t count) {
  return {"plant branches", [=](World &world) {
            int32_t planted = 0;
            for (int32_t at = 0; at < count; ++at) {
              std::string label("R");
              label.append(std::to_string(world.planted.size()));
              planted += zdb_plant_prepared(bank, branch_name(label).c_str());
              world.planted.push_back(label);
            }
            return planted;
          }};
}

Action plant_name(const std::string &name) {
  return {"plant " + name, [=](World &) { return zdb_plant_prepared(bank, name.c_str()); }};
}

Action force(const std::string &branch, int32_t commit) {
  return {"force " + branch, [=](World &) { return zdb_force(bank, branch_name(branch).c_str(), commit); }};
}

Action break_sessions() {
  return {"break sessions", [](World &) { return zdb_break_sessions(bank, nullptr); }};
}

Action password(const char *text) {
  return {"change password", [=](World &) { return zdb_add_user(bank, "sa", text, 1); }};
}

Action dtm_role(int32_t on) {
  return {"DTM role", [=](World &) { return zdb_add_user(bank, "sa", "pw", on); }};
}

Action dtm(int32_t value) {
  return {"enable DTM", [=](World &) { return zdb_set_dtm(bank, value); }};
}

Action refuse_failover(int32_t on) {
  return {"refuse failover", [=](World &) { return zdb_refuse_failover_logins(bank, on); }};
}

Action script(const char *procedure, ZDB_REPLY_KIND kind, int32_t value, int32_t skip, int32_t times,
              const char *text) {
  return {std::string("script ").append(procedure), [=](World &) {
            const ZDB_SCRIPT script{procedure, skip, times, kind, value, text};
            return zdb_add_script(bank, &script);
          }};
}

Action unscript() {
  return {"clear scripts", [](World &) { return zdb_clear_scripts(bank); }};
}

Action announce_cursor() {
  return {"announce cursor", [](World &world) {
            world.watch = false;  // the clean-up of cursors reads its results with the mutex held
            const Identity identity(world.flavour);
            return qlt_announce_cursor(published_data(world).connection, "L1", "c1", "s1", identity.bytes,
                                       identity.length);
          }};
}

Action state(const std::string &branch) {
  return {"state of " + branch, [=](World &) { return World::state(branch); }};
}

Action sessions() {
  return {"sessions", [](World &) { return zdb_session_count(bank); }};
}

Action commands() {
  return {"live commands", [](World &) { return qlt_live_commands(); }};
}

Action objects() {
  return {"live objects", [](World &) { return qlt_live_objects(); }};
}

Action published() {
  return {"published", [](World &world) {
            const QLT_OBJECT_DATA data = published_data(world);
            return data.actuallyexists == 1 && data.connection != nullptr && data.command != nullptr ? 1 : 0;
          }};
}

Action seconds_slept() {
  return {"seconds slept", [](World &world) {
            uint32_t sum = 0;
            for (const uint32_t seconds : world.slept) {
              sum += seconds;
            }
            return static_cast<int32_t>(sum);
          }};
}

Action logged(const std::string &text) {
  return {"logged: " + text, [=](World &world) { return world.logged(text) ? 1 : 0; }};
}

Action other(Action action) {
  std::string text = "other thread: " + action.text;
  return {std::move(text), [action](World &world) { return world.other.run([&] { return action.act(world); }); },
          action.flavours};
}

Action only(unsigned flavours, Action action) {
  action.flavours = flavours;
  return action;
}

Action when_asleep(std::size_t nth, Action action) {
  return {"when asleep", [=](World &world) {
            world.when_asleep[nth] = [&world, action] { world.asleep_result = action.act(world); };
            return 1;
          }};
}

Action asleep_result() {
  return {"result of the step done asleep", [](World &world) { return world.asleep_result; }};
}

void run_scenario(const Scenario &scenario, World &world) {
  int number = 0;
  for (const Step &step : scenario.steps) {
    ++number;
    if ((step.action.flavours & world.flavour) == 0) {
      continue;
    }
    ASSERT_EQ(step.action.act(world), step.expected.of(world.flavour))
        << scenario.name << ", step " << number << ": " << step.action.text;
  }
}

std::ostream &operator<<(std::ostream &out, const ScenarioCase &what) {
  return out << what.scenario->name << " under " << flavour_name(what.flavour);
}

std::string case_name(const testing::TestParamInfo<ScenarioCase> &info) {
  return std::string(info.param.scenario->name).append("_").append(flavour_name(info.param.flavour));
}

std::vector<ScenarioCase> cases_of(const std::vector<Scenario> &scenarios) {
  std::vector<ScenarioCase> cases;
  for (const Scenario &scenario : scenarios) {
    for (const unsigned flavour : {MTS, TUX, TXS}) {
      if ((scenario.flavours & flavour) != 0) {
        cases.push_back({&scenario, flavour});
      }
    }
  }
  return cases;
}

TEST_P(Scenarios, goes_as_expected) {
  const ScenarioCase &what = GetParam();
  World world(what.flavour);
  run_scenario(*what.scenario, world);
  world.expect_nothing_left();
  world.expect_mutex_respected();
  // A dropped connection would take its commands along; the library drops them itself. Application code's come on top.
  EXPECT_EQ(world.commands_made, world.watch ? 0 : -2);
  // What stays is the registry's node of each thread identity that opened something, at most two here.
  EXPECT_LE(common_blocks_outstanding(), what.flavour == TXS ? 2 : 1);
}

}  // namespace scenario
