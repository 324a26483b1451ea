// A server over a folder, asked as libxadtm and application code ask it.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>
#include <vector>

#include "bank.h"
#include "dtm/dtm_protocol.h"
#include "sessions/durable_server.h"

using namespace std::chrono_literals;

namespace {

// A bank with two accounts of 100, and short patience.
class ServerTest : public testing::Test {
 protected:
  ServerTest() {
    EXPECT_EQ(other.sql("create table acct (id integer primary key, v integer not null check (v >= 0)); "
                        "insert into acct values (1, 100), (2, 100)"),
              "#2");
    server->store().set_setting(zdb::lock_timeout_setting, 50);
  }
  std::string value(int account = 1) const {
    return other.sql("select v from acct where id = " + std::to_string(account));
  }
  // The request meanwhile has begun to wait, or to run, when this returns.
  static std::thread meanwhile(std::function<void()> action) {
    std::thread thread(std::move(action));
    std::this_thread::sleep_for(100ms);
    return thread;
  }

  Place place;
  std::shared_ptr<zdb::Server> server = open_bank(place);
  Client one{server};
  Client other{server};
};

using Rules = ServerTest;
using BranchSql = ServerTest;
using Refusals = ServerTest;
using Locks = ServerTest;
using Losses = ServerTest;
using Operators = ServerTest;

}  // namespace

TEST_F(Rules, decide_what_becomes_of_branches) {
  // Steps "session operation answer"; session x breaks off or forces an outcome instead.
  const struct {
    const char *name;
    const char *steps;
    int32_t state;
  } cases[] = {
      {"two phases", "a begin 0 a end 1 b try_attach 2 b detach 1 b prepare 2 a commit 7 a status -2",
       DTM_STATE_UNKNOWN},
      {"one phase", "a begin 0 a commit1 1", DTM_STATE_UNKNOWN},
      {"begun twice", "a begin 0 a begin -3 b begin -3 a attach 1", DTM_STATE_ATTACHED},
      {"held elsewhere", "a begin 0 b attach -4 b end -4 b prepare -4 b commit1 -4 b status 1", DTM_STATE_ATTACHED},
      {"rolled back elsewhere", "a begin 0 b rollback -128 b forced_rollback -1 b abort 1 a end -2", DTM_STATE_UNKNOWN},
      {"joined in turn", "a begin 0 a end 1 b attach 2 a attach -4 b end 1 a end 2", DTM_STATE_ENDED},
      {"suspended is like ended", "a begin 0 a suspend 1 b status 3 b prepare 3", DTM_STATE_PREPARED},
      {"migrated needs an attach", "a begin 0 a migrate 1 b prepare -4 b commit1 -4 b attach 4 b end 1",
       DTM_STATE_ENDED},
      {"migrated is not forced", "a begin 0 a migrate 1 b forced_prepare -4 b forced_commit1 -4", DTM_STATE_DETACHED},
      {"aborted then prepared", "a begin 0 x break 0 b status 6 b end 6 b prepare -2 b status -2", DTM_STATE_UNKNOWN},
      {"aborted then attached", "a begin 0 x break 0 b attach 6 b commit1 -4 b try_attach 6", DTM_STATE_UNKNOWN},
      {"attached to be rolled back", "a begin 0 a end 1 b attach_abort 2 b rollback 6", DTM_STATE_UNKNOWN},
      {"prepared stays prepared", "a begin 0 a prepare 1 x break 0 b attach 7 b prepare -4 b commit1 -4",
       DTM_STATE_PREPARED},
      {"prepared rolled back", "a begin 0 a prepare 1 b attach_abort 7 b rollback 6", DTM_STATE_UNKNOWN},
      {"forced by the operator", "a begin 0 a prepare 1 x commit 0 a commit -2 a rollback -2 a begin -3 a status -2",
       DTM_STATE_HEUR_COMMITTED},
      {"forgotten", "a begin 0 a prepare 1 a forget -4 x rollback 0 a forget 0", DTM_STATE_UNKNOWN},
      {"not prepared", "a begin 0 a commit -4 a end 1 a commit -4 a forget -4", DTM_STATE_ENDED},
      {"unknown", "a attach -2 a end -2 a prepare -2 a commit -2 a abort -2 a forget -2 a bad_flags -5",
       DTM_STATE_UNKNOWN},
  };
  for (const auto &test : cases) {
    auto first = std::make_unique<Client>(server);
    std::istringstream steps(test.steps);
    int32_t answer = 0;
    for (std::string session, step; steps >> session >> step >> answer;) {
      if (step == "break") {
        first.reset();
      } else if (session == "x") {
        EXPECT_TRUE(server->force("b", step == "commit"));
      } else {
        EXPECT_EQ((session == "a" ? *first : other).dtm(step, "b"), answer) << test.name << ": " << session << step;
      }
    }
    EXPECT_EQ(server->branch_state("b"), test.state) << test.name;
    other.dtm("abort", "b");
    server->force("b", true);
    other.dtm("forget", "b");
    EXPECT_EQ(server->branch_count(), 0) << test.name;
  }
}

