// Many threads at one memory of open resource managers: nobody reads a string that is not the rmid's, and what stays
// open is never missed. What is remembered of each call, entries_test.cpp shows.
#include "open_rms.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int rounds = 20'000;

// One whose identity ends with the test.
struct OneTestsRms : OpenRms {
  ~OneTestsRms() { clear(); }
};

std::string text_of(int32_t rmid, int variant) {
  return std::string(static_cast<size_t>(1 + variant * 37 % 700), static_cast<char>('a' + rmid));
}

void open(OpenRms &rms, int32_t rmid, const std::string &text) {
  OpenString info(text.c_str());
  ASSERT_TRUE(rms.reserve(rmid));
  rms.remember(rmid, info);
}

void close(OpenRms &rms, int32_t rmid, bool succeeds = true) {
  rms.end_close(rmid, rms.begin_close(rmid), succeeds);
}

Memory recall(OpenRms &rms, int32_t rmid) {
  OpenString info;
  return rms.recall(rmid, info);
}

void run_together(const std::vector<std::function<void()>> &works) {
  std::vector<std::thread> threads;
  threads.reserve(works.size());
  for (const auto &work : works) {
    threads.emplace_back(work);
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
}

TEST(OpenRms, readers_meet_whole_strings_of_their_rmid_and_miss_none_that_stays_open) {
  static OpenRms rms;
  open(rms, 9, "stays");
  const auto churn = [](int32_t rmid) {
    return [rmid] {
      for (int round = 0; round < rounds; ++round) {
        open(rms, rmid, text_of(rmid, round));
        close(rms, rmid, round % 3 == 0);
        open(rms, 9, round % 2 == 0 ? "stays" : "moves");
        close(rms, 9, false);
      }
    };
  };
  const auto look = [] {
    OpenString info;
    for (int round = 0; round < rounds; ++round) {
      const int32_t rmid = round % 3;
      if (rms.recall(rmid, info) == Memory::open) {
        ASSERT_EQ(std::string(info.text()).find_first_not_of(static_cast<char>('a' + rmid)), std::string::npos);
      }
      ASSERT_NE(recall(rms, 9), Memory::nothing);
    }
  };
  run_together({churn(0), churn(1), churn(2), look, look});
}

TEST(OpenRms, closes_wait_for_an_opening_again) {
  static OpenRms rms;
  OpenString info;
  open(rms, 1, "x");
  ASSERT_EQ(rms.begin_reopen(1, info), Memory::open);
  std::atomic<bool> closed{false};
  std::thread closer([&] {
    close(rms, 1);
    closed = true;
  });
  while (recall(rms, 1) != Memory::closing) {
    std::this_thread::yield();
  }
  EXPECT_EQ(rms.begin_reopen(1, info), Memory::closing);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(closed);
  rms.end_reopen(1);
  closer.join();
  EXPECT_EQ(recall(rms, 1), Memory::nothing);
}

TEST(OpenRms, no_memory_makes_everything_that_is_not_known_unusable) {
  OneTestsRms rms;
  EXPECT_EQ(recall(rms, 99), Memory::nothing);
  note_lack_of_memory();
  EXPECT_EQ(recall(rms, 99), Memory::unusable);
}

}  // namespace
