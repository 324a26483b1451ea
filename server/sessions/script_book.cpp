// Matches requests against the scripted replies; see the header and zdb_control.h.
#include "sessions/script_book.h"

#include <set>

namespace zdb {
namespace {

// Scripts of these kinds add up in one reply; of the others one at a time is due and the next one waits.
bool adds_up(ZDB_REPLY_KIND kind) {
  return kind == ZDB_REPLY_SCAN_EXTRA_ROW || kind == ZDB_REPLY_FETCH_CODE;
}

bool is_for_scans(ZDB_REPLY_KIND kind) {
  return kind == ZDB_REPLY_SCAN_STATUS || kind == ZDB_REPLY_SCAN_NO_STATUS;
}

void note(Changes &changes, ZDB_REPLY_KIND kind, int32_t value, const std::string &text) {
  switch (kind) {
    case ZDB_REPLY_STATUS:
      changes.status = value;
      return;
    case ZDB_REPLY_RPCERROR:
      changes.rpcerror = value;
      return;
    case ZDB_REPLY_XACTSTATUS:
      changes.xactstatus = value;
      return;
    case ZDB_REPLY_TWO_STATUSES:
      changes.second_status = value;
      return;
    case ZDB_REPLY_ROW:
      changes.row = value;
      return;
    case ZDB_REPLY_CMD_FAIL:
      changes.fail = true;
      return;
    case ZDB_REPLY_NO_STATUS:
    case ZDB_REPLY_SCAN_NO_STATUS:
      changes.no_status = true;
      return;
    case ZDB_REPLY_DROP_BEFORE:
      changes.drop_before = true;
      return;
    case ZDB_REPLY_DROP_AFTER:
      changes.drop_after = true;
      return;
    case ZDB_REPLY_SCAN_STATUS:
      changes.scan_status = value;
      return;
    case ZDB_REPLY_SCAN_EXTRA_ROW:
      changes.extra_rows.push_back(text);
      return;
    case ZDB_REPLY_FETCH_CODE:
      changes.fetch_codes.push_back(value);
      return;
  }
}

}  // namespace

bool ScriptBook::add(const ZDB_SCRIPT &script) {
  if (script.procedure == nullptr || script.skip < 0 || script.times < -1 || script.kind < ZDB_REPLY_STATUS ||
      script.kind > ZDB_REPLY_FETCH_CODE) {
    return false;
  }
  if (script.kind == ZDB_REPLY_SCAN_EXTRA_ROW && script.text == nullptr) {
    return false;
  }
  scripts_.push_back({script.procedure, script.skip, script.times, script.kind, script.value,
                      script.text == nullptr ? "" : script.text});
  return true;
}

Changes ScriptBook::take(const std::string &request_name) {
  Changes changes;
  std::set<ZDB_REPLY_KIND> taken;
  for (Script &script : scripts_) {
    if (script.procedure != "*" && script.procedure != request_name) {
      continue;
    }
    if (is_for_scans(script.kind) && request_name != "sp_transactions") {
      continue;
    }
    if (script.skip > 0) {
      --script.skip;
      continue;
    }
    if (script.times == 0 || (!adds_up(script.kind) && !taken.insert(script.kind).second)) {
      continue;
    }
    if (script.times > 0) {
      --script.times;
    }
    note(changes, script.kind, script.value, script.text);
  }
  return changes;
}

}  // namespace zdb