TEST_F(BranchSql, shows_outside_only_when_committed) {
  struct Case {
    std::vector<std::string> steps;
    const char *value;
  };
  const Case cases[] = {
      {{"commit1"}, "99#1"}, {{"rollback"}, "99#1"}, {{"prepare", "commit"}, "98#1"}, {{"prepare", "rollback"}, "98#1"},
      {{"abort"}, "98#1"},
  };
  for (const Case &one_case : cases) {
    const std::string before = value();
    one.work("b", "update acct set v = v - 1 where id = 1");
    for (const std::string &step : one_case.steps) {
      EXPECT_EQ(value(), before) << step;
      EXPECT_GE(other.dtm(step, "b"), 0) << step;  // a session of another one may complete it
    }
    EXPECT_EQ(value(), one_case.value);
    EXPECT_EQ(server->branch_count(), 0);
  }
  EXPECT_EQ(one.sql("update acct set v = 5 where id = 1"), "#1") << "it has no branch any more";
  EXPECT_EQ(value(), "5#1");
}

TEST_F(BranchSql, comes_back_as_results) {
  struct Case {
    const char *sql;
    const char *result;
  };
  const Case cases[] = {
      {"update acct set v = v + 1", "#2"},
      {"update acct set v = 7 where id = 9", "#0"},
      {"select id, v from acct order by id; ; -- no more", "1|101;2|101#2"},
      {"insert into acct values (3, 0); delete from acct where id > 1; select count(*) from acct", "#1#21#1"},
      {"insert into acct values (5, 1), (6, 2) returning id, v", "5|1;6|2#2"},
      {"select null, 'x', 1.5, x'0102', \"text\"", "null|x|~1.500000|x2|text#1"},
      {"update acct set v = 1; insert into acct values (1, 1); update acct set v = 2", "#3!3101"},
      {"update acct set v = -1", "!3101"},
      {"select min(v), max(v) from acct", "1|1#1"},
      {"", ""},
  };
  EXPECT_EQ(one.dtm("begin", "b"), 0);
  for (const Case &one_case : cases) {
    EXPECT_EQ(one.sql(one_case.sql), one_case.result) << one_case.sql;
  }
  EXPECT_EQ(value(), "100#1");
  EXPECT_EQ(one.dtm("commit1", "b"), 1);
  EXPECT_EQ(value(), "1#1");
  EXPECT_EQ(one.sql(std::string("select 1\0; select 2", 19)), "!3101");
  EXPECT_EQ(other.sql("insert into acct values (8, 1), (8, 1)"), "!3101");
  EXPECT_EQ(other.sql("update acct set v = 3 where id = 1; nonsense"), "#1!3101") << "the first is committed";
  EXPECT_EQ(value(), "3#1");
}

// Whatever the server's connections did before, and for whom.
TEST_F(BranchSql, counts_for_each_session) {
  const char *const counts = "select last_insert_rowid(), changes(), total_changes()";
  one.sql("create table t (id integer primary key, v); insert into t values (10, 1), (11, 2), (12, 3)");
  EXPECT_EQ(other.sql(counts), "2|2|2#1");
  EXPECT_EQ(one.sql(counts), "12|3|3#1");
  EXPECT_EQ(one.dtm("begin", "b"), 0);
  EXPECT_EQ(one.sql("insert into t values (changes() + 20, total_changes())"), "#1");
  EXPECT_EQ(one.sql(counts), "23|1|4#1");
  EXPECT_EQ(one.dtm("commit1", "b"), 1);
  EXPECT_EQ(other.sql("insert or fail into t values (changes() + 30, 4), (31, 5), (10, 6), (33, 7)"), "!3101");
  EXPECT_EQ(other.sql(counts), "31|2|4#1");
  EXPECT_EQ(other.sql("update t set v = last_insert_rowid() where id < 12; delete from t where id > 99"), "#2#0");
  EXPECT_EQ(other.sql(counts), "31|0|6#1");
  EXPECT_EQ(one.sql("select id, v from t"), "10|31;11|31;12|3;23|3;31|5;32|4#6");
  EXPECT_EQ(one.sql("drop table t; " + std::string(counts)), "23|1|4#1");
}

