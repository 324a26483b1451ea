/*
 * crash_test.cpp - what a folder still holds when its process has died, by kill -9 at every step in turn.
 *
 * The tests' own process never opens a folder: each step of a story runs in a child, which inherits no open files and
 * reads for itself at which step it is to die.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bank.h"
#include "folder.h"
#include "store_opening.h"

namespace {

constexpr const char *transfer = "update acct set v = v - 10 where id = 1; update acct set v = v + 10 where id = 2";

constexpr uint64_t never_reached = UINT64_MAX;

/* Runs the action in a child that dies at the step, 0 for never; false when it died. */
bool survives(uint64_t step, const std::function<void()> &action) {
  const pid_t child = fork();
  if (child == 0) {
    setenv("ZDB_CRASH_AT", std::to_string(step).c_str(), 1);
    action();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  EXPECT_TRUE((killed && step != 0) || status == 0) << "step " << step << ", status " << status;
  return !killed;
}

/* The steps that were answered before the process died, kept in a file beside the folder. */
class Answered {
 public:
  explicit Answered(const Place &place) : path_(place.path() / "answered") {}
  void add(const std::string &step) const {
    const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    EXPECT_EQ(write(file, step.data(), step.size()), static_cast<ssize_t>(step.size()));
    close(file);
  }
  bool has(const std::string &step) const {
    std::string all(1000, '\0');
    const int file = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t size = file < 0 ? 0 : read(file, all.data(), all.size());
    close(file);
    return size > 0 && all.substr(0, static_cast<std::size_t>(size)).find(step) != std::string::npos;
  }
  void clear() const { std::filesystem::remove(path_); }

 private:
  std::filesystem::path path_;
};

void make_accounts(const Place &place) {
  const auto server = open_bank(place);
  const Client client(server);
  EXPECT_EQ(client.sql("create table acct (id integer primary key, v integer not null, name text unique); "
                       "insert into acct values (1, 100, 'a'), (2, 100, 'b')"),
            "#2");
  server->store().set_setting(zdb::lock_timeout_setting, 10);
  // An earlier branch has left its mark.
  client.work("earlier", "update acct set v = v");
  EXPECT_EQ(client.dtm("prepare", "earlier"), 2);
  EXPECT_EQ(client.dtm("commit", "earlier"), 7);
}

/* The folder as it was before the step that is tried out. */
class Snapshot {
 public:
  explicit Snapshot(const Place &place) : place_(place) { copy(place.folder(), saved()); }
  void restore() const {
    std::filesystem::remove_all(place_.folder());
    copy(saved(), place_.folder());
  }

 private:
  std::filesystem::path saved() const { return place_.path() / "saved"; }
  static void copy(const std::filesystem::path &from, const std::filesystem::path &to) {
    std::filesystem::copy(from, to, std::filesystem::copy_options::recursive);
  }
  const Place &place_;
};

/* A branch's end: what is asked after its transfer, and whether the money moves then. */
struct Story {
  std::vector<std::string> steps;
  bool moves;
};

/* For the tests' names. */
void PrintTo(const Story &story, std::ostream *out) {
  for (const std::string &step : story.steps) {
    *out << (&step == story.steps.data() ? "" : ", ") << step;
  }
}

void play(const Place &place, const Story &story) {
  const auto server = open_bank(place);
  const Client client(server);
  const Answered answered(place);
  client.work("b", transfer);
  for (const std::string &step : story.steps) {
    if (step.starts_with("force")) {
      EXPECT_TRUE(server->force("b", step == "force commit"));
    } else {
      EXPECT_GE(client.dtm(step, "b"), 0) << step;
    }
    answered.add(step);
  }
}

std::string balances(const Client &client) {
  return client.sql("select v from acct order by id");
}

/* Looks at what the crash has left, and ends it as the story does. Returns whether the money has moved then. */
bool finish(const std::shared_ptr<zdb::Server> &server, const Client &client, const Story &story,
            const Answered &answered) {
  const int32_t state = server->branch_state("b");
  const bool promised = answered.has("prepare") || answered.has("commit1");
  const bool moved = balances(client) == "90;110#2";
  EXPECT_TRUE(moved || balances(client) == "100;100#2") << balances(client);
  if (state == ZDB_PREPARED) {
    EXPECT_FALSE(moved);
    EXPECT_FALSE(answered.has("commit") || answered.has("rollback") || answered.has("force"));
    EXPECT_EQ(client.sql("update acct set v = 0"), "!3106") << "its lock is kept";
    EXPECT_EQ(client.dtm(story.moves ? "commit" : "rollback", "b"), ZDB_PREPARED);
    return story.moves;
  }
  if (state == ZDB_UNKNOWN) {
    const bool keeps_outcome = story.steps.back().starts_with("force");
    EXPECT_FALSE(keeps_outcome && (moved || answered.has("force"))) << "nobody has forgotten the outcome";
    const bool in_flight = story.steps.front() == "commit1" && !answered.has("commit1");
    EXPECT_TRUE(in_flight || moved == (promised && story.moves));
    return moved;
  }
  EXPECT_EQ(state, story.moves ? ZDB_HEUR_COMMITTED : ZDB_HEUR_ROLLED_BACK);
  EXPECT_EQ(moved, story.moves);
  EXPECT_FALSE(answered.has("forget"));
  EXPECT_EQ(client.dtm("forget", "b"), 0);
  return moved;
}

/* Nothing of it comes back or is repeated, also by a branch of the same name. */
void check_after_crash(const Place &place, const Story &story) {
  int64_t moved = 0;
  {
    const auto server = open_bank(place);
    const Client client(server);
    moved = finish(server, client, story, Answered(place)) ? 10 : 0;
  }
  for (int round = 0; round < 2; ++round) {
    const auto server = open_bank(place);
    const Client client(server);
    EXPECT_EQ(server->branch_count(), 0);
    EXPECT_EQ(balances(client), std::to_string(100 - moved) + ";" + std::to_string(100 + moved) + "#2");
    client.work("b", transfer);
    EXPECT_EQ(client.dtm("prepare", "b"), 2);
    EXPECT_EQ(client.dtm("commit", "b"), 7);
    moved += 10;
  }
}

/* Makes the folder, unless it is made; then it must be of use. */
void make_again(const Place &place) {
  if (!zdb::is_made(place.folder())) {
    zdb::create_folder(place.folder());
  }
  zdb::open_store(place.folder())->add_user("sa", "pw", true);
  EXPECT_TRUE(zdb::open_store(place.folder())->has_dtm_role("sa"));
  EXPECT_FALSE(std::filesystem::exists(place.folder() + "/making"));
}

/* No file may grow beyond the size; that of the socket to the test's output does not count. */
void make_on_full_disk(const Place &place, rlim_t size) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{size, RLIM_INFINITY};
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  try {
    zdb::create_folder(place.folder());
  } catch (const std::runtime_error &error) {
    const std::string text = error.what();
    EXPECT_NE(text.find(".db ("), std::string::npos) << text;
    EXPECT_NE(text.find("repeat zdbd --init " + place.folder()), std::string::npos) << text;
  }
}

