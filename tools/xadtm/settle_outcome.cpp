// First the results that mean different things to different verbs, then the others, as a table.
#include "settle_outcome.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "commands.h"
#include "xa.h"

namespace {

struct Row {
  int32_t code;
  int status;
  const char *advice;
};

// clang-format off
constexpr Row rows[] = {
  {XA_RETRY, exit_refused,
   "it cannot be settled now; try again later"},
  {XAER_PROTO, exit_refused,
   "its state does not allow that: only prepared branches can be committed, and only those that were settled past their "
   "transaction manager forgotten"},
  {XA_HEURCOM, exit_otherwise,
   "it had been committed before, past its transaction manager; xadtm forget removes it from the list"},
  {XA_HEURRB, exit_otherwise,
   "it had been rolled back before, past its transaction manager; xadtm forget removes it from the list"},
  {XA_HEURMIX, exit_otherwise,
   "parts of it have been committed and others rolled back; look at the data, then xadtm forget removes it from the list"},
  {XA_HEURHAZ, exit_otherwise,
   "parts of it may have been committed and others rolled back; look at the data, then xadtm forget removes it from the "
   "list"},
  {XAER_NOTA, exit_unknown,
   "the server does not know the branch any more, so either it was done and the connection was lost before the reply "
   "came, or somebody else has settled it meanwhile; look at the data"},
};
// clang-format on

constexpr const char *lost =
    "the server could not be asked, or did not answer; xadtm check tells whether it can be reached, and xadtm branches "
    "whether the branch is still there: if it is, nothing was done, and the command can be repeated";

bool is_rollback(int32_t code) {
  return code >= XA_RBBASE && code <= XA_RBEND;
}

Row row_of(const std::string &verb, int32_t code) {
  if (code == XA_OK || (verb == "rollback" && is_rollback(code))) {
    return {code, exit_done, ""};
  }
  if (is_rollback(code)) {
    return {code, exit_otherwise,
            "the server has rolled it back instead; the transaction is to be undone elsewhere too"};
  }
  if (verb == "forget" && code == XAER_NOTA) {
    return {code, exit_refused,
            "only branches that were settled past their transaction manager can be forgotten; xadtm commit or rollback "
            "settles one that is prepared, and one that xadtm branches lists no more is forgotten already"};
  }
  const auto *found = std::find_if(std::begin(rows), std::end(rows), [=](const Row &row) { return row.code == code; });
  return found == std::end(rows) ? Row{code, exit_unknown, lost} : *found;
}

}  // namespace

SettleOutcome settle_outcome(const std::string &verb, int32_t code) {
  const Row row = row_of(verb, code);
  if (row.status == exit_done) {
    return {};
  }
  std::string message = row.status == exit_unknown ? "it is not known whether " : "";
  message.append(verb).append(row.status == exit_unknown ? " was done: " : " was not done: ").append(row.advice);
  return {row.status, std::move(message)};
}
