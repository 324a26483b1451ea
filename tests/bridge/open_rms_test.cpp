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

// A string that tells its rmid throughout and its length at both ends.
std::string text_of(int32_t rmid, int variant) {
  const int length = variant * 37 % 480;
  const std::string mark = std::to_string(length);
  return mark + std::string(static_cast<size_t>(length), static_cast<char>('a' + rmid)) + mark;
}

bool is_text_of(const OpenString &info, int32_t rmid) {
  const std::string text = info.text;
  const size_t length = std::strtoul(text.c_str(), nullptr, 10);
  const std::string mark = std::to_string(length);
  return text == mark + std::string(length, static_cast<char>('a' + rmid)) + mark;
}

void open(OpenRms &rms, int32_t rmid, const std::string &text) {
  rms.remember(rmid, OpenString(text.c_str()));
}

void close(OpenRms &rms, int32_t rmid, bool succeeds = true) {
  rms.end_close(rmid, rms.begin_close(rmid), succeeds);
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
  for (int32_t rmid = 2; rmid < XADTM_LP64_OPEN_RMS - 1; ++rmid) {
    open(rms, rmid, "x");  // so that the slots in use are far apart
  }
  close(rms, 2);
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
      EXPECT_EQ(recall(rms, 1), Memory::closing);
      open(rms, 1, second);
      rms.end_close(1, closing, succeeds);
      OpenString info;
      ASSERT_EQ(rms.recall(1, info), Memory::open) << second;
      EXPECT_STREQ(info.text, second);
      close(rms, 1);
      EXPECT_EQ(recall(rms, 1), Memory::nothing);
    }
  }
}

TEST(OpenRms, one_of_two_closes_is_enough) {
  static OpenRms rms{};
  open(rms, 1, "x");
  const OpenRms::Slots first = rms.begin_close(1);
  close(rms, 1);
  rms.end_close(1, first, false);
  EXPECT_EQ(recall(rms, 1), Memory::nothing);
}

// What could not be opened is unusable until it is opened or closed, and takes nothing from what is open.
TEST(OpenRms, failures_are_noted_beside_what_is_open) {
  static OpenRms rms{};
  rms.note_failure(1);
  rms.note_failure(1);
  EXPECT_EQ(recall(rms, 1), Memory::unusable);
  open(rms, 1, "good");
  rms.note_failure(1);
  EXPECT_EQ(recall(rms, 1), Memory::open);
  close(rms, 1);
  EXPECT_EQ(recall(rms, 1), Memory::unusable);
  rms.forget_failure(1);
  EXPECT_EQ(recall(rms, 1), Memory::nothing);
}

TEST(OpenRms, the_latest_string_replaces_the_others) {
  static OpenRms rms{};
  open(rms, 1, "x");
  open(rms, 2, "-Pfirst");
  close(rms, 1);
  open(rms, 2, "-Plater");
  OpenString info;
  ASSERT_EQ(rms.recall(2, info), Memory::open);
  EXPECT_STREQ(info.text, "-Plater");
  EXPECT_EQ(memmem(&rms, sizeof rms, "-Pfirst", 7), nullptr);
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
      open(rms, 0, "x");
      all.arrive_and_wait();
      refused += recall(rms, 99) == Memory::nothing ? 0 : 1;
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
    open(rms, 99, "x");
    EXPECT_EQ(recall(rms, 99), Memory::unusable);
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