class Crash : public testing::TestWithParam<Story> {};

}  // namespace

TEST_P(Crash, AtNoStepLosesOrRepeatsAnything) {
  const Place place;
  ASSERT_TRUE(survives(0, [&] { make_accounts(place); }));
  const Snapshot before(place);
  uint64_t step = 1;
  while (!survives(step, [&] { play(place, GetParam()); })) {
    EXPECT_TRUE(survives(0, [&] { check_after_crash(place, GetParam()); })) << "step " << step;
    ASSERT_FALSE(HasFailure()) << "after a crash at step " << step;
    Answered(place).clear();
    before.restore();
    ++step;
  }
  EXPECT_GT(step, 10U);
  EXPECT_TRUE(survives(0, [&] { check_after_crash(place, GetParam()); }));
}

INSTANTIATE_TEST_SUITE_P(Ends, Crash,
                         testing::Values(Story{{"prepare", "commit"}, true}, Story{{"prepare", "rollback"}, false},
                                         Story{{"commit1"}, true}, Story{{"prepare", "force commit"}, true},
                                         Story{{"prepare", "force commit", "forget"}, true},
                                         Story{{"prepare", "force rollback", "forget"}, false}));

TEST(Making, CanBeRepeatedAfterADeathAtAnyStep) {
  const Place place;
  uint64_t step = 1;
  while (!survives(step, [&] { zdb::create_folder(place.folder()); })) {
    EXPECT_TRUE(survives(0, [&] { make_again(place); }));
    ASSERT_FALSE(HasFailure()) << "after a crash at step " << step;
    std::filesystem::remove_all(place.folder());
    ++step;
  }
  EXPECT_GT(step, 10U);
}

TEST(Making, CanBeRepeatedOnceAFullDiskHasRoom) {
  const Place place;
  int failures = 0;
  for (rlim_t size = 0; failures >= 0; size += 1500) {
    EXPECT_TRUE(survives(0, [&] { make_on_full_disk(place, size); }));
    const bool made = zdb::is_made(place.folder());
    EXPECT_TRUE(survives(0, [&] { make_again(place); }));
    ASSERT_FALSE(HasFailure()) << "with a disk of " << size;
    if (made) {
      break;
    }
    ++failures;
    std::filesystem::remove_all(place.folder());
  }
  EXPECT_GT(failures, 10);
}

