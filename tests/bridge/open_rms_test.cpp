// open_rms_test.cpp - many threads at one memory of open resource managers: nobody reads a string that is not whole or
// not the rmid's, and what stays open is never missed.
#include "open_rms.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int rounds = 20'000;

OpenString string_of(const std::string &text) {
  OpenString info;
  info.set(text.c_str());
  return info;
}

// A string by which its rmid and its length can be told.
std::string text_of(int32_t rmid, int variant) {
  return std::string(1 + static_cast<size_t>(variant * 37 % 500), static_cast<char>('a' + rmid));
}

bool is_text_of(const OpenString &info, int32_t rmid) {
  const std::string text = info.text;
  return !text.empty() && text == std::string(text.size(), static_cast<char>('a' + rmid));
}

void open(OpenRms &rms, int32_t rmid, const std::string &text) {
  const OpenString info = string_of(text);
  if (rms.renew(rmid, info)) {
    return;
  }
  const OpenRms::Reservation slot = rms.reserve(rmid, info);
  ASSERT_NE(slot, OpenRms::none);
  rms.publish(slot);
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
          rms.forget(rmid, rms.now());
        }
      }
    };
  };
  const auto look = [] {
    OpenString info;
    for (int round = 0; round < rounds; ++round) {
      const int32_t rmid = round % 3;
      if (rms.recall(rmid, info)) {
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
    }
    ends = true;
  };
  const auto look = [] {
    OpenString info;
    while (!ends) {
      ASSERT_TRUE(rms.recall(1, info));
    }
  };
  run_together({move, look, look});
}

// A close forgets what was open when it began, not what is opened meanwhile.
TEST(OpenRms, an_open_during_a_close_is_remembered) {
  static OpenRms rms{};
  OpenString info;
  for (const char *second : {"same", "other"}) {
    open(rms, 1, "same");
    const OpenRms::Ticket closing = rms.now();
    open(rms, 1, second);
    rms.forget(1, closing);
    ASSERT_TRUE(rms.recall(1, info)) << second;
    EXPECT_STREQ(info.text, second);
    rms.forget(1, rms.now());
    EXPECT_FALSE(rms.recall(1, info));
  }
}

TEST(OpenRms, places_are_used_again_and_cancelled_ones_are_not_seen) {
  static OpenRms rms{};
  OpenString info;
  for (int round = 0; round < 3; ++round) {
    std::vector<OpenRms::Reservation> slots;
    for (int32_t rmid = 0; rmid < XADTM_LP64_OPEN_RMS; ++rmid) {
      slots.push_back(rms.reserve(rmid, string_of("x")));
      ASSERT_NE(slots.back(), OpenRms::none);
      EXPECT_FALSE(rms.recall(rmid, info));
    }
    EXPECT_EQ(rms.reserve(99, string_of("x")), OpenRms::none);
    for (const OpenRms::Reservation slot : slots) {
      rms.cancel(slot);
    }
    EXPECT_FALSE(rms.recall(0, info));
  }
}

}  // namespace
