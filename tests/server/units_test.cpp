// The parts below the server, each by itself.
#include <crypt.h>
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bank.h"
#include "disk/disk_store.h"
#include "disk/folder.h"
#include "disk/passwords.h"
#include "disk/sql_text.h"
#include "disk/store_opening.h"
#include "disk/watched_files.h"
#include "disk/write_lock.h"

using namespace std::chrono_literals;

TEST(SqlText, rewrites_the_catalogs_names_and_nothing_else) {
  struct Case {
    std::string sql;
    std::string rewritten;  // empty: names nothing in the catalog and stays as it is
  };
  const Case cases[] = {
      {"select value from master.dbo.sysconfigures \t where name = \"enable DTM\"",
       "select value from master.sysconfigures \t where name = \"enable DTM\""},
      {"select state from MASTER..SysTransactions", "select state from master.SysTransactions"},
      {"select 1 from Master.DBO.t, master.u", "select 1 from master.t, master.u"},
      {"select 'it''s', '/*' from/**/master..t -- */", "select 'it''s', '/*' from/**/master.t -- */"},
      {"select 'it''s master..t'", ""},
      {"select \"a\"\"b master..t\"", ""},
      {"select [master..t], `master..t`", ""},
      {"select 'master..t", ""},
      {"-- master..t\nselect 1", ""},
      {"select 1 /* master..t", ""},
      {"select webmaster.t, masters.t, x.master.t, _master.t, \xc3\xa9master.t, master, master_t.x", ""},
      {"master", ""},
      {"", ""},
  };
  for (const Case &one : cases) {
    const zdb::CatalogText text = zdb::catalog_text(one.sql);
    EXPECT_EQ(text.sql, one.rewritten.empty() ? one.sql : one.rewritten);
    EXPECT_EQ(text.names_catalog, !one.rewritten.empty()) << one.sql;
  }
}

TEST(WriteLock, serves_in_order_and_passes_over_whoever_leaves) {
  zdb::WriteLock lock;
  std::atomic<bool> leaves{false};
  const std::atomic<bool> stays{false};
  std::string order;
  std::vector<std::jthread> threads;
  ASSERT_EQ(lock.take(0ms, stays), zdb::WriteLock::Answer::taken);
  for (const char number : {'1', '2', '3', '4'}) {
    threads.emplace_back([&, number] {
      const auto limit = number == '1' ? 150ms : 10'000ms;
      const auto answer = lock.take(limit, number == '2' ? leaves : stays);
      if (answer == zdb::WriteLock::Answer::taken) {
        order += number;  // it holds the lock
        lock.release();
      }
    });
    std::this_thread::sleep_for(30ms);
  }
  threads[0].join();
  leaves = true;
  lock.wake();
  threads[1].join();
  lock.release();
  threads.clear();
  EXPECT_EQ(order, "34");
}

TEST(Passwords, admit_their_owner_only) {
  const std::string hash = zdb::hash_password("secret");
  EXPECT_EQ(hash.find("secret"), std::string::npos);
  EXPECT_NE(hash, zdb::hash_password("secret"));
  EXPECT_TRUE(zdb::is_password("secret", hash));
  for (const std::string &wrong : {std::string("Secret"), std::string("secre"), std::string("secret "), std::string(),
                                   std::string("secret\0x", 8), hash, std::string(1000, 'x')}) {
    EXPECT_FALSE(zdb::is_password(wrong, hash)) << wrong;
  }
  EXPECT_FALSE(zdb::is_password("", zdb::nobodys_hash()));
  EXPECT_EQ(std::string(crypt("x", zdb::nobodys_hash().c_str())).size(), hash.size()) << "takes no time at all";
  EXPECT_FALSE(zdb::is_password("secret", "secret"));
  EXPECT_THROW(zdb::hash_password(std::string(1000, 'x')), std::runtime_error);
  EXPECT_THROW(zdb::hash_password(std::string("a\0b", 3)), std::runtime_error);
}