TEST(Restart, MayDieAtAnyStepToo) {
  const Place place;
  const Story story{{"prepare"}, true};
  ASSERT_FALSE(survives(never_reached, [&] {
    make_accounts(place);
    const auto server = open_bank(place);
    const Client client(server);
    client.work("b", transfer);
    EXPECT_EQ(client.dtm("prepare", "b"), 2);
    Answered(place).add("prepare");
    kill(getpid(), SIGKILL);
  }));
  const Snapshot before(place);
  const auto recover = [&] { EXPECT_EQ(Client(open_bank(place)).dtm("commit", "b"), 7); };
  uint64_t step = 1;
  while (!survives(step, recover)) {
    EXPECT_TRUE(survives(0, [&] { check_after_crash(place, story); })) << "step " << step;
    ASSERT_FALSE(HasFailure()) << "after a crash at step " << step;
    before.restore();
    ++step;
  }
  EXPECT_GT(step, 10U);
}

/* What a log holds may be in memory only, when the process before ended at a failed sync. */
TEST(Restart, PutsTheLogsOnTheDiskAndKeepsTheOrderOfPreparation) {
  const Place place;
  ASSERT_FALSE(survives(never_reached, [&] {
    make_accounts(place);
    const auto server = open_bank(place);
    const Client client(server);
    client.work("b", transfer);
    client.work("a", "select * from acct");
    EXPECT_EQ(client.dtm("prepare", "b"), 2);
    EXPECT_EQ(client.dtm("prepare", "a"), 2);
    kill(getpid(), SIGKILL);
  }));
  const auto log_size = [&](const char *name) { return std::filesystem::file_size(place.path() / "bank" / name); };
  EXPECT_GT(log_size("data.db-wal"), 0U);
  EXPECT_TRUE(survives(0, [&] {
    const auto server = open_bank(place);
    EXPECT_EQ(log_size("data.db-wal") + log_size("catalog.db-wal"), 0U);
    EXPECT_EQ(Client(server).scan(), "b;a0") << "a status behind the names";
  }));
}

/* What somebody does to a killed server's log, and what the next start says of that. */
struct Harm {
  const char *log;
  std::function<void(const std::string &path, std::uintmax_t size)> act;
  const char *told; /* null: it starts */
};

void flip(const std::string &path, std::uintmax_t at) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekg(static_cast<std::streamoff>(at));
  const int byte = file.get();
  file.seekp(static_cast<std::streamoff>(at));
  file.put(static_cast<char>(byte ^ 1));
}

std::string refusal_of_start(const Place &place) {
  try {
    zdb::open_store(place.folder());
    return "";
  } catch (const std::runtime_error &error) {
    return error.what();
  }
}

TEST(Logs, AreNotMissedWithoutAWord) {
  const Place place;
  ASSERT_FALSE(survives(never_reached, [&] {
    make_accounts(place);
    const auto server = open_bank(place);
    const Client client(server);
    client.work("a", transfer);
    EXPECT_GE(client.dtm("commit1", "a"), 0);
    client.work("b", transfer);
    EXPECT_EQ(client.dtm("prepare", "b"), 2);
    kill(getpid(), SIGKILL);
  }));
  const Snapshot killed(place);
  const auto remove = [](const std::string &path, auto) { std::filesystem::remove(path); };
  const auto empty = [](const std::string &path, auto) { std::filesystem::resize_file(path, 0); };
  const auto shorten = [](const std::string &path, auto size) { std::filesystem::resize_file(path, size - 1); };
  const Harm harms[] = {
      {"catalog.db-wal", remove, "is missing"},
      {"catalog.db-wal", empty, "is cut off"},
      {"catalog.db-wal", shorten, "is cut off"},
      {"catalog.db-wal", [](auto &path, auto) { flip(path, 20); }, "is damaged"},
      {"catalog.db-wal", [](auto &path, auto size) { flip(path, size / 2); }, "is damaged"},
      {"catalog.db-wal", [](auto &path, auto size) { flip(path, size - 1); }, "is damaged"},
      {"catalog.db-wal", [](auto &path, auto size) { std::filesystem::resize_file(path, size + 5000); }, nullptr},
      {"data.db-wal", remove, "is missing"},
      {"data.db-wal", empty, "is cut off"},
      {"data.db-wal", [](auto &path, auto) { flip(path, 40); }, "is damaged"},
  };
  for (const Harm &harm : harms) {
    killed.restore();
    const std::string path = place.folder() + "/" + harm.log;
    harm.act(path, std::filesystem::file_size(path));
    EXPECT_TRUE(survives(0,
                         [&] {
                           const std::string refusal = refusal_of_start(place);
                           EXPECT_EQ(refusal.substr(0, refusal.find_first_of(",:")),
                                     harm.told == nullptr ? "" : path + " " + harm.told);
                         }))
        << harm.log << " " << (harm.told == nullptr ? "untouched" : harm.told);
    if (harm.told != nullptr) {
      // The operator goes on without it.
      std::filesystem::resize_file(zdb::lock_path(place.folder()), 0);
      EXPECT_TRUE(survives(0, [&] { EXPECT_EQ(refusal_of_start(place), ""); }));
    }
  }
}
