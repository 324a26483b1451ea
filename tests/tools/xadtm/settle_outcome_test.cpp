// What results mean that no server here gives.
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
      {"rollback", XA_RBROLLBACK, 0, ""},
      {"commit", XA_RBROLLBACK, 5, "commit was not done: the server has rolled it back instead"},
      {"commit", XA_RETRY, 1, "commit was not done: it cannot be settled now; try again later"},
      {"commit", XA_HEURMIX, 5, "commit was not done: parts of it have been committed and others rolled back"},
      {"rollback", XA_HEURHAZ, 5, "rollback was not done: parts of it may have been committed and others rolled back"},
      {"commit", XAER_NOTA, 6, "it is not known whether commit was done: the server does not know the branch any more"},
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
