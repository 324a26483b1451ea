/* settle_outcome_test.cpp - what results mean that no server here gives, and those that it gives. */
#include "settle_outcome.h"

#include <gtest/gtest.h>

#include "xa.h"

namespace {

TEST(SettleOutcome, every_result_has_its_status_and_says_what_to_do) {
  struct {
    const char *verb;
    int32_t code;
    int status;
    std::string message;
  } const rows[] = {
      {"commit", XA_OK, 0, ""},
      {"forget", XA_OK, 0, ""},
      {"rollback", XA_RBROLLBACK, 0, ""},
      {"rollback", XA_RBTRANSIENT, 0, ""},
      {"commit", XA_RBROLLBACK, 5, "commit was not done: the server has rolled it back instead"},
      {"commit", XA_RETRY, 1, "commit was not done: it cannot be settled now; try again later"},
      {"commit", XA_HEURMIX, 5, "commit was not done: parts of it have been committed and others rolled back"},
      {"rollback", XA_HEURHAZ, 5, "rollback was not done: parts of it may have been committed and others rolled back"},
      {"rollback", XA_HEURCOM, 5, "rollback was not done: it had been committed before, past"},
      {"commit", XA_HEURRB, 5, "commit was not done: it had been rolled back before, past"},
      {"commit", XAER_PROTO, 1, "commit was not done: its state does not allow that"},
      {"forget", XAER_NOTA, 1, "forget was not done: only branches that were settled past"},
      {"commit", XAER_NOTA, 6, "it is not known whether commit was done: the server does not know the branch any more"},
      {"rollback", XAER_RMFAIL, 6, "it is not known whether rollback was done: the server could not be asked"},
      {"commit", XAER_RMERR, 6, "it is not known whether commit was done: the server could not be asked"},
      {"forget", XAER_INVAL, 6, "it is not known whether forget was done: the server could not be asked"},
      {"commit", 77, 6, "it is not known whether commit was done: the server could not be asked"},
  };
  for (const auto &[verb, code, status, message] : rows) {
    const SettleOutcome outcome = settle_outcome(verb, code);
    EXPECT_EQ(outcome.status, status) << verb << ' ' << code;
    EXPECT_TRUE(outcome.message.starts_with(message) && outcome.message.empty() == message.empty())
        << verb << ' ' << code << ": " << outcome.message;
  }
}

}  // namespace
