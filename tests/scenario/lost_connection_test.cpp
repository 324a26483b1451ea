// Branches whose connection breaks before or after the server did the work of a request, and
// what the reopened connection then finds.
#include "dtm/dtm_protocol.h"
#include "scenario.h"

namespace scenario {
namespace {

// clang-format off
const std::vector<Scenario> scenarios = {
  {"begin_lost_before_the_work_is_sent_again", {
    {open(1), XA_OK}, {script(begin_call, ZDB_REPLY_DROP_BEFORE), 1},
    {start(1, "A"), XA_OK}, {state("A"), DTM_STATE_ATTACHED}, {published(), 1}, {rollback(1, "A"), XA_OK}, {sessions(), 1}}},
  {"begin_lost_after_the_work_meets_its_own_branch", {
    {open(1), XA_OK}, {script(begin_call, ZDB_REPLY_DROP_AFTER), 1},
    {start(1, "A"), XAER_DUPID}, {state("A"), DTM_STATE_ABORTONLY}, {published(), 0},
    {rollback(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"end_lost_rolls_the_branch_back", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {script(detach_call, ZDB_REPLY_DROP_BEFORE), 1},
    {end(1, "A"), XA_RBCOMMFAIL}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {script(detach_call, ZDB_REPLY_DROP_AFTER), 1},
    {end(1, "B"), XA_RBCOMMFAIL}, {state("B"), DTM_STATE_UNKNOWN}, {end(1, "B"), XAER_NOTA}, {sessions(), 1}}},
  {"prepare_lost_before_the_work_is_sent_again", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {script(prepare_call, ZDB_REPLY_DROP_BEFORE), 1}, {prepare(1, "A"), XA_OK}, {commit(1, "A"), XA_OK}}},
  {"prepare_lost_after_the_work_leaves_the_branch_prepared", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {script(prepare_call, ZDB_REPLY_DROP_AFTER), 1}, {prepare(1, "A"), XAER_PROTO}, {state("A"), DTM_STATE_PREPARED},
    {commit(1, "A"), XA_OK}}},
  {"session_lost_between_attach_and_completion_rolls_back", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {script(attach_call, ZDB_REPLY_DROP_AFTER), 1}, {prepare(1, "A"), XA_RBROLLBACK}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK},
    {script(attach_call, ZDB_REPLY_DROP_AFTER), 1}, {commit(1, "B", TMONEPHASE), XA_RBROLLBACK},
    {state("B"), DTM_STATE_UNKNOWN}}, TUX | TXS},
  {"branch_of_a_session_that_broke_while_associated", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {break_sessions(), 1}, {state("A"), DTM_STATE_ABORTONLY},
    {end(1, "A"), XA_RBCOMMFAIL}, {state("A"), DTM_STATE_UNKNOWN}, {start(1, "B"), XA_OK}, {rollback(1, "B"), XA_OK}}},
  {"branch_of_a_session_that_broke_while_suspended", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A", TMSUSPEND), XA_OK}, {break_sessions(), 1},
    {start(1, "A", TMRESUME), XA_OK},  // a local matter
    {end(1, "A"), XA_RBCOMMFAIL}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"commit_lost_before_the_work_is_sent_again", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK},
    {script(commit_call, ZDB_REPLY_DROP_BEFORE), 1}, {commit(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK},
    {script(commit_call, ZDB_REPLY_DROP_BEFORE), 1}, {commit(1, "B", TMONEPHASE), XA_OK}}},
  {"commit_lost_after_the_work_finds_no_branch", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK},
    {script(commit_call, ZDB_REPLY_DROP_AFTER), 1}, {commit(1, "A"), XAER_NOTA}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK},
    {script(commit_call, ZDB_REPLY_DROP_AFTER), 1}, {commit(1, "B", TMONEPHASE), XAER_NOTA}}},
  {"commit_lost_twice_closes_the_resource_manager", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK},
    {script(commit_call, ZDB_REPLY_DROP_BEFORE, 0, 0, 2), 1}, {commit(1, "A"), XAER_RMFAIL}, {sessions(), 0},
    {commit(1, "A"), XAER_INVAL}, {state("A"), DTM_STATE_PREPARED}, {open(1), XA_OK}, {commit(1, "A"), XA_OK}}},
  {"rollback_lost", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {script(rollback_call, ZDB_REPLY_DROP_BEFORE), 1}, {rollback(1, "A"), XA_OK},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK},
    {script(rollback_call, ZDB_REPLY_DROP_AFTER), 1}, {rollback(1, "B"), XAER_NOTA}, {state("B"), DTM_STATE_UNKNOWN}}},
  {"forget_lost", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK}, {force("A", 1), 1},
    {script(forget_call, ZDB_REPLY_DROP_BEFORE), 1}, {forget(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK}, {prepare(1, "B"), XA_OK}, {force("B", 0), 1},
    {script(forget_call, ZDB_REPLY_DROP_AFTER), 1}, {forget(1, "B"), XAER_NOTA}, {state("B"), DTM_STATE_UNKNOWN},
    // The question for the heuristic state is a query of its own.
    {start(1, "C"), XA_OK}, {end(1, "C"), XA_OK}, {prepare(1, "C"), XA_OK}, {force("C", 0), 1},
    {script("language", ZDB_REPLY_DROP_BEFORE), 1}, {forget(1, "C"), XA_OK}}},
  {"server_that_refuses_the_new_login", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK},
    {password("new"), 1}, {break_sessions(), 1},
    {start(1, "B"), XAER_RMERR}, {sessions(), 0},   // the connection is gone, the resource manager is not
    {commit(1, "A"), XAER_RMFAIL}, {commit(1, "A"), XAER_INVAL}, {open(1), XAER_RMERR},
    {password("pw"), 1}, {open(1), XA_OK}, {commit(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"server_that_refuses_the_new_login_at_an_end", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {password("new"), 1}, {break_sessions(), 1},
    {end(1, "A"), XAER_RMERR}, {state("A"), DTM_STATE_ABORTONLY}, {published(), 0}, {password("pw"), 1},
    {rollback(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"server_that_takes_the_role_away_before_the_new_login", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK},
    {dtm_role(0), 1}, {break_sessions(), 1},
    {start(1, "B"), XAER_INVAL}, {commit(1, "A"), XAER_INVAL}, {sessions(), 0}, {dtm_role(1), 1},
    {commit(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"close_after_the_session_broke", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {break_sessions(), 1}, {close(1), XA_OK}, {published(), 0},
    {open(1), XA_OK}, {rollback(1, "A"), XA_OK}}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(LostConnection, Scenarios, testing::ValuesIn(cases_of(scenarios)), case_name);

}  // namespace
}  // namespace scenario
