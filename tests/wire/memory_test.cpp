// Requests for which memory runs out, at each allocation in turn: the answer says what was done, or
// the session ends without one.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "bank.h"
#include "dtm/dtm_protocol.h"
#include "sessions/server_session.h"
#include "wire/listener.h"
#include "wire/remote_session.h"

namespace {

thread_local int allocations_left = -1;  // on this thread, until one fails; less than 0: all succeed
std::atomic<std::size_t> size_that_fails{SIZE_MAX};

bool fails(std::size_t size) {
  if (allocations_left >= 0 && allocations_left-- == 0) {
    return true;
  }
  return size >= size_that_fails;
}

}  // namespace

// Not inlined: GCC takes a call of free for one that does not belong to new.
[[gnu::noinline]] void *operator new(std::size_t size) {
  void *memory = fails(size) ? nullptr : std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
[[gnu::noinline]] void operator delete(void *memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace zdb;

class Memory : public testing::Test {
 protected:
  Memory() { other.sql("create table t (id integer primary key)"); }

  static std::string play(const Client &client, const std::string &step) {
    return step.find(' ') != std::string::npos ? client.sql(step) : std::to_string(client.dtm(step, "b"));
  }
  // With the n-th allocation from now on failing; "none" when no answer came.
  static std::string starve(const Client &client, const std::string &step, int n, bool &enough) {
    std::string answer = "none";
    allocations_left = n;
    try {
      answer = play(client, step);
    } catch (const std::bad_alloc &) {
      allocations_left = -1;
    }
    enough = allocations_left >= 0;
    allocations_left = -1;
    return client.alive() ? answer : "none";
  }
  bool has_row() const { return other.sql("select count(*) from t") == "1#1"; }
  // Whoever comes later completes the branch.
  void clean_up() const {
    for (const char *operation : {"commit", "rollback", "rollback"}) {
      if (server->branch_state("b") != DTM_STATE_UNKNOWN) {
        other.dtm(operation, "b");
      }
    }
    EXPECT_EQ(server->branch_count(), 0);
    EXPECT_EQ(other.sql("delete from t").front(), '#') << "nobody has the lock";
  }

  Place place;
  std::shared_ptr<Server> server = open_bank(place);
  Client other{server};
};

class Real final : public Service {
 public:
  explicit Real(std::shared_ptr<Server> server) : server_(std::move(server)) {}
  std::unique_ptr<Session> log_in(const Login &login, Message &refusal) override {
    return log_in_to(server_, login, refusal);
  }

 private:
  std::shared_ptr<Server> server_;
};

}  // namespace

TEST_F(Memory, that_runs_out_makes_no_wrong_answer) {
  const std::string insert = "insert into t values (1) returning id";
  const std::string refused = std::to_string(Client::no_status);
  const struct {
    std::vector<std::string> before;
    std::string step;
    int32_t state;  // of the branch when the step is done
    bool row;       // to be seen outside the branch then
  } cases[] = {
      {{}, insert, DTM_STATE_UNKNOWN, true},
      {{"begin"}, insert, DTM_STATE_ATTACHED, false},
      {{}, "begin", DTM_STATE_ATTACHED, false},
      {{"begin", insert}, "end", DTM_STATE_ENDED, false},
      {{"begin", insert, "end"}, "prepare", DTM_STATE_PREPARED, false},
      {{"begin", insert, "end"}, "commit1", DTM_STATE_UNKNOWN, true},
      {{"begin", insert, "end"}, "rollback", DTM_STATE_UNKNOWN, false},
      {{"begin", insert, "end", "prepare"}, "commit", DTM_STATE_UNKNOWN, true},
  };
  for (const auto &one : cases) {
    bool enough = false;
    for (int n = 0; !enough && !HasFailure(); ++n) {
      SCOPED_TRACE(one.step + " with a failure of allocation " + std::to_string(n));
      auto client = std::make_unique<Client>(server);
      for (const std::string &step : one.before) {
        play(*client, step);
      }
      const int32_t state_before = server->branch_state("b");
      const std::string answer = starve(*client, one.step, n, enough);
      const bool done = answer != "none" && answer.find('!') == std::string::npos && answer != refused;
      EXPECT_TRUE(done || !enough) << answer;
      if (answer != "none") {
        EXPECT_EQ(server->branch_state("b"), done ? one.state : state_before);
        EXPECT_EQ(has_row(), done && one.row);
      }
      if (answer != "none" && one.step == insert && state_before == DTM_STATE_ATTACHED) {
        client->dtm("end", "b");
        EXPECT_EQ(client->dtm("commit1", "b"), DTM_STATE_ENDED);
        EXPECT_EQ(has_row(), done) << "what failed must not be in the branch";
      }
      client.reset();
      clean_up();
    }
  }
}

TEST_F(Memory, missing_for_a_request_is_its_answer) {
  Real service(server);
  const std::string path = place.path() / "socket";
  const Listener listener(path, 0600, service, [](const std::string &) {});
  Message refusal;
  const auto session = connect_session(path, {"sa", "pw", "", false}, refusal);
  ASSERT_NE(session, nullptr) << refusal.text;
  std::string many_selects = "select 1";
  for (int i = 0; i < 17; ++i) {
    many_selects += ";" + many_selects;
  }
  const Request large[] = {{RequestKind::language, "", std::vector<Parameter>(200'000)},
                           {RequestKind::language, many_selects, {}}};
  for (const Request &request : large) {
    size_that_fails = 5'000'000;
    const Reply reply = session->execute(request);
    size_that_fails = SIZE_MAX;
    ASSERT_FALSE(reply.messages.empty()) << (request.text.empty() ? "parameters" : "results");
    EXPECT_EQ(reply.messages[0].number, message_no_memory);
  }
  EXPECT_TRUE(session->execute({RequestKind::language, "select 1", {}}).messages.empty());
}