TEST(Work, costs_the_syncs_that_it_promises) {
  const Place place;
  zdb::create_folder(place.folder());
  zdb::DiskStore store(place.folder());
  zdb::SqlCounts counts;
  const auto cost = [&](const std::string &sql, auto... steps) {
    const auto work = store.make_work("b");
    if (!sql.empty()) {
      EXPECT_FALSE(work->run(sql, counts).failed);
    }
    const uint64_t before = zdb::syncs_made();
    ((*work.*steps)(), ...);
    return zdb::syncs_made() - before;
  };
  using zdb::Work;
  EXPECT_FALSE(store.run("create table t (id integer primary key)", false, counts, false).failed);
  cost("insert into t values (1)", &Work::prepare, &Work::commit);  // the first writes begin their files
  EXPECT_EQ(cost("insert into t values (2)", &Work::prepare, &Work::commit), 2U);
  EXPECT_EQ(cost("insert into t values (3)", &Work::prepare, &Work::roll_back), 2U);
  EXPECT_EQ(cost("select * from t", &Work::prepare, &Work::commit), 2U);
  EXPECT_EQ(cost("insert into t values (4)", &Work::commit), 1U);
  EXPECT_EQ(cost("select * from t", &Work::commit), 0U);
  EXPECT_EQ(cost("insert into t values (5)", &Work::roll_back), 0U);
}

// What the action throws says all of these, in their order.
void expect_refusal(const std::function<void()> &action, std::initializer_list<std::string> parts) {
  try {
    action();
    ADD_FAILURE() << "no refusal: " << *parts.begin();
  } catch (const std::runtime_error &error) {
    std::size_t at = 0;
    for (const std::string &part : parts) {
      at = std::string(error.what()).find(part, at);
      EXPECT_NE(at, std::string::npos) << error.what() << " lacks " << part;
    }
  }
}

TEST(Folder, is_not_made_over_what_is_not_its_own) {
  struct Case {
    std::vector<std::string> files;
    const char *names;
  };
  const Case cases[] = {{{"letter"}, "letter"},
                        {{"making", "data.db", "letter"}, "letter"},
                        {{"data.db"}, "data.db"},
                        {{"catalog.db-wal"}, "catalog"}};
  for (const Case &one_case : cases) {
    const Place place;
    std::filesystem::create_directory(place.folder());
    for (const std::string &name : one_case.files) {
      std::ofstream(place.folder() + "/" + name) << "mine";
    }
    expect_refusal([&] { zdb::create_folder(place.folder()); }, {place.folder(), one_case.names});
    for (const std::string &name : one_case.files) {
      EXPECT_EQ(std::filesystem::file_size(place.folder() + "/" + name), 4U) << name;
    }
  }
}

TEST(Folder, names_the_file_that_keeps_it_from_opening) {
  const Place place;
  const auto file = [&](const std::string &name) { return place.folder() + "/" + name; };
  const std::string bytes(20'000, 'x');
  struct Case {
    const char *name;
    std::function<void(const std::string &)> harm;
    const char *advice;
  };
  const Case cases[] = {
      {"catalog.db", [](const std::string &path) { std::filesystem::remove(path); }, "Put back the folder's backup"},
      {"catalog.db", [&](const std::string &path) { std::ofstream(path) << bytes; }, "Put back the folder's backup"},
      {"data.db", [](const std::string &path) { std::ofstream(path).flush(); }, "Put back the folder's backup"},
      {"data.db", [](const std::string &path) { std::filesystem::resize_file(path, 100); }, "Put back"},
      {"lock", [](const std::string &path) { std::filesystem::remove(path); }, "make an empty file of this name"},
  };
  for (const Case &one_case : cases) {
    std::filesystem::remove_all(place.folder());
    zdb::create_folder(place.folder());
    one_case.harm(file(one_case.name));
    const bool left = std::filesystem::exists(file(one_case.name));
    expect_refusal([&] { zdb::open_store(place.folder()); }, {file(one_case.name), one_case.advice});
    EXPECT_EQ(std::filesystem::exists(file(one_case.name)), left) << "an empty one in its place would hide the loss";
  }
  std::filesystem::remove_all(place.folder());
  std::filesystem::create_directory(place.folder());
  expect_refusal([&] { zdb::open_store(place.folder()); }, {"Make one with zdbd --init"});
  std::ofstream(file("making")).close();
  expect_refusal([&] { zdb::open_store(place.folder()); }, {"its --init was broken off. Repeat zdbd --init"});
}

TEST(Folder, is_its_owners_and_used_by_one) {
  const Place place;
  zdb::create_folder(place.folder());
  EXPECT_EQ(std::filesystem::status(place.folder()).permissions(), std::filesystem::perms::owner_all);
  expect_refusal([&] { zdb::create_folder(place.folder()); }, {"is a server's folder already"});
  const zdb::DiskStore store(place.folder());
  expect_refusal([&] { const zdb::DiskStore second(place.folder()); }, {"in use by another process"});
}
