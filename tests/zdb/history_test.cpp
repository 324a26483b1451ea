/*
 * history_test.cpp - random histories of SQL in branches, with kills and restarts, against plain SQLite: whatever a
 * branch does, the folder must hold what a plain transaction with the same statements leaves, rowids included.
 *
 * A history is made of its seed. ZDB_SEED is the first one's (1), ZDB_HISTORIES their number; a failure names its own.
 */
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "bank.h"
#include "crash_points.h"
#include "disk_store.h"
#include "folder.h"
#include "history_sql.h"

namespace {

enum class Ending {
  alone, /* no branch: each statement commits by itself */
  one_phase,
  commit,
  roll_back,
  prepared_roll_back,
  killed,                /* without a prepare */
  killed_then_commit,    /* prepared, taken up after the kill */
  killed_then_roll_back, /* the same */
  torn                   /* killed at a random step of its prepare or commit, then committed if it was prepared */
};
constexpr int ending_count = 9;
constexpr int first_killed = static_cast<int>(Ending::killed);

struct Branch {
  std::vector<std::string> statements;
  Ending ending;
  int step = 0; /* of a torn one's kill */
};

zdb::SqlCounts counts; /* of the only session */

bool is_killed(Ending ending) {
  return ending >= Ending::killed;
}

/* What a life has told, word by word, in a file that outlives it. */
class Record {
 public:
  explicit Record(const Place &place) : path_(place.path() / "record") {}
  void add(const std::string &word) const { std::ofstream(path_, std::ios::app) << word << std::flush; }
  std::string take() const {
    std::ifstream file(path_);
    std::string all{std::istreambuf_iterator<char>(file), {}};
    std::filesystem::remove(path_);
    return all;
  }

 private:
  std::filesystem::path path_;
};

/* The same database twice: in the store's folder, and as plain SQLite has it. */
class History {
 public:
  explicit History(unsigned seed) : sql_(seed), model_(":memory:"), record_(place_) {
    zdb::create_folder(place_.folder());
  }

  void play() {
    const std::vector<std::string> tables = sql_.tables();
    life([&](zdb::DiskStore &store) {
      run(tables, [&](const std::string &sql) { return store.run(sql, false, counts); });
    });
    const std::string answered = record_.take();
    EXPECT_EQ(answered, run_on_model(tables));
    const int lives = 1 + sql_.below(3);
    for (int count = 0; count < lives && !testing::Test::HasFailure(); ++count) {
      std::vector<Branch> earlier;
      for (int branches = sql_.below(4); branches > 0; --branches) {
        earlier.push_back({sql_.statements(), static_cast<Ending>(sql_.below(first_killed)), 0});
      }
      play(earlier, {sql_.statements(), static_cast<Ending>(sql_.below(ending_count)), 1 + sql_.below(30)});
    }
  }

 private:
  /* Runs the action over the store in a process of its own, which is killed then. */
  template <typename Action>
  void life(Action action) {
    const pid_t child = fork();
    if (child == 0) {
      action(*std::make_unique<zdb::DiskStore>(place_.folder()).release());
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
  }

  template <typename Run>
  void run(const std::vector<std::string> &statements, Run run_one) const {
    for (const std::string &sql : statements) {
      record_.add(run_one(sql).failed ? "-" : "+");
    }
  }

  std::string run_on_model(const std::vector<std::string> &statements) {
    std::string answered;
    for (const std::string &sql : statements) {
      answered += sqlite3_exec(model_.handle(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK ? '+' : '-';
    }
    return answered;
  }

  std::string model_content() {
    return content([&](const std::string &sql) { return rows_of(model_, sql); });
  }

  static std::string store_content(zdb::DiskStore &store) {
    return content([&](const std::string &sql) { return rows_of(store.run(sql, false, counts)); });
  }

  /* The earlier ones and the last one in one life, which ends with its kill. */
  void play(const std::vector<Branch> &earlier, const Branch &last) {
    std::string expected;
    for (const Branch &branch : earlier) {
      begin_on_model(branch);
      expected += run_on_model(branch.statements) + "\n";
      end_on_model(branch, moves(branch.ending));
      expected += model_content();
    }
    const std::string before = model_content();
    begin_on_model(last);
    expected += run_on_model(last.statements) + "\n";
    const std::string after = model_content();
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

  /* All up to the kill. */
  std::string first_life(const std::vector<Branch> &earlier, const Branch &last) {
    life([&](zdb::DiskStore &store) {
      for (const Branch &branch : earlier) {
        carry_out(store, branch);
        record_.add(store_content(store));
      }
      carry_out(store, last);
    });
    return record_.take();
  }

  void carry_out(zdb::DiskStore &store, const Branch &branch) const {
    if (branch.ending == Ending::alone) {
      run(branch.statements, [&](const std::string &sql) { return store.run(sql, false, counts); });
      record_.add("\n");
      return;
    }
    // A branch that the kill ends lives on until then.
    const auto work = store.make_work("b");
    static std::vector<std::shared_ptr<zdb::Work>> kept;
    kept.push_back(work);
    run(branch.statements, [&](const std::string &sql) { return work->run(sql, counts); });
    record_.add("\n");
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
      record_.add(is_killed(branch.ending) ? "prepared" : "");
    }
    if (branch.ending == Ending::roll_back || branch.ending == Ending::prepared_roll_back) {
      work.roll_back();
    } else if (!is_killed(branch.ending) || branch.ending == Ending::torn) {
      work.commit();
    }
  }

  /* After the restart: what was prepared is ended, and all is looked at. */
  std::string last_life(const Branch &branch) {
    life([&](zdb::DiskStore &store) {
      const std::string unseen = store_content(store);
      for (const zdb::KeptBranch &kept : store.take_kept_branches()) {
        if (branch.ending == Ending::killed_then_roll_back) {
          kept.work->roll_back();
        } else {
          kept.work->commit();
        }
      }
      record_.add(store_content(store));
    });
    return record_.take();
  }

  static std::string described(const std::vector<Branch> &branches) {
    std::string text;
    for (const Branch &branch : branches) {
      text += "ending " + std::to_string(static_cast<int>(branch.ending)) + " of\n";
      for (const std::string &sql : branch.statements) {
        text += sql + ";\n";
      }
    }
    return text;
  }

  const Place place_;
  HistorySql sql_;
  zdb::Database model_;
  const Record record_;
};

unsigned from_environment(const char *name, unsigned missing) {
  const char *value = std::getenv(name);
  return value == nullptr ? missing : static_cast<unsigned>(std::strtoul(value, nullptr, 10));
}

}  // namespace

TEST(Histories, LeaveWhatPlainTransactionsLeave) {
  const unsigned first = from_environment("ZDB_SEED", 1);
  const unsigned count = from_environment("ZDB_HISTORIES", 25);
  for (unsigned seed = first; seed < first + count; ++seed) {
    History(seed).play();
    ASSERT_FALSE(HasFailure()) << "seed " << seed;
  }
}
