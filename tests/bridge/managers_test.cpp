// Models of two transaction managers: what each calls next, and what it makes of the codes. They
// run transactions over two servers while one of these refuses, at every step, and many at once while it refuses at
// random. What a manager has decided is what each server has done in the end, and nothing is left prepared of which
// nobody has a record.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>
#include <list>
#include <random>
#include <set>
#include <thread>

#include "interface/zdb_control.h"
#include "manager.h"

namespace {

using Branch = std::pair<int, std::string>;  // rmid and global transaction
using Records = std::set<Branch>;            // branches that a manager still has to commit or roll back

const std::vector<int> both = {1, 2};

// What a refusal is. All happen to the server of rmid 1, some with its sessions broken.
struct Refusal {
  const char *name;
  bool breaks;
  std::function<void()> begin;
};

std::function<void()> answers(ZDB_REPLY_KIND kind) {
  return [kind] {
    const ZDB_SCRIPT script = {"*", 0, 1, kind, 0, nullptr};
    zdb_add_script("bank1", &script);
  };
}

void switch_dtm_off() {
  zdb_set_dtm("bank1", 0);
}

void take_the_role() {
  zdb_add_user("bank1", "sa", "pw", 0);
}

const Refusal refusals[] = {
    {"server gone", true, refuse_logins},
    {"DTM off", false, switch_dtm_off},
    {"DTM off, sessions broken", true, switch_dtm_off},
    {"role taken", false, take_the_role},
    {"role taken, sessions broken", true, take_the_role},
    {"sessions broken", true, refuse_nothing},
    {"request lost", false, answers(ZDB_REPLY_DROP_BEFORE)},
    {"reply lost", false, answers(ZDB_REPLY_DROP_AFTER)},
    {"sessions broken, then a reply lost", true, answers(ZDB_REPLY_DROP_AFTER)},
    {"request failed", false, answers(ZDB_REPLY_CMD_FAIL)},
    {"no status", false, answers(ZDB_REPLY_NO_STATUS)},
};

// Counts a manager's calls, and begins and ends a refusal at one of them.
class Course {
 public:
  Course(const Refusal &refusal, int from, int calls) : refusal_(&refusal), from_(from), to_(from + calls) {}

  template <typename Call>
  int operator()(const Call &call) {
    ++calls_;
    if (calls_ == from_) {
      refusal_->begin();
      if (refusal_->breaks) {
        break_sessions();
      }
      is_on_ = true;
    }
    if (is_on_ && calls_ == to_) {
      finish();
    }
    return call();
  }
  void finish() {
    if (is_on_) {
      refuse_nothing();
      is_on_ = false;
    }
    from_ = 0;
  }
  bool was_reached() const { return calls_ >= from_; }

 private:
  const Refusal *refusal_;
  int from_;
  int to_;
  int calls_ = 0;
  bool is_on_ = false;
};

// Two phases in one thread. A record is kept until every branch has answered XA_OK; after anything else a fresh process
// completes what its scan finds. XA_RETRY is tried once more.
class Lixa {
 public:
  Lixa(const Manager &tm, Course &course) : tm_(tm), course_(course) {}

  void run(const std::string &global) {
    for (const int rmid : both) {
      if (course_([&] { return tm_.open(rmid, open_string(rmid)); }) != XA_OK) {
        return;
      }
    }
    if (!work(global)) {
      return;
    }
    for (const int rmid : both) {
      records.insert({rmid, global});  // what is found of them is rolled back, until all are prepared
    }
    bool all = true;
    for (const int rmid : both) {
      all = all && course_([&] { return tm_.prepare(rmid, global); }) == XA_OK;
    }
    if (all) {
      decided.insert(global);
    }
    for (const int rmid : both) {
      finish(rmid, global, false);
    }
  }

  // A fresh process: opens again, and completes what its records and the scan name.
  void recover() {
    for (const int rmid : both) {
      if (tm_.open(rmid, open_string(rmid)) != XA_OK) {
        continue;
      }
      std::vector<std::string> found;
      if (tm_.scan(rmid, 100, found) < 0) {
        continue;
      }
      for (const std::string &global : found) {
        if (records.contains({rmid, global})) {
          finish(rmid, global, true);
        }
      }
      std::erase_if(records, [&](const Branch &branch) {
        return branch.first == rmid && std::find(found.begin(), found.end(), branch.second) == found.end();
      });
    }
  }

  Records records;
  std::set<std::string> decided;

 private:
  bool work(const std::string &global) {
    for (const int rmid : both) {
      int code = course_([&] { return tm_.start(rmid, global); });
      if (code == XAER_DUPID || code == XAER_PROTO) {
        course_([&] { return tm_.end(rmid, global, TMNOFLAGS); });
        course_([&] { return tm_.rollback(rmid, global); });
        code = course_([&] { return tm_.start(rmid, global); });
      }
      if (code != XA_OK) {
        return false;
      }
    }
    bool all = true;
    for (const int rmid : both) {
      all = course_([&] { return tm_.end(rmid, global, all ? TMSUCCESS : TMFAIL); }) == XA_OK && all;
    }
    return all;
  }

