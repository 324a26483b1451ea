// The example that integrators copy, on a server that dies.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <optional>
#include <set>
#include <tuple>

#include "serving.h"

namespace {

constexpr const char *row_7 = "select id from t where id = 7";
constexpr std::chrono::milliseconds between_looks(5);

// Runs the example while the server that dies at the step is replaced; its output, or none when the server lived.
std::optional<Outcome> run_while_it_dies(const Site &site, int step, const std::string &command, bool is_replaced) {
  ZdbdProcess dying(site, step);
  if (!dying.is_up()) {
    return Outcome{};
  }
  auto run = std::async(std::launch::async, [&] { return site.run(command); });
  std::optional<ZdbdProcess> again;
  bool died = false;
  while (run.wait_for(between_looks) != std::future_status::ready) {
    died = died || dying.has_died();
    if (died && is_replaced && !again) {
      again.emplace(site);
    }
  }
  const Outcome outcome = run.get();
  return died || dying.stop() != 0 ? std::optional(outcome) : std::nullopt;
}

class Example : public testing::TestWithParam<bool> {};

// Whether another server takes the dead one's place while the example repeats its calls.
TEST_P(Example, answers_are_true_wherever_the_server_dies) {
  const bool is_replaced = GetParam();
  const Site site;
  {
    const ZdbdProcess zdbd(site);
    ASSERT_EQ(site.run(PLAIN_SQL " bank1 teller topSecret 'create table t (id integer primary key)'").status, 0);
  }
  std::filesystem::copy(site.at("bank1"), site.at("kept"), std::filesystem::copy_options::recursive);
  const std::string command = std::string(ONE_BRANCH " -w ") + (is_replaced ? "60" : "0") +
                              " '-NL1 -Uteller -PtopSecret' L1 T1 'insert into t values (7)'";
  using Truth = std::tuple<int, bool, bool>;  // exit status, whether the row and whether the branch is there
  std::set<Truth> truths = {{0, true, false}, {1, false, false}, {3, true, false}, {3, false, false}};
  if (!is_replaced) {
    truths.emplace(3, false, true);  // never given up while there is somebody to ask
  }
  std::set<Truth> seen;
  for (int step = 1; step < 400; ++step) {
    std::filesystem::remove_all(site.at("bank1"));
    std::filesystem::copy(site.at("kept"), site.at("bank1"), std::filesystem::copy_options::recursive);
    const std::optional<Outcome> outcome = run_while_it_dies(site, step, command, is_replaced);
    if (!outcome) {
      break;
    }
    if (outcome->status < 0) {
      continue;
    }
    const ZdbdProcess zdbd(site);
    const bool is_there = site.run(std::string(PLAIN_SQL " bank1 teller topSecret '") + row_7 + "'").says("7");
    const Truth truth{outcome->status, is_there, site.branches().find("\tprepared") != std::string::npos};
    SCOPED_TRACE("step " + std::to_string(step));
    EXPECT_EQ(truths.count(truth), 1U) << outcome->output << site.branches();
    seen.insert(truth);
  }
  EXPECT_EQ(seen, truths);
}

INSTANTIATE_TEST_SUITE_P(All, Example, testing::Bool());

}  // namespace
