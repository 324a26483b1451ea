// What a folder that has not come to its end is worth: a making that was killed, and logs and journals
// that a killed server has left, untouched or harmed. What a kill at each step of a branch leaves, histories/faults.cpp
// looks at.
//
// The tests' own process never opens a folder: each life of a server is a child, which inherits no open files.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <string>

#include "bank.h"
#include "disk/folder.h"
#include "disk/sqlite.h"
#include "disk/store_opening.h"

namespace {

constexpr uint64_t never_reached = UINT64_MAX;

// Runs the action in a child that dies at the step, 0 for never; false when it died.
bool survives(uint64_t step, const std::function<void()> &action) {
  int status = 0;
  in_child(
      [&](int) {
        setenv("ZDB_CRASH_AT", std::to_string(step).c_str(), 1);
        action();
      },
      status);
  const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  EXPECT_TRUE((killed && step != 0) || status == 0) << "step " << step << ", status " << status;
  return !killed;
}

// Makes the folder, unless it is made; then it must be of use.
void make_again(const Place &place) {
  if (!zdb::is_made(place.folder())) {
    zdb::create_folder(place.folder());
  }
  zdb::open_store(place.folder())->add_user("sa", "pw", true);
  EXPECT_TRUE(zdb::open_store(place.folder())->has_dtm_role("sa"));
  EXPECT_FALSE(std::filesystem::exists(place.folder() + "/making"));
}

// No file may grow beyond the size; that of the socket to the test's output does not count.
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

}  // namespace

TEST(Making, can_be_repeated_after_a_death_at_any_step) {
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

TEST(Making, can_be_repeated_once_a_full_disk_has_room) {
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

// The folder of a server that was killed with "b", which has changes, and then "a" prepared.
class Killed : public testing::Test {
 protected:
  Killed() {
    EXPECT_FALSE(survives(never_reached, [&] {
      const auto server = open_bank(place_);
      const Client client(server);
      EXPECT_EQ(client.sql("create table t (v); insert into t values (1)"), "#1");
      client.work("b", "update t set v = 2");
      client.work("a", "select * from t");
      EXPECT_EQ(client.dtm("prepare", "b"), 2);
      EXPECT_EQ(client.dtm("prepare", "a"), 2);
      kill(getpid(), SIGKILL);
    }));
    std::filesystem::copy(place_.folder(), place_.path() / "saved", std::filesystem::copy_options::recursive);
  }

  void put_back() const {
    std::filesystem::remove_all(place_.folder());
    std::filesystem::copy(place_.path() / "saved", place_.folder(), std::filesystem::copy_options::recursive);
  }
  std::string path(const char *name) const { return place_.folder() + "/" + name; }
  std::uintmax_t log_sizes() const {
    return std::filesystem::file_size(path("data.db-wal")) + std::filesystem::file_size(path("catalog.db-wal"));
  }
  // Empty when it starts.
  std::string refusal() const {
    try {
      zdb::open_store(place_.folder());
      return "";
    } catch (const std::runtime_error &error) {
      return error.what();
    }
  }

  const Place place_;
};

// What a log holds may be in memory only, when the process before ended at a failed sync.
TEST_F(Killed, has_its_logs_put_on_the_disk_and_keeps_the_order_of_preparation) {
  EXPECT_GT(log_sizes(), 0U);
  EXPECT_TRUE(survives(0, [&] {
    const auto server = open_bank(place_);
    EXPECT_EQ(log_sizes(), 0U);
    EXPECT_EQ(Client(server).scan(), "b;a0") << "a status behind the names";
  }));
}

void flip(const std::string &path, std::uintmax_t at) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekg(static_cast<std::streamoff>(at));
  const int byte = file.get();
  file.seekp(static_cast<std::streamoff>(at));
  file.put(static_cast<char>(byte ^ 1));
}

TEST_F(Killed, does_not_start_without_what_its_logs_held) {
  using Path = const std::string &;
  struct Case {
    const char *log;
    std::function<void(Path path, std::uintmax_t size)> harm;
    std::string told;  // empty: it starts
  };
  const Case cases[] = {
      {"catalog.db-wal", [](Path path, auto) { std::filesystem::remove(path); }, " is missing"},
      {"catalog.db-wal", [](Path path, auto) { std::filesystem::resize_file(path, 0); }, " is cut off"},
      {"catalog.db-wal", [](Path path, auto size) { std::filesystem::resize_file(path, size - 1); }, " is cut off"},
      {"catalog.db-wal", [](Path path, auto) { flip(path, 20); }, " is damaged"},
      {"catalog.db-wal", [](Path path, auto size) { flip(path, size / 2); }, " is damaged"},
      {"catalog.db-wal", [](Path path, auto size) { flip(path, size - 1); }, " is damaged"},
      {"catalog.db-wal", [](Path path, auto size) { std::filesystem::resize_file(path, size + 5000); }, ""},
      {"data.db-wal", [](Path path, auto) { std::filesystem::remove(path); }, " is missing"},
      {"data.db-wal", [](Path path, auto) { std::filesystem::resize_file(path, 5000); }, " is cut off"},
      {"data.db-wal", [](Path path, auto) { flip(path, 60); }, " is damaged"},
      {"data.db-wal", [](Path path, auto size) { flip(path, size - 1); }, ""},  // of "b", which is in the journal
  };
  for (const Case &one : cases) {
    put_back();
    one.harm(path(one.log), std::filesystem::file_size(path(one.log)));
    EXPECT_TRUE(survives(0,
                         [&] {
                           const std::string text = refusal();
                           EXPECT_EQ(text.substr(0, text.find_first_of(",:")),
                                     one.told.empty() ? "" : path(one.log) + one.told);
                         }))
        << one.log << one.told;
    // The operator goes on without it.
    std::filesystem::resize_file(zdb::lock_path(place_.folder()), 0);
    EXPECT_TRUE(survives(0, [&] { EXPECT_EQ(refusal(), ""); })) << one.log << one.told;
  }
}

TEST_F(Killed, lists_a_branch_whose_pages_are_damaged_and_lets_it_go) {
  for (const char *pages :
       {"substr(pages, 1, 3000)", "cast(substr(pages, 1, 3000) || x'55' || substr(pages, 3002) as blob)"}) {
    put_back();
    const std::string harm = std::string("update branch_journal set pages = ") + pages + " where xactname = 'b'";
    EXPECT_TRUE(survives(0, [&] {
      zdb::Database(zdb::catalog_path(place_.folder())).execute(harm.c_str());
      const auto server = open_bank(place_);
      const Client client(server);
      EXPECT_EQ(client.dtm("commit", "b"), Client::no_status);
      EXPECT_EQ(client.scan(), "b;a0");
      EXPECT_EQ(client.dtm("rollback", "b"), 7);
      EXPECT_EQ(client.sql("update t set v = v + 1; select v from t"), "#12#1");
    })) << pages;
  }
  put_back();
  EXPECT_TRUE(survives(0, [&] {
    zdb::Database(zdb::catalog_path(place_.folder()))
        .execute("update branch_journal set pages = x'00', writing = 1 where xactname = 'b'");
    EXPECT_NE(refusal().find("'b' was broken off and cannot be finished (their checksum is wrong)"), std::string::npos);
  })) << "the data may be half written";
}
