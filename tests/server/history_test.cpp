// Random histories of SQL in branches, with kills and restarts, against plain SQLite: whatever a
// branch does, the folder must hold what a plain transaction with the same statements leaves, rowids included.
//
// A history is made of its seed. ZDB_SEED is the first one's (1), ZDB_HISTORIES their number; a failure names its own.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "bank.h"
#include "disk/disk_store.h"
#include "disk/folder.h"
#include "history_sql.h"
#include "steps/crash_points.h"

namespace {

enum class Ending {
  alone,  // no branch: each statement commits by itself
  one_phase,
  commit,
  roll_back,
  prepared_roll_back,
  killed,                 // without a prepare
  killed_then_commit,     // prepared, taken up after the kill
  killed_then_roll_back,  // the same
  torn                    // killed at a random step of its prepare or commit, then committed if it was prepared
};
constexpr int ending_count = 9;
constexpr int first_killed = static_cast<int>(Ending::killed);

struct Branch {
  std::vector<std::string> statements;
  Ending ending;
  int step = 0;  // of a torn one's kill
};

zdb::SqlCounts counts;  // of the only session

// The same database twice: in the store's folder, and as plain SQLite has it.
class History {
 public:
  explicit History(unsigned seed) : sql_(seed), model_(":memory:") { zdb::create_folder(place_.folder()); }

  void play() {
    set_up(sql_.tables());
    const int lives = 1 + sql_.below(3);
    for (int count = 0; count < lives && !testing::Test::HasFailure(); ++count) {
      std::vector<Branch> earlier;
      for (int branches = sql_.below(4); branches > 0; --branches) {
        earlier.push_back({sql_.statements(), static_cast<Ending>(sql_.below(first_killed)), 0});
      }
      play(earlier, {sql_.statements(), static_cast<Ending>(sql_.below(ending_count)), 1 + sql_.below(30)});
    }
  }

  void play(const std::vector<std::string> &tables, const Branch &branch) {
    EXPECT_EQ(set_up(tables), std::string(tables.size(), '+'));
    play(std::vector<Branch>(), branch);
  }

 private:
  std::string set_up(const std::vector<std::string> &tables) {
    const std::string answered = life([&](zdb::DiskStore &store) {
      run(tables, [&](const std::string &sql) { return store.run(sql, false, counts, false); });
    });
    EXPECT_EQ(answered, run_on_model(tables));
    return answered;
  }

  // Runs the action over the store in a process of its own, which is killed then, and returns what it has told.
  template <typename Action>
  std::string life(Action action) {
    int status = 0;
    const std::string told = in_child(
        [&](int pipe) {
          pipe_ = pipe;
          action(*std::make_unique<zdb::DiskStore>(place_.folder()).release());
          kill(getpid(), SIGKILL);
        },
        status);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
    return told;
  }