TEST_F(BranchSql, undoes_a_change_that_returns_too_much) {
  const char *const large =
      "with recursive n(i) as (select 9 union all select i + 1 from n where i < 60) "
      "insert into acct select i, 0 from n returning zeroblob(1000000)";
  EXPECT_EQ(one.dtm("begin", "b"), 0);
  EXPECT_EQ(one.sql("update acct set v = 1 where id = 1"), "#1");
  EXPECT_EQ(one.sql(large), "!3109");
  EXPECT_EQ(one.sql("insert into acct values (8, 1), (8, 1) returning id"), "!3101");
  EXPECT_EQ(one.dtm("commit1", "b"), 1);
  EXPECT_EQ(other.sql(large), "!3109");
  EXPECT_EQ(other.sql("select count(*), min(v) from acct"), "2|1#1");
}

TEST_F(BranchSql, describes_columns_by_their_values) {
  using zdb::ColumnType;
  const zdb::Reply reply = one.ask(
      zdb::RequestKind::language,
      "select 1 as i, 5000000000 as w, 1.5 as r, 'abc' as s, x'00' as b, null as n, 2 as mixed, 1 as wide "
      "union all select null, 1, 2, 'a text that is longer than a number would be', null, null, 'x', 2.5 order by r");
  ASSERT_EQ(reply.results.front().columns.size(), 8U);
  const std::array types = {ColumnType::integer, ColumnType::bigint, ColumnType::real, ColumnType::text,
                            ColumnType::binary,  ColumnType::text,   ColumnType::text, ColumnType::real};
  const std::array<int32_t, 4> sizes = {4, 8, 8, 44};
  for (std::size_t i = 0; i < types.size(); ++i) {
    const zdb::Column &column = reply.results.front().columns[i];
    EXPECT_EQ(column.type, types[i]) << column.name;
    if (i < sizes.size()) {
      EXPECT_EQ(column.max_length, sizes[i]) << column.name;
    }
  }
}

TEST_F(Refusals, keep_clients_from_what_is_not_theirs) {
  const char *const never[] = {
      "begin",
      "/* x */ commit",
      "savepoint s",
      "pragma journal_mode = delete",
      "pragma main.synchronous = off",
      "select * from pragma_journal_mode('delete')",
      "attach 'x.db' as x",
      "vacuum into 'x.db'",
      "create table temp.x (id integer primary key)",
      "create virtual table x using fts5(a)",
      "select load_extension('x')",
      "insert into sqlite_master values ('table', 'x', 'x', 0, '')",
      "delete from sqlite_master",
      "select * from zdb_mark",
      "with m as (select * from Zdb_Mark) select * from m",
      "update acct set v = (select journal_id from zdb_mark)",
      "insert into zdb_mark values (1, 2)",
      "drop table zdb_mark",
      "alter table zdb_mark add column x",
      "create index x on zdb_mark (journal_id)",
      "select * from branch_journal",
      "select * from master..syslogins",
      "select * from master..sqlite_master",
      "select 1 from master..sysconfigures where exists (select 1 from syslogins)",
      "update master..sysconfigures set value = 0",
      "delete from master.dbo.systransactions",
      "create table master..x (id integer primary key)",
      "select * from master..sysconfigures, acct",
  };
  const Client guest(server, "guest");
  EXPECT_EQ(one.dtm("begin", "b"), 0);
  for (const char *sql : never) {
    EXPECT_EQ(guest.sql(sql).front(), '!') << sql;
    EXPECT_EQ(one.sql(sql).front(), '!') << sql;
  }
  EXPECT_EQ(one.sql("with a as (select 3 as v) insert into acct select v, v from a"), "#1");
  EXPECT_EQ(one.dtm("commit1", "b"), 1);
  EXPECT_EQ(one.sql("select id from acct"), "1;2;3#3");
  EXPECT_EQ(one.sql("create view sums as select sum(v) as s from acct; select s from sums; create index i on acct (v)"),
            "203#1");
}

