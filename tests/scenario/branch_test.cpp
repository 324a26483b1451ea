// The life of branches: association, completion, heuristic outcomes, and what the flavours do
// differently with them.
#include "dtm/dtm_protocol.h"
#include "quillet.h"
#include "scenario.h"

namespace scenario {
namespace {

// clang-format off
const std::vector<Scenario> scenarios = {
  {"two_phase", {
    {open(1), XA_OK},
    {start(1, "A"), XA_OK}, {state("A"), DTM_STATE_ATTACHED}, {end(1, "A"), XA_OK}, {state("A"), DTM_STATE_ENDED},
    {prepare(1, "A"), XA_OK}, {state("A"), DTM_STATE_PREPARED}, {commit(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN},
    {commit(1, "A"), XAER_NOTA}, {sessions(), 1}}},
  {"two_phase_with_the_longest_and_the_shortest_xid", {
    {open(1), XA_OK},
    {start(1, "*"), XA_OK}, {end(1, "*"), XA_OK}, {prepare(1, "*"), XA_OK}, {state("*"), DTM_STATE_PREPARED},
    {start(1, "-A"), XA_OK}, {end(1, "-A"), XA_OK}, {prepare(1, "-A"), XA_OK}, {state("-A"), DTM_STATE_PREPARED},
    {commit(1, "*"), XA_OK}, {state("*"), DTM_STATE_UNKNOWN}, {state("-A"), DTM_STATE_PREPARED}, {commit(1, "-A"), XA_OK}}},
  {"one_phase", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {commit(1, "A"), XAER_PROTO}, {state("A"), DTM_STATE_ENDED},  // not prepared
    {commit(1, "A", TMONEPHASE), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"rollback_before_and_after_prepare", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A", TMFAIL), XA_OK}, {rollback(1, "A"), XA_OK},
    {state("A"), DTM_STATE_UNKNOWN}, {rollback(1, "A"), XAER_NOTA},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK}, {prepare(1, "B"), XA_OK}, {rollback(1, "B"), XA_OK},
    {state("B"), DTM_STATE_UNKNOWN}}},
  {"branch_that_was_never_ended", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK},
    {prepare(1, "A"), XAER_PROTO}, {commit(1, "A"), XAER_PROTO}, {commit(1, "A", TMONEPHASE), XAER_PROTO},
    {forget(1, "A"), XAER_NOTA}, {state("A"), DTM_STATE_ATTACHED},
    {rollback(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}, {end(1, "A"), XAER_PROTO},  // completed here last
    {start(1, "B"), XA_OK}, {end(1, "B", TMSUSPEND), XA_OK}, {prepare(1, "B"), XAER_PROTO},
    {rollback(1, "B"), XA_OK}, {state("B"), DTM_STATE_UNKNOWN}, {sessions(), 1}}},
  {"suspend_is_undone_by_resume_only", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {published(), 1},
    {end(1, "A", TMSUSPEND), XA_OK}, {state("A"), DTM_STATE_ATTACHED}, {published(), 0},
    {start(1, "A"), XAER_DUPID}, {start(1, "A", TMJOIN), XAER_PROTO},
    {logged("Attempt to join transaction suspended in same thread"), 1},
    {end(1, "A", TMSUSPEND), XAER_PROTO}, {end(1, "A", TMSUSPEND | TMMIGRATE), XAER_PROTO},
    {start(1, "A", TMRESUME), XA_OK}, {published(), 1},
    {end(1, "A", TMSUSPEND), XA_OK}, {end(1, "A"), XA_OK}, {state("A"), DTM_STATE_ENDED},
    {commit(1, "A", TMONEPHASE), XA_OK}}},
  {"resume_in_another_thread_of_a_branch_suspended_here", {
    {open(1), XA_OK}, {other(open(1)), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A", TMSUSPEND), XA_OK},
    // Under TXS the server says that the first thread's session still has the branch.
    {other(start(1, "A", TMRESUME | TMNOWAIT)), {XA_OK, XA_OK, XA_RETRY}},
    {only(TXS, other(start(1, "A", TMRESUME))), XAER_RMERR}, {only(TXS, other(start(1, "A", TMJOIN))), XAER_RMERR},
    {only(TXS, other(start(1, "A", TMJOIN | TMNOWAIT))), XA_RETRY},
    {only(MTS | TUX, other(end(1, "A"))), XA_OK}, {only(TXS, end(1, "A")), XA_OK},
    {rollback(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"migrated_branch_resumes_elsewhere", {
    {open(1), XA_OK}, {open(3), XA_OK}, {other(open(3)), XA_OK},
    {start(1, "A"), XA_OK}, {end(1, "A", TMSUSPEND | TMMIGRATE), XA_OK}, {state("A"), DTM_STATE_DETACHED},
    {other(start(3, "A", TMRESUME)), XA_OK}, {state("A"), DTM_STATE_ATTACHED},
    {other(end(3, "A", TMSUSPEND | TMMIGRATE)), XA_OK}, {start(1, "A", TMRESUME | TMNOWAIT), XA_OK},
    {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK}, {other(commit(3, "A")), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"migrated_branch_completes_without_resume", {
    {open(1), XA_OK},
    {start(1, "A"), XA_OK}, {end(1, "A", TMSUSPEND | TMMIGRATE), XA_OK},
    {prepare(1, "A"), XA_OK}, {commit(1, "A"), XA_OK},
    {start(1, "B"), XA_OK}, {end(1, "B", TMSUSPEND | TMMIGRATE), XA_OK}, {rollback(1, "B"), XA_OK},
    {state("B"), DTM_STATE_UNKNOWN}}, TUX | TXS},
  {"resume_of_a_branch_that_is_not_suspended", {
    {open(1), XA_OK}, {start(1, "A", TMRESUME), XAER_NOTA}, {start(1, "A", TMJOIN), XAER_NOTA},
    {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {start(1, "A", TMRESUME), XAER_PROTO}, {state("A"), DTM_STATE_ENDED}, {published(), 0},
    {rollback(1, "A"), XA_OK}}},
  {"start_twice", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK},
    // TUX and TXS refuse it after ending it; under MTS it is ended and the server refuses the new beginning.
    {start(1, "A"), XAER_DUPID}, {state("A"), DTM_STATE_ENDED}, {published(), 0},
    {start(1, "A", TMJOIN), XA_OK},
    {start(1, "A", TMJOIN), {XA_OK, XAER_PROTO}}, {state("A"), {DTM_STATE_ATTACHED, DTM_STATE_ENDED}},
    {only(MTS, end(1, "A")), XA_OK}, {rollback(1, "A"), XA_OK}, {sessions(), 1}}},
  {"start_while_another_branch_is_associated", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK},
    // MTS waits 2 + 4 + ... + 128 seconds for the server to detach the branch, then closes the resource manager.
    {start(1, "B"), {XAER_RMFAIL, XAER_PROTO}}, {seconds_slept(), {254, 0}},
    {state("A"), DTM_STATE_ENDED}, {state("B"), DTM_STATE_UNKNOWN}, {sessions(), {0, 1}},
    {start(1, "B"), {XAER_INVAL, XA_OK}}, {only(MTS, open(1)), XA_OK}, {only(TUX | TXS, end(1, "B")), XA_OK},
    {only(TUX | TXS, rollback(1, "B")), XA_OK}, {rollback(1, "A"), XA_OK}}},
  {"branch_that_another_thread_ends_during_the_wait", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {when_asleep(2, other(end(1, "A"))), 1},
    {start(1, "B"), XA_OK}, {asleep_result(), XA_OK}, {seconds_slept(), 6},
    {state("A"), DTM_STATE_ENDED}, {state("B"), DTM_STATE_ATTACHED}, {end(1, "B"), XA_OK},
    {rollback(1, "A"), XA_OK}, {rollback(1, "B"), XA_OK}}, MTS},
  {"session_that_breaks_during_the_wait", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {when_asleep(1, break_sessions()), 1},
    {start(1, "B"), XA_OK}, {seconds_slept(), 2}, {state("A"), DTM_STATE_UNKNOWN}, {rollback(1, "B"), XA_OK}}, MTS},
  {"associated_branch_that_the_server_forgot", {
    {open(1), XA_OK}, {open(3), XA_OK}, {start(1, "A"), XA_OK}, {rollback(3, "A"), XA_OK},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK}, {rollback(1, "B"), XA_OK}, {seconds_slept(), 0}}},
  {"join", {
    {open(1), XA_OK}, {open(3), XA_OK}, {start(1, "A"), XA_OK},
    {start(3, "A", TMJOIN | TMNOWAIT), XA_RETRY}, {start(3, "A", TMJOIN), XAER_RMERR},
    {logged("Unexpected DTM BUSY indication"), 1}, {start(3, "A"), XAER_DUPID}, {state("A"), DTM_STATE_ATTACHED},
    {end(1, "A"), XA_OK}, {start(3, "A", TMJOIN), XA_OK}, {state("A"), DTM_STATE_ATTACHED},
    {prepare(1, "A"), XAER_PROTO}, {end(3, "A"), XA_OK}, {prepare(1, "A"), XA_OK}, {commit(3, "A"), XA_OK}}},
  {"join_of_a_migrated_branch_is_repeated", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A", TMSUSPEND | TMMIGRATE), XA_OK},
    {script(attach_call, ZDB_REPLY_STATUS, 2, 2), 1},
    {start(1, "A", TMJOIN), XA_OK}, {seconds_slept(), 4}, {end(1, "A"), XA_OK}, {state("A"), DTM_STATE_ENDED},
    {rollback(1, "A"), XA_OK}}},
  {"join_beside_a_suspended_branch_does_not_wait", {
    {open(1), XA_OK}, {open(3), XA_OK},
    {start(3, "A"), XA_OK}, {start(1, "B"), XA_OK}, {end(1, "B", TMSUSPEND), XA_OK},
    {start(1, "A", TMJOIN), XAER_PROTO}, {start(1, "A", TMJOIN | TMNOWAIT), XA_RETRY},
    {end(3, "A"), XA_OK}, {start(1, "A", TMJOIN), XA_OK}, {end(1, "A"), XA_OK},
    {state("B"), DTM_STATE_ATTACHED},
    // Once the server has forgotten the suspended branch, the join ends it here as well.
    {rollback(3, "B"), XA_OK}, {start(1, "A", TMJOIN), XA_OK}, {end(1, "A"), XA_OK},
    {start(1, "B", TMRESUME), XAER_NOTA}, {rollback(1, "A"), XA_OK}}},
  {"end_of_a_branch_that_no_connection_holds", {
    {open(1), XA_OK}, {open(3), XA_OK}, {end(1, "A"), XAER_NOTA}, {end(1, "A", TMSUSPEND), XAER_NOTA},
    {start(3, "A"), XA_OK}, {end(1, "A"), XAER_PROTO}, {end(1, "A", TMFAIL), XAER_PROTO},
    {end(1, "A", TMSUSPEND | TMMIGRATE), XAER_PROTO}, {state("A"), DTM_STATE_ATTACHED},
    {end(3, "A"), XA_OK}, {end(3, "A"), XAER_PROTO}, {rollback(1, "A"), XA_OK}, {sessions(), 2}}},
  {"verbs_without_an_open_resource_manager", {
    {open(1), XA_OK}, {start(2, "A"), XAER_INVAL}, {end(2, "A"), XAER_INVAL}, {end(2, "A", TMSUSPEND), XAER_INVAL},
    {prepare(2, "A"), XAER_INVAL}, {commit(2, "A"), XAER_INVAL}, {rollback(2, "A"), XAER_INVAL},
    {forget(2, "A"), XAER_INVAL}, {recover(2, 1, TMSTARTRSCAN), XAER_RMFAIL}, {close(2), XA_OK},
    // Under TXS the other thread is an identity of its own, which opened nothing.
    {other(start(1, "A")), {XA_OK, XA_OK, XAER_INVAL}}, {other(rollback(1, "A")), {XA_OK, XA_OK, XAER_INVAL}}}},
  {"commit_that_must_not_wait", {
    {open(1), XA_OK}, {open(3), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {start(3, "A", TMJOIN), XA_OK}, {prepare(1, "A"), XAER_PROTO},  // leaves the XID on the connection
    {commit(1, "A", TMNOWAIT), XA_RETRY}, {state("A"), DTM_STATE_ATTACHED}, {end(3, "A"), XA_OK},
    {prepare(1, "A"), XA_OK}, {commit(1, "A", TMNOWAIT), XA_OK}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK}, {commit(1, "B", TMNOWAIT | TMONEPHASE), XA_OK},
    {sessions(), 2}}},
  {"abort_of_a_branch_that_another_session_holds", {
    {open(1), XA_OK}, {open(3), XA_OK}, {start(1, "A"), XA_OK}, {rollback(3, "A"), XA_OK},
    {state("A"), DTM_STATE_UNKNOWN}, {logged("Performing asyncronous abort"), 1}, {end(1, "A"), XA_OK}}},
  {"abort_after_the_other_flavours_refusal", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {only(MTS, script(rollback_call, ZDB_REPLY_STATUS, -128)), 1}, {only(MTS, rollback(1, "A")), XAER_PROTO},
    {only(TUX | TXS, script(rollback_call, ZDB_REPLY_STATUS, -1, 0, 2)), 1},
    {only(TUX | TXS, rollback(1, "A")), XAER_RMFAIL}, {only(TUX | TXS, open(1)), XA_OK}, {rollback(1, "A"), XA_OK}}},
  {"abort_that_is_refused_as_well", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {only(MTS, script(rollback_call, ZDB_REPLY_STATUS, -1)), 1},
    {only(TUX | TXS, script(rollback_call, ZDB_REPLY_STATUS, -128)), 1},
    {rollback(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK}, {script(rollback_call, ZDB_REPLY_STATUS, -128, 0, -1), 1},
    {rollback(1, "B"), {XAER_PROTO, XAER_RMFAIL}}, {unscript(), 1},
    {only(TUX | TXS, rollback(1, "B")), XAER_INVAL}, {open(1), XA_OK}, {rollback(1, "B"), XA_OK}}},
  // A busy branch is asked for once a second; what the operator did meanwhile is looked for afterwards by prepare only.
  {"busy_prepare_that_ends_in_a_heuristic_commit", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {script(prepare_call, ZDB_REPLY_XACTSTATUS, -9), 1}, {script(status_call, ZDB_REPLY_STATUS, -9, 0, 2), 1},
    {when_asleep(4, force("A", 1)), 1},
    {prepare(1, "A"), XA_HEURCOM}, {asleep_result(), 1}, {seconds_slept(), 4},
    {forget(1, "A"), XA_OK}, {state("A"), DTM_STATE_UNKNOWN}}},
  {"busy_commit", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {prepare(1, "A"), XA_OK},
    {script(commit_call, ZDB_REPLY_STATUS, -9), 1}, {when_asleep(2, force("A", 0)), 1},
    {commit(1, "A"), XAER_NOTA}, {asleep_result(), 1}, {seconds_slept(), 2},
    {commit(1, "A"), XA_HEURRB}, {forget(1, "A"), XA_OK},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK}, {script(commit_call, ZDB_REPLY_XACTSTATUS, -9), 1},
    {commit(1, "B", TMONEPHASE), XAER_NOTA}, {seconds_slept(), 3}, {state("B"), DTM_STATE_UNKNOWN}}},
  {"heuristic_outcomes", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK}, {force("A", 1), 0}, {forget(1, "A"), XAER_NOTA},
    {prepare(1, "A"), XA_OK}, {forget(1, "A"), XAER_NOTA}, {force("A", 1), 1},
    {commit(1, "A"), XA_HEURCOM}, {rollback(1, "A"), XA_HEURCOM}, {state("A"), DTM_STATE_HEUR_COMMITTED},
    // Without the forced attach, the attach before the request has the last word.
    {prepare(1, "A"), {XA_HEURCOM, XAER_NOTA}}, {commit(1, "A", TMONEPHASE), {XA_HEURCOM, XAER_NOTA}},
    {start(1, "A"), XAER_DUPID}, {end(1, "A"), XAER_NOTA},
    {forget(1, "A"), XA_OK}, {forget(1, "A"), XAER_NOTA}, {state("A"), DTM_STATE_UNKNOWN},
    {start(1, "B"), XA_OK}, {end(1, "B"), XA_OK}, {prepare(1, "B"), XA_OK}, {force("B", 0), 1},
    {commit(1, "B"), XA_HEURRB}, {forget(1, "B"), XA_OK}}},
  {"unusual_replies", {
    {open(1), XA_OK}, {start(1, "A"), XA_OK}, {end(1, "A"), XA_OK},
    {script(prepare_call, ZDB_REPLY_STATUS, -5), 1}, {prepare(1, "A"), XAER_INVAL},
    {script(prepare_call, ZDB_REPLY_STATUS, -6), 1}, {prepare(1, "A"), XA_OK},  // reopened and repeated
    {script(commit_call, ZDB_REPLY_CMD_FAIL), 1}, {commit(1, "A"), XA_OK},
    {script(begin_call, ZDB_REPLY_STATUS, 255), 1}, {start(1, "B"), XA_RETRY},
    {script(begin_call, ZDB_REPLY_RPCERROR, 12), 1}, {start(1, "B"), XAER_DUPID},  // began with the first
    {state("B"), DTM_STATE_ABORTONLY}, {rollback(1, "B"), XA_OK},
    {script(status_call, ZDB_REPLY_STATUS, -16777215), 1}, {end(1, "C"), XAER_RMFAIL}, {sessions(), 1}}},
  {"objects_of_application_code_end_with_the_branch", {
    {open(1), XA_OK}, {open(2), XA_OK}, {start(1, "A"), XA_OK}, {published(), 1},
    {other(published()), {1, 1, 0}},
    {announce_cursor(), 1}, {commands(), 4}, {objects(), 5},
    {end(1, "A"), XA_OK}, {published(), 0}, {commands(), 2}, {objects(), 0}, {rollback(1, "A"), XA_OK}}},
  {"statement_numbers", {
    {statement_number(1), XAER_PROTO},  // no flavour yet
    {open(1), XA_OK}, {open(2), XA_OK}, {statement_number(1), XAER_PROTO},
    {start(1, "A"), XA_OK}, {statement_number(1), {1, XAER_INVAL}}, {statement_number(1), {2, XAER_INVAL}},
    {other(statement_number(1)), {3, XAER_INVAL, XAER_PROTO}}, {statement_number(2), XAER_PROTO},
    {end(1, "A", TMSUSPEND), XA_OK}, {statement_number(1), XAER_PROTO}, {start(1, "A", TMRESUME), XA_OK},
    {statement_number(1), {4, XAER_INVAL}}, {end(1, "A"), XA_OK}, {rollback(1, "A"), XA_OK},
    {start(1, "B"), XA_OK}, {statement_number(1), {5, XAER_INVAL}}, {rollback(1, "B"), XA_OK},
    {break_sessions(), 1}, {start(1, "C"), XA_OK}, {statement_number(1), {1, XAER_INVAL}},  // a new connection
    {rollback(1, "C"), XA_OK}}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Branch, Scenarios, testing::ValuesIn(cases_of(scenarios)), case_name);

}  // namespace
}  // namespace scenario