  void tell(const std::string &text) const {
    EXPECT_EQ(write(pipe_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  template <typename Run>
  void run(const std::vector<std::string> &statements, Run run_one) const {
    for (const std::string &sql : statements) {
      tell(run_one(sql).failed ? "-" : "+");
    }
  }

  std::string run_on_model(const std::vector<std::string> &statements) {
    std::string answered;
    for (const std::string &sql : statements) {
      answered += sqlite3_exec(model_.handle(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK ? '+' : '-';
    }
    return answered;
  }

  std::string store_content() const { return content(zdb::Database(zdb::data_path(place_.folder()))); }

  // The earlier ones and the last one in one life, which ends with its kill.
  void play(const std::vector<Branch> &earlier, const Branch &last) {
    std::string expected;
    for (const Branch &branch : earlier) {
      begin_on_model(branch);
      expected += run_on_model(branch.statements) + "\n";
      end_on_model(branch, moves(branch.ending));
      expected += content(model_);
    }
    const std::string before = content(model_);
    begin_on_model(last);
    expected += run_on_model(last.statements) + "\n";
    const std::string after = content(model_);
    const std::string answered = first_life(earlier, last);
    EXPECT_EQ(answered.substr(0, expected.size()), expected) << described(earlier) << described({last});
    const std::string found = last_life(last);
    const bool either = last.ending == Ending::torn && answered.find("prepared", expected.size()) == std::string::npos;
    const bool commits = moves(last.ending) && !(either && found == before);
    EXPECT_EQ(found, commits ? after : before) << described(earlier) << described({last});
    end_on_model(last, commits);
  }

  void begin_on_model(const Branch &branch) {
    if (branch.ending != Ending::alone) {
      model_.execute("BEGIN");
    }
  }

  void end_on_model(const Branch &branch, bool commits) {
    if (branch.ending != Ending::alone) {
      model_.execute(commits ? "COMMIT" : "ROLLBACK");
    }
  }

  static bool moves(Ending ending) {
    return ending == Ending::alone || ending == Ending::one_phase || ending == Ending::commit ||
           ending == Ending::killed_then_commit || ending == Ending::torn;
  }

  // All up to the kill.
  std::string first_life(const std::vector<Branch> &earlier, const Branch &last) {
    return life([&](zdb::DiskStore &store) {
      for (const Branch &branch : earlier) {
        carry_out(store, branch);
        tell(store_content());
      }
      carry_out(store, last);
    });
  }

  void carry_out(zdb::DiskStore &store, const Branch &branch) const {
    if (branch.ending == Ending::alone) {
      run(branch.statements, [&](const std::string &sql) { return store.run(sql, false, counts, false); });
      tell("\n");
      return;
    }
    // A branch that the kill ends lives on until then.
    const auto work = store.make_work("b");
    static std::vector<std::shared_ptr<zdb::Work>> kept;
    kept.push_back(work);
    run(branch.statements, [&](const std::string &sql) { return work->run(sql, counts); });
    tell("\n");
    end(*work, branch);
  }

  void end(zdb::Work &work, const Branch &branch) const {
    if (branch.ending == Ending::killed) {
      return;
    }
    if (branch.ending == Ending::torn) {
      zdb::crash_in(static_cast<uint64_t>(branch.step));
    }
    if (branch.ending != Ending::one_phase && branch.ending != Ending::roll_back) {
      work.prepare();
      tell(branch.ending >= Ending::killed ? "prepared" : "");
    }
    if (branch.ending == Ending::roll_back || branch.ending == Ending::prepared_roll_back) {
      work.roll_back();
    } else if (branch.ending < Ending::killed || branch.ending == Ending::torn) {
      work.commit();
    }
  }

  // After the restart: what was prepared is ended, and all is looked at.
  std::string last_life(const Branch &branch) {
    return life([&](zdb::DiskStore &store) {
      for (const zdb::KeptBranch &kept : store.take_kept_branches()) {
        if (branch.ending == Ending::killed_then_roll_back) {
          kept.work->roll_back();
        } else {
          kept.work->commit();
        }
      }
      tell(store_content());
    });
  }

  static std::string described(const std::vector<Branch> &branches) {
    std::string text;
    for (const Branch &branch : branches) {
      text.append("ending ").append(std::to_string(static_cast<int>(branch.ending))).append(" of\n");
      for (const std::string &sql : branch.statements) {
        text += sql + ";\n";
      }
    }
    return text;
  }

  const Place place_;
  HistorySql sql_;
  zdb::Database model_;
  int pipe_ = -1;  // in a life: to who looks at it
};

unsigned from_environment(const char *name, unsigned missing) {
  const char *value = std::getenv(name);
  return value == nullptr ? missing : static_cast<unsigned>(std::strtoul(value, nullptr, 10));
}

}  // namespace

TEST(Histories, leave_what_plain_transactions_leave) {
  const unsigned first = from_environment("ZDB_SEED", 1);
  const unsigned count = from_environment("ZDB_HISTORIES", 25);
  for (unsigned seed = first; seed < first + count; ++seed) {
    History(seed).play();
    ASSERT_FALSE(HasFailure()) << "seed " << seed;
  }
}

// What a branch does to each of them.
constexpr const char *statement_forms[] = {
    "delete from T",
    "delete from T; insert into T (k, c, v) values (8, 8, 8)",
    "delete from T where k > 1; insert into T (c, v, k) values ('new', 'er', 60)",
    "update T set c = null",
    "update T set k = k + 0.0",
    "update T set k = -9223372036854775807 - 1 where k = 1",
    "update T set k = k || 'x', v = v * 1.5; update or ignore T set k = 1; update or fail T set v = 1",
    "update T set c = x.c from (select 'f' || v as c, k from T) as x where x.k = T.k returning k, c",
    "insert into T (k, c, v) values (1, 'i', 'i') on conflict do update set c = excluded.c returning *",
    "insert or replace into T (k, c, v) values (1, null, 3), (2.0, x'00', null), ('1', '', 5)",
    "insert or ignore into T (k, c, v) select k + 1, c, v from T",
    "insert into T (c, v) values (zeroblob(70000), 5); insert into T (c, v) values (changes(), last_insert_rowid())",
    "alter table T add column d default 'old'; update T set c = 'late' where k = 1; delete from T where k = 2",
    "alter table T add column d default 7; update T set d = null; insert or replace into T (k) values (3)",
    "alter table T rename column c to cc; alter table T rename to T_new; update T_new set cc = cc || k",
    "create table T_copy as select * from T; drop table T; create table T (k, c, v); insert into T values (1, 2, 3)",
    "create index T_more on T (v, c); update T set v = 0; reindex T; analyze T",
    ("create view T_v as select * from T; create trigger T_o instead of insert on T_v begin insert into T (k, c, v) "
     "values (new.k, 1, 1); end; insert into T_v (k) values (77); drop view T_v"),
};

// The statements for every table, not always beginning with the same one.
std::vector<std::string> for_all_kinds(std::size_t first,
                                       const std::function<std::string(const std::string &kind)> &text) {
  std::vector<std::string> all;
  for (std::size_t count = 0; count < table_kinds().size(); ++count) {
    const std::size_t kind = (first + count) % table_kinds().size();
    all.push_back(with_name(text(table_kinds()[kind]), std::string("t").append(std::to_string(kind))));
  }
  return all;
}

TEST(Forms, leave_in_tables_of_all_kinds_what_plain_transactions_leave) {
  const auto tables = for_all_kinds(0, [](const std::string &kind) {
    return kind +
           "; insert into T (k, c, v) values (1, 'one', 1), (2, 'two', 2.0), (3, 3, 'three'), (1001, x'01', 4); "
           "delete from T where k = 1001";
  });
  for (std::size_t form = 0; form < std::size(statement_forms); ++form) {
    const auto statements = for_all_kinds(form, [&](const std::string &) { return statement_forms[form]; });
    for (const Ending ending : {Ending::commit, Ending::killed_then_commit, Ending::killed_then_roll_back}) {
      History(0).play(tables, {statements, ending});
      ASSERT_FALSE(HasFailure()) << statement_forms[form];
    }
  }
}
