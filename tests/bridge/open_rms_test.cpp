// open_rms_test.cpp - many threads at one memory of open resource managers: nobody reads a string that is not whole or
// not the rmid's, and what stays open is never missed.
#include "open_rms.h"

#include <gtest/gtest.h>

#include <barrier>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "scans.h"

namespace {

constexpr int rounds = 20'000;

// A string by which its rmid and its length can be told.
std::string text_of(int32_t rmid, int variant) {
  return std::string(1 + static_cast<size_t>(variant * 37 % 500), static_cast<char>('a' + rmid));
}

bool is_text_of(const OpenString &info, int32_t rmid) {
  const std::string text = info.text;
  return !text.empty() && text == std::string(text.size(), static_cast<char>('a' + rmid));
}

void open(OpenRms &rms, int32_t rmid, const std::string &text) {
  ASSERT_TRUE(rms.remember(rmid, OpenString(text.c_str())));
}

void close(OpenRms &rms, int32_t rmid, bool succeeds = true) {
  rms.end_close(rms.begin_close(rmid), succeeds);
}

Memory recall(const OpenRms &rms, int32_t rmid) {
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

TEST(OpenRms, readers_meet_whole_strings_of_their_rmid_only) {
  static OpenRms rms{};
  const auto churn = [](int32_t rmid) {
    return [rmid] {
      for (int round = 0; round < rounds; ++round) {
        open(rms, rmid, text_of(rmid, round));
        if (round % 3 == 0) {
          close(rms, rmid);
        }
      }
    };
  };
  const auto look = [] {
    OpenString info;
    for (int round = 0; round < rounds; ++round) {
      const int32_t rmid = round % 3;
      if (rms.recall(rmid, info) == Memory::open) {
        ASSERT_TRUE(is_text_of(info, rmid)) << rmid << ": " << info.text;
      }
    }
  };
  run_together({churn(0), churn(1), churn(2), look, look});
}

TEST(OpenRms, what_stays_open_is_always_recalled) {
  static OpenRms rms{};
  open(rms, 1, "-NL1");
  static std::atomic<bool> ends{false};
  const auto move = [] {
    for (int round = 0; round < rounds; ++round) {
      open(rms, 1, text_of(1, round % 2));  // another string each time, and so another slot
      close(rms, 1, false);
    }
    ends = true;
  };
  const auto look = [] {
    while (!ends) {
      ASSERT_NE(recall(rms, 1), Memory::nothing);
    }
  };
  run_together({move, look, look});
}

// A close forgets what was open when it began, not what is opened meanwhile.
TEST(OpenRms, an_open_during_a_close_is_remembered) {
  static OpenRms rms{};
  for (const char *second : {"same", "other"}) {
    for (const bool succeeds : {true, false}) {
      open(rms, 1, "same");
      const OpenRms::Slots closing = rms.begin_close(1);
      EXPECT_EQ(recall(rms, 1), Memory::unusable);
      open(rms, 1, second);
      rms.end_close(closing, succeeds);
      OpenString info;
      ASSERT_EQ(rms.recall(1, info), Memory::open) << second;
      EXPECT_STREQ(info.text, second);
      close(rms, 1);
      EXPECT_EQ(recall(rms, 1), Memory::nothing);
    }
  }
}

TEST(OpenRms, threads_that_open_the_same_share_its_place) {
  static OpenRms rms{};
  for (int32_t rmid = 1; rmid < XADTM_LP64_OPEN_RMS; ++rmid) {
    open(rms, rmid, "x");
  }
  static std::atomic<int> refused{0};
  static std::barrier all(3);
  const auto open_often = [] {
    for (int round = 0; round < rounds; ++round) {
      all.arrive_and_wait();
      refused += rms.remember(0, OpenString("x")) ? 0 : 1;
      all.arrive_and_wait();
      close(rms, 0);
    }
  };
  run_together(std::vector<std::function<void()>>(3, open_often));
  EXPECT_EQ(refused, 0);
}

TEST(OpenRms, places_are_used_again_and_a_lack_of_them_is_not_forgotten) {
  static OpenRms rms{};
  for (int round = 0; round < 3; ++round) {
    for (int32_t rmid = 0; rmid < XADTM_LP64_OPEN_RMS; ++rmid) {
      ASSERT_TRUE(rms.has_place(rmid));
      open(rms, rmid, "-Psecret");
    }
    EXPECT_TRUE(rms.has_place(0));
    open(rms, 0, "-Pother");  // takes the place of the old string
    EXPECT_EQ(recall(rms, 99), round == 0 ? Memory::nothing : Memory::unusable);
    EXPECT_FALSE(rms.has_place(99));
    EXPECT_FALSE(rms.remember(99, OpenString("x")));
    for (int32_t rmid = 0; rmid < XADTM_LP64_OPEN_RMS; ++rmid) {
      close(rms, rmid);
    }
    EXPECT_EQ(memmem(&rms, sizeof rms, "-P", 2), nullptr) << "a password is left";
    EXPECT_EQ(recall(rms, 0), Memory::unusable);
  }
}

TEST(Scans, of_an_rmid_are_alone) {
  static Scans scans{};
  static std::atomic<int> scanning{0};
  static std::atomic<int> scanned{0};
  run_together(std::vector<std::function<void()>>(3, [] {
    for (int round = 0; round < rounds; ++round) {
      const ScanScope scan(scans, 7);
      const ScanScope other(scans, 8);
      if (scan.is_alone()) {
        ASSERT_EQ(scanning.fetch_add(1), 0);
        ++scanned;
        --scanning;
      }
    }
  }));
  EXPECT_GT(scanned, 0);
  uint32_t place = 0;
  EXPECT_TRUE(scans.begin(7, place));  // nothing is left of them
}

}  // namespace