  void finish(int rmid, const std::string &global, bool recovers) {
    const auto complete = [&] {
      return decided.contains(global) ? tm_.commit(rmid, global) : tm_.rollback(rmid, global);
    };
    int code = course_(complete);
    if (code == XA_RETRY) {
      code = course_(complete);
    }
    if (code == XA_OK || (code == XAER_NOTA && recovers)) {
      records.erase({rmid, global});
    }
  }

  const Manager &tm_;
  Course &course_;
};

// A client works, a service in its group joins, and a server prepares and commits. Of a commit's codes only XA_RETRY
// and XAER_RMFAIL are tried again; of a rollback's XAER_RMERR and what is not known counts as done.
class Endurox {
 public:
  Endurox(const Manager &tm, Course &course, bool recon) : tm_(tm), course_(course), recon_(recon) {}

  void run(const std::string &global) {
    for (const int rmid : both) {
      if (course_([&] { return tm_.open(rmid, open_string(rmid)); }) != XA_OK) {
        return;
      }
    }
    bool commits = true;
    for (const int rmid : both) {
      records.insert({rmid, global});
      commits = commits && worked(rmid, global);
    }
    for (const int rmid : both) {
      commits = commits && call(rmid, [&] { return tm_.prepare(rmid, global); }) == XA_OK;
    }
    if (commits) {
      decided.insert(global);
    }
    settle();
  }

  // Its background thread.
  void settle() {
    for (const auto &[rmid, global] : Records(records)) {
      const bool commits = decided.contains(global);
      for (int tries = 0; tries < 3 && records.contains({rmid, global}); ++tries) {
        const int code = call(rmid, [&, rmid = rmid, &global = global] {
          return commits ? tm_.commit(rmid, global) : tm_.rollback(rmid, global);
        });
        if (code != XA_RETRY && code != XAER_RMFAIL) {
          records.erase({rmid, global});
        }
      }
    }
  }

  Records records;
  std::set<std::string> decided;

 private:
  bool worked(int rmid, const std::string &global) {
    return course_([&] { return tm_.start(rmid, global); }) == XA_OK &&
           course_([&] { return tm_.end(rmid, global, TMSUSPEND); }) == XA_OK && served(rmid, global) &&
           course_([&] { return tm_.start(rmid, global, TMRESUME); }) == XA_OK &&
           course_([&] { return tm_.end(rmid, global); }) == XA_OK;
  }

  // A service of the caller's group: a process of its own, for which a thread stands.
  bool served(int rmid, const std::string &global) {
    bool fine = false;
    std::thread([&] {
      fine = course_([&] { return tm_.open(rmid, open_string(rmid)); }) == XA_OK &&
             course_([&] { return tm_.start(rmid, global, TMJOIN); }) == XA_OK &&
             course_([&] { return tm_.end(rmid, global); }) == XA_OK;
    }).join();
    return fine;
  }

  // With RECON, a failed open's code is taken for the verb's.
  template <typename Verb>
  int call(int rmid, const Verb &verb) {
    int code = course_(verb);
    for (int tries = 0; recon_ && code == XAER_RMFAIL && tries < 3; ++tries) {
      course_([&] { return tm_.close(rmid); });
      const int opened = course_([&] { return tm_.open(rmid, open_string(rmid)); });
      code = opened == XAER_RMERR ? XAER_RMFAIL : opened == XA_OK ? course_(verb) : opened;
    }
    return code;
  }

  const Manager &tm_;
  Course &course_;
  bool recon_;
};

class Managers : public Banks {
 protected:
  // Branches that are prepared and of which nobody has a record. They are rolled back then, so that the next course
  // begins with none.
  static std::vector<Branch> left_over(const Manager &tm, const Records &records) {
    std::vector<Branch> lost;
    for (const int rmid : both) {
      tm.open(rmid, open_string(rmid));
      std::vector<std::string> found;
      EXPECT_GE(tm.scan(rmid, 100, found), 0);
      for (const std::string &global : found) {
        if (!records.contains({rmid, global})) {
          lost.push_back({rmid, global});
        }
        EXPECT_EQ(tm.rollback(rmid, global), XA_OK);
      }
    }
    break_sessions();
    zdb_break_sessions("bank2", nullptr);
    return lost;
  }