TEST_F(BranchSql, asks_the_catalog_as_libxadtm_does) {
  one.work("0_61_62_:L1", "update acct set v = 1");
  EXPECT_EQ(one.dtm("begin", "held"), 0);
  const std::string state = "select state from master..systransactions where xactname = \"0_61_62_:L1\" ";
  EXPECT_EQ(one.sql("select value from master.dbo.sysconfigures \t\t\t where name = \"enable DTM\" "), "1#1");
  EXPECT_EQ(other.sql("select xactname, state, age, held from master..systransactions order by 1"),
            "0_61_62_:L1|2|0|0;held|1|0|1#2");
  EXPECT_EQ(one.dtm("prepare", "0_61_62_:L1"), 2);
  EXPECT_EQ(one.sql(state), "7#1") << "inside a branch of its own";
  EXPECT_EQ(in_one_line(other.ask(zdb::RequestKind::procedure, "sp_transactions")), "!3103");
  EXPECT_EQ(other.dtm("commit", "0_61_62_:L1"), 7);
  EXPECT_EQ(other.sql(state), "#0");
}

TEST_F(Locks, let_one_write_and_all_read) {
  one.work("writer", "update acct set v = 1");
  EXPECT_EQ(one.dtm("prepare", "writer"), 2);
  EXPECT_EQ(value(), "100#1");
  EXPECT_EQ(other.sql("update acct set v = 2"), "!3106");
  EXPECT_EQ(other.dtm("begin", "late"), 0);
  EXPECT_EQ(other.sql("select v from acct where id = 1; update acct set v = 2"), "100#1!3106");
  EXPECT_EQ(one.dtm("commit", "writer"), 7);
  EXPECT_EQ(other.sql("select v from acct where id = 1"), "100#1") << "as the branch saw it first";
  EXPECT_EQ(other.sql("update acct set v = 2"), "!3108");
  EXPECT_EQ(one.sql("update acct set v = v + 1"), "#2") << "the refused one does not keep the lock";
  EXPECT_EQ(other.dtm("rollback", "late"), 1);

  // Any number of branches without changes may be prepared.
  for (const char *name : {"r1", "r2", "r3"}) {
    one.work(name, "select * from acct; update acct set v = 0 where id = 99");
    EXPECT_EQ(one.dtm("prepare", name), 2);
  }
  EXPECT_EQ(other.scan(), "r1;r2;r30");
  EXPECT_EQ(other.sql("update acct set v = v + 1"), "#2");
  EXPECT_EQ(one.dtm("commit", "r2"), 7);
  EXPECT_EQ(one.dtm("rollback", "r1"), 7);
  EXPECT_EQ(one.dtm("commit", "r3"), 7);

  server->store().set_setting(zdb::lock_timeout_setting, 10'000);
  one.work("first", "update acct set v = 10");
  std::thread waiting = meanwhile([&] { EXPECT_EQ(other.sql("update acct set v = v + 1"), "#2"); });
  EXPECT_EQ(one.dtm("commit1", "first"), 2);
  waiting.join();
  EXPECT_EQ(value(), "11#1");
}

TEST_F(Losses, end_waiting_and_endless_statements) {
  server->store().set_setting(zdb::lock_timeout_setting, 60'000);
  const char *const endless = "with recursive n(i) as (select 1 union all select i + 1 from n) select count(*) from n";
  one.work("holder", "update acct set v = 1");
  for (const char *sql : {"update acct set v = 2", endless}) {
    const Client victim(server);
    EXPECT_EQ(victim.dtm("begin", "b"), 0);
    std::thread running = meanwhile([&] { EXPECT_EQ(victim.sql(sql), "!3107") << sql; });
    if (sql == endless) {
      EXPECT_NE(operate(*server, "rollback", {"b"}).find("is undone"), std::string::npos);
    }
    EXPECT_EQ(other.dtm("abort", "b"), sql == endless ? DTM_STATE_ABORTONLY : DTM_STATE_ATTACHED);
    running.join();
    EXPECT_EQ(server->branch_state("b"), DTM_STATE_UNKNOWN);

    // The branch is gone, and its session may not know: its SQL must not go on by itself.
    EXPECT_EQ(victim.sql("update acct set v = 3"), "!3111");
    EXPECT_EQ(victim.sql("select count(*) from master..systransactions"), "1#1");
    EXPECT_LT(victim.dtm("status", "b"), 0);
    EXPECT_EQ(victim.sql("select 1"), "!3111");
    EXPECT_LT(victim.dtm("end", "b"), 0);
    EXPECT_EQ(victim.sql("select 1"), "1#1");
  }
  std::thread waits = meanwhile([&] { EXPECT_EQ(one.sql("update acct set v = 4"), "broken"); });
  std::thread runs = meanwhile([&] { EXPECT_EQ(other.sql(endless), "broken"); });
  server->shut_down();
  waits.join();
  runs.join();
}

TEST_F(Losses, by_the_statement_time_limit) {
  const std::string endless = "with recursive n(i) as (select 9 union all select i + 1 from n) select i, 1 from n";
  server->store().set_setting(zdb::statement_timeout_setting, 100);
  EXPECT_EQ(one.dtm("begin", "b"), 0);
  EXPECT_EQ(one.sql("insert into acct " + endless), "!3107") << "the first one has nothing to lose";
  EXPECT_EQ(one.sql("update acct set v = 1; select count(*) from (" + endless + ")"), "#2!3107");
  EXPECT_EQ(one.sql("select v from acct where id = 1"), "1#1") << "a query takes nothing along";
  EXPECT_EQ(other.sql("select max(i) from (" + endless + ")"), "!3107");
  EXPECT_EQ(one.sql("insert into acct " + endless), "!3111") << "the update went with it";
  EXPECT_EQ(server->branch_state("b"), DTM_STATE_ABORTONLY);
  EXPECT_EQ(other.sql("insert into acct " + endless), "!3107") << "the lock is free";
  EXPECT_EQ(other.sql("select v from acct"), "100;100#2");
}

TEST_F(Losses, of_a_session_undo_the_branch_it_holds) {
  server->store().set_setting(zdb::lock_timeout_setting, 60'000);
  one.work("holder", "update acct set v = 1");
  const Client waiter(server, "sa");
  EXPECT_EQ(waiter.dtm("begin", "c"), 0);
  std::thread waiting = meanwhile([&] { EXPECT_EQ(waiter.sql("update acct set v = 3"), "broken"); });
  EXPECT_EQ(server->break_sessions("sa"), 3);
  waiting.join();
  EXPECT_FALSE(waiter.alive());
  EXPECT_EQ(server->branch_state("c"), DTM_STATE_ABORTONLY);
  EXPECT_EQ(server->branch_state("holder"), DTM_STATE_ENDED) << "nobody held it";
}

TEST_F(Losses, of_orphans_spare_prepared_and_held_ones) {
  one.work("left", "select * from acct");
  one.work("prepared", "update acct set v = 1");
  EXPECT_EQ(one.dtm("prepare", "prepared"), 2);
  EXPECT_EQ(one.dtm("begin", "held"), 0);
  const auto expect = [&](int32_t left, int32_t held) {
    EXPECT_EQ(server->branch_state("left"), left);
    EXPECT_EQ(server->branch_state("held"), held);
    EXPECT_EQ(server->branch_state("prepared"), DTM_STATE_PREPARED);
  };
  server->undo_orphans(zdb::Clock::now() - 1h);
  expect(DTM_STATE_ENDED, DTM_STATE_ATTACHED);
  server->undo_orphans(zdb::Clock::now());
  expect(DTM_STATE_ABORTONLY, DTM_STATE_ATTACHED);
  operate(*server, "rollback", {"held"});
  server->forget_abort_only(zdb::Clock::now() - 1h);
  expect(DTM_STATE_ABORTONLY, DTM_STATE_ABORTONLY);
  server->forget_abort_only(zdb::Clock::now() + 1h);
  expect(DTM_STATE_UNKNOWN, DTM_STATE_ABORTONLY);  // the latter's session has yet to learn of it
  EXPECT_EQ(one.dtm("end", "held"), DTM_STATE_ABORTONLY);
  server->forget_abort_only(zdb::Clock::now() + 1h);
  expect(DTM_STATE_UNKNOWN, DTM_STATE_UNKNOWN);
}

TEST(Orphans, are_looked_after_by_the_server_itself) {
  const Place place;
  open_bank(place)->store().set_setting(zdb::orphan_age_setting, 1);
  const zdb::DurableServer durable(place.folder());
  const Client client(durable.server());
  client.work("b", "select 1");
  const auto patience = std::chrono::steady_clock::now() + 20s;
  while (durable.server()->branch_state("b") == DTM_STATE_ENDED && std::chrono::steady_clock::now() < patience) {
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_EQ(client.dtm("commit1", "b"), -4);
  EXPECT_EQ(client.dtm("rollback", "b"), DTM_STATE_ABORTONLY);
}

TEST_F(Losses, by_a_full_disk_break_no_promise) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const auto fill_disk = [&](bool full) {
    const rlimit now{full ? 0 : limit.rlim_cur, limit.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &now), 0);
  };
  one.work("b", "update acct set v = v - 1 where id = 1");
  EXPECT_EQ(one.dtm("prepare", "b"), 2);

  fill_disk(true);
  EXPECT_EQ(one.dtm("commit", "b"), Client::no_status);
  EXPECT_EQ(one.dtm("rollback", "b"), Client::no_status);
  EXPECT_EQ(operate(*server, "commit", {"b"}).substr(0, 5), "!3203");
  EXPECT_EQ(server->branch_state("b"), DTM_STATE_PREPARED);
  EXPECT_EQ(other.sql("update acct set v = 0"), "!3106") << "its lock is kept";
  fill_disk(false);
  EXPECT_EQ(one.dtm("commit", "b"), 7);
  EXPECT_EQ(value(), "99#1");
}

TEST_F(Refusals, bound_what_a_session_makes_the_server_remember) {
  const std::string longest(255, 'n');
  const auto number = [&](zdb::RequestKind kind, const std::string &text) {
    const zdb::Reply reply = one.ask(kind, text);
    return reply.messages.empty() ? 0 : reply.messages[0].number;
  };
  EXPECT_EQ(one.dtm("begin", longest), 0);
  EXPECT_EQ(one.dtm("begin", longest + "n"), Client::no_status);
  for (const auto kind : {zdb::RequestKind::cursor_open, zdb::RequestKind::statement_prepare}) {
    EXPECT_EQ(number(kind, longest), 0);
    EXPECT_EQ(number(kind, longest + "n"), 3112);
    for (int i = 1; i < 1000; ++i) {
      EXPECT_EQ(number(kind, std::to_string(i)), 0);
    }
    EXPECT_EQ(number(kind, "one more"), 3112);
    EXPECT_EQ(number(kind, "1"), 0);
  }
}

TEST_F(Refusals, leave_descriptors_for_others) {
  for (int i = 0; i < 400; ++i) {
    one.work(std::string("b").append(std::to_string(i)), "select 1");
  }
  EXPECT_EQ(one.dtm("begin", "more"), 0);
  EXPECT_EQ(one.sql("select 1"), "!3112");
  EXPECT_EQ(other.sql("select 1"), "1#1");
  EXPECT_EQ(other.dtm("rollback", "b7"), 2);
  EXPECT_EQ(one.sql("select 1"), "1#1");
}

TEST_F(Operators, end_branches_in_any_state_and_see_who_has_the_lock) {
  const std::string undone = "Branch 'b' was not prepared, and its work is undone.";
  const struct {
    std::vector<std::string> steps;
    std::string listed;    // state, age, held, lock
    const char *commit;    // how the operator's commit is answered; null: not asked for
    std::string rollback;  // and the rollback
    int32_t left;
  } cases[] = {
      {{}, "", "no branch 'b'", "There is no branch 'b'. The command list", DTM_STATE_UNKNOWN},
      {{"begin"}, "b|attached|0|yes|yes", "is attached, not", undone, DTM_STATE_ABORTONLY},
      {{"begin", "end"}, "b|ended|0|no|yes", "is ended, not", undone, DTM_STATE_ABORTONLY},
      {{"begin", "suspend"}, "b|suspended|0|no|yes", "is suspended, not", undone, DTM_STATE_ABORTONLY},
      {{"begin", "undo"},
       "b|abort-only|0|no|no",
       "is abort-only, not",
       "Branch 'b' was rolled back before",
       DTM_STATE_UNKNOWN},
      {{"begin", "prepare"},
       "b|prepared|0|no|yes",
       nullptr,
       "Branch 'b' is heuristically rolled",
       DTM_STATE_HEUR_ROLLEDBACK},
      {{"begin", "prepare", "commit"},
       "b|heuristic-commit|0|no|no",
       "is settled already: heuristic-commit. It goes when",
       "is settled already: heuristic-commit",
       DTM_STATE_HEUR_COMMITTED},
  };
  for (const auto &row : cases) {
    for (const std::string &step : row.steps) {
      EXPECT_TRUE(step == "commit" ? operate(*server, "commit", {"b"}).starts_with(" Branch 'b' is heuristically com")
                  : step == "undo" ? operate(*server, "rollback", {"b"}).front() == ' '
                                   : one.dtm(step, "b") >= 0);
      EXPECT_TRUE(step != "begin" || one.sql("update acct set v = 0") == "#2");
    }
    const std::string listed = operate(*server, "list", {});
    EXPECT_EQ(listed, row.listed + " ");
    if (row.commit != nullptr) {
      EXPECT_NE(operate(*server, "commit", {"b"}).find(row.commit), std::string::npos) << listed;
    }
    EXPECT_NE(operate(*server, "rollback", {"b"}).find(row.rollback), std::string::npos) << listed;
    EXPECT_EQ(server->branch_state("b"), row.left) << listed;
    EXPECT_EQ(value(), row.left == DTM_STATE_HEUR_COMMITTED ? "0#1" : "100#1") << listed;
    EXPECT_EQ(other.sql("update acct set v = 100"), "#2") << "the lock is free";
    one.dtm("rollback", "b");
    EXPECT_EQ(server->branch_state("b"), row.left == DTM_STATE_ABORTONLY ? DTM_STATE_UNKNOWN : row.left)
        << "the manager learns of it";
    one.dtm("forget", "b");
  }
}

TEST_F(Operators, see_that_a_statement_has_the_lock) {
  std::thread alone = meanwhile([&] {
    other.sql("insert into acct with recursive n(i) as (select 9 union all select i + 1 from n) select i, 1 from n");
  });
  EXPECT_EQ(operate(*server, "list", {}), " A statement outside branches has the lock of the data.");
  server->shut_down();
  alone.join();
}

TEST_F(Operators, look_after_users_and_settings) {
  struct Case {
    const char *command;
    std::initializer_list<std::string> arguments;
    const char *result;  // begins with
  };
  const Case cases[] = {
      {"users", {}, "guest|no;sa|yes "},
      {"add-user", {"ann", "pw", "dtm"}, " User 'ann' can log in"},
      {"add-user", {"", "pw", "dtm"}, "!3110"},
      {"add-user", {"ann", std::string(1000, 'x'), "dtm"}, "!3110"},
      {"drop-user", {"nobody"}, "!3110"},
      {"drop-user", {"guest"}, " User 'guest' is gone; sessions ended: 1."},
      {"users", {}, "ann|yes;sa|yes "},
      {"lock-timeout", {"20"}, " A statement waits 20"},
      {"lock-timeout", {"9223372036854775807"}, "!3110"},
      {"orphan-age", {"1x"}, "!3110"},
      {"dtm", {"off"}, " Distributed"},
      {"nonsense", {}, "!3110"},
  };
  const Client guest(server, "guest");
  EXPECT_EQ(guest.dtm("begin", "g"), Client::no_status);
  EXPECT_EQ(guest.scan().front(), '!');
  EXPECT_EQ(in_one_line(guest.ask(zdb::RequestKind::administer, "users")), "!3105");
  EXPECT_EQ(guest.sql("select count(*) from acct"), "2#1");
  for (const Case &one_case : cases) {
    const std::string result = operate(*server, one_case.command, one_case.arguments);
    EXPECT_EQ(result.substr(0, std::string(one_case.result).size()), one_case.result) << one_case.command;
  }
  EXPECT_FALSE(guest.alive());
  EXPECT_EQ(one.dtm("begin", "b"), Client::no_status) << "DTM is off";
  EXPECT_EQ(one.scan().front(), '!');
  zdb::Message refusal;
  EXPECT_FALSE(server->log_in({"guest", "pw", "", false}, refusal));
  EXPECT_FALSE(server->log_in({"sa", "Pw", "", false}, refusal));
  EXPECT_EQ(refusal.number, zdb::message_login_refused);
}
