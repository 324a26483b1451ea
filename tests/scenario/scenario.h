// Branch scenarios as data: a list of steps, each an action with the result expected of it, run under every flavour.
//
// XA actions give the XA code, operator actions 1 when they were possible, questions their answer. An expectation is
// one number, or one per flavour. A scenario ends with everything closed, and then nothing may be left.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <vector>

#include "world.h"

namespace scenario {

struct Action {
  std::string text;
  std::function<int32_t(World &)> act;
  unsigned flavours = every_flavour;
};

struct Codes {
  Codes(int32_t all) : mts(all), tux(all), txs(all) {}
  Codes(int32_t of_mts, int32_t of_the_others) : mts(of_mts), tux(of_the_others), txs(of_the_others) {}
  Codes(int32_t of_mts, int32_t of_tux, int32_t of_txs) : mts(of_mts), tux(of_tux), txs(of_txs) {}
  int32_t of(unsigned flavour) const { return flavour == MTS ? mts : flavour == TUX ? tux : txs; }

  int32_t mts;
  int32_t tux;
  int32_t txs;
};

struct Step {
  Action action;
  Codes expected;
};

struct Scenario {
  const char *name;
  std::vector<Step> steps;
  unsigned flavours = every_flavour;
};

// XA calls.
Action open(int32_t rmid);
Action open_as(int32_t rmid, const std::string &open_string);  // without the -K that MTS gets appended
Action close(int32_t rmid);
Action start(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS);
Action end(int32_t rmid, const std::string &branch, int32_t flags = TMSUCCESS);
Action prepare(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS);
Action commit(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS);
Action rollback(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS);
Action forget(int32_t rmid, const std::string &branch, int32_t flags = TMNOFLAGS);
// Gives wrong_xids when the XIDs are not the next ones of those planted.
Action recover(int32_t rmid, int32_t count, int32_t flags);
inline constexpr int32_t wrong_xids = -1000;
Action statement_number(int32_t rmid);

// Operators of bank1.
Action plant(int32_t count);
Action plant_name(const std::string &name);
Action force(const std::string &branch, int32_t commit);
Action break_sessions();
Action password(const char *text);
Action dtm_role(int32_t on);
Action dtm(int32_t value);
Action refuse_failover(int32_t on);
Action script(const char *procedure, ZDB_REPLY_KIND kind, int32_t value = 0, int32_t skip = 0, int32_t times = 1,
              const char *text = nullptr);
Action unscript();

// Application code: a cursor, with a statement behind it, on the published connection of LRM L1.
Action announce_cursor();

// Questions.
Action state(const std::string &branch);
Action sessions();
Action commands();   // live commands of the client library
Action objects();    // entries of the object registry
Action published();  // 1 when LRM L1's connection is in the object registry for the calling thread
Action seconds_slept();
Action logged(const std::string &text);  // 1 when the log has it

// Others: a step on the second thread, for some flavours only, or while the library sleeps for the nth time.
Action other(Action action);
Action only(unsigned flavours, Action action);
Action when_asleep(std::size_t nth, Action action);  // 1
Action asleep_result();                              // of the step done last while asleep

// Runs the steps; a step that gives something else fails the test and ends the scenario.
void run_scenario(const Scenario &scenario, World &world);

struct ScenarioCase {
  const Scenario *scenario;
  unsigned flavour;
};
std::ostream &operator<<(std::ostream &out, const ScenarioCase &what);
std::string case_name(const testing::TestParamInfo<ScenarioCase> &info);
std::vector<ScenarioCase> cases_of(const std::vector<Scenario> &scenarios);

// Each file of scenarios instantiates it; the test itself is in scenario.cpp.
class Scenarios : public testing::TestWithParam<ScenarioCase> {};

// The server's procedures, for script().
inline constexpr const char *begin_call = "$beginTrvDtmXact";
inline constexpr const char *attach_call = "$attachTrvDtmXact";
inline constexpr const char *detach_call = "$detachTrvDtmXact";
inline constexpr const char *status_call = "$statusTrvDtmXact";
inline constexpr const char *prepare_call = "$prepareTrvDtmXact";
inline constexpr const char *commit_call = "$commitTrvDtmXact";
inline constexpr const char *rollback_call = "$rollbackTrvDtmXact";
inline constexpr const char *forget_call = "$forgetTrvDtmXact";

}  // namespace scenario