  // Runs what the managers do, then lets them settle, and checks that every decision, and nothing else, came true.
  template <typename Model, typename Run, typename Settle>
  void check(const Manager &tm, const Run &run, const Settle &settle, std::list<Model> &managers) {
    const int32_t before[] = {zdb_commit_count("bank1"), zdb_commit_count("bank2")};
    run();
    refuse_nothing();
    int32_t decided = 0;
    Records records;
    for (Model &manager : managers) {
      std::thread([&] { settle(manager); }).join();
      decided += static_cast<int32_t>(manager.decided.size());
      records.merge(manager.records);
    }
    EXPECT_TRUE(records.empty());
    EXPECT_TRUE(left_over(tm, records).empty()) << "a prepared branch without a record";
    EXPECT_EQ(zdb_commit_count("bank1") - before[0], decided);
    EXPECT_EQ(zdb_commit_count("bank2") - before[1], decided);
  }

  // Runs a transaction for each refusal, each call at which it begins and each of some durations. `make` gives a
  // manager whose `run` and `settle` are used.
  template <typename Make, typename Settle>
  void run_all(const Manager &tm, const Make &make, const Settle &settle) {
    int number = 0;
    for (const Refusal &refusal : refusals) {
      for (const int lasts : {1, 9}) {
        bool reached = true;
        for (int from = 1; reached && from < 60; ++from) {
          SCOPED_TRACE(testing::Message() << refusal.name << ", call " << from << ", for " << lasts);
          Course course(refusal, from, lasts);
          std::list managers = {make(course)};
          const auto run = [&] {
            std::thread([&] { managers.front().run(std::to_string(++number)); }).join();
            reached = course.was_reached();
            course.finish();
          };
          check(tm, run, settle, managers);
          EXPECT_TRUE(reached || !managers.front().decided.empty()) << "nothing was in its way";
        }
      }
    }
  }

  // Threads run transactions at once, each of which begins a refusal somewhere, for all of them. MANAGERS_SEED in the
  // environment tries others.
  template <typename Make, typename Settle>
  void run_many(const Manager &tm, const Make &make, const Settle &settle) {
    using Model = std::invoke_result_t<Make, Course &>;
    const char *given = getenv("MANAGERS_SEED");
    const unsigned first = given != nullptr ? static_cast<unsigned>(strtoul(given, nullptr, 10)) : 1;
    for (unsigned seed = first; seed < first + 3; ++seed) {
      SCOPED_TRACE(testing::Message() << "seed " << seed);
      std::list<Course> courses[4];
      std::list<Model> managers[4];
      const auto work = [&](unsigned thread) {
        std::mt19937 random(seed * 10 + thread);
        for (int round = 0; round < 12; ++round) {
          const Refusal &refusal = refusals[random() % std::size(refusals)];
          const auto from = static_cast<int>(1 + random() % 25);
          Course &course = courses[thread].emplace_back(refusal, from, static_cast<int>(1 + random() % 12));
          managers[thread].push_back(make(course));
          managers[thread].back().run(std::to_string(seed * 10 + thread) + '.' + std::to_string(round));
          course.finish();
        }
      };
      std::list<Model> all;
      const auto run = [&] {
        std::vector<std::thread> threads;
        for (unsigned thread = 0; thread < std::size(managers); ++thread) {
          threads.emplace_back(work, thread);
        }
        for (unsigned thread = 0; thread < std::size(managers); ++thread) {
          threads[thread].join();
          all.splice(all.end(), managers[thread]);
        }
      };
      check(tm, run, settle, all);
    }
  }
};

TEST_P(Managers, lixa_leaves_no_branch_prepared) {
  const Manager tm = Manager::of_module(XADTM_LIXA_FILE, "lixa_get_xa_switch");
  const auto make = [&](Course &course) { return Lixa(tm, course); };
  const auto settle = [](Lixa &manager) { manager.recover(); };
  run_all(tm, make, settle);
  if (GetParam() == std::string("TXS")) {
    run_many(tm, make, settle);
  }
}

TEST_P(Managers, endurox_leaves_no_branch_prepared) {
  const Manager tm = Manager::of_module(XADTM_ENDUROX_FILE, "ndrx_get_xa_switch");
  const bool is_txs = GetParam() == std::string("TXS");
  const auto settle = [&](Endurox &manager) {
    for (const int rmid : both) {
      tm.open(rmid, open_string(rmid));
    }
    manager.settle();
    manager.settle();
  };
  for (const bool recon : is_txs ? std::vector<bool>{true} : std::vector<bool>{true, false}) {
    run_all(
        tm, [&](Course &course) { return Endurox(tm, course, recon); }, settle);
  }
  for (const bool recon : is_txs ? std::vector<bool>{true, false} : std::vector<bool>{}) {
    run_many(
        tm, [&](Course &course) { return Endurox(tm, course, recon); }, settle);
  }
}

INSTANTIATE_TEST_SUITE_P(, Managers, testing::Values("TUX", "TXS"),
                         [](const auto &about) { return std::string(about.param); });

}  // namespace
