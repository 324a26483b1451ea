// The scripted replies of one server: which of them change the request at hand, and how. The owning
// server locks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "interface/zdb_control.h"

namespace zdb {

// What the scripts change in one reply.
struct Changes {
  bool drop_before = false;
  bool drop_after = false;
  bool fail = false;
  bool no_status = false;
  std::optional<int32_t> status;         // instead of the work
  std::optional<int32_t> scan_status;    // instead of the status, after the work
  std::optional<int32_t> second_status;  // besides the status
  std::optional<int32_t> rpcerror;
  std::optional<int32_t> xactstatus;
  std::optional<int32_t> row;
  std::vector<std::string> extra_rows;
  std::vector<int32_t> fetch_codes;
};

class ScriptBook {
 public:
  // False when the script makes no sense.
  bool add(const ZDB_SCRIPT &script);
  void clear() { scripts_.clear(); }
  // Counts the request for every script that it matches and collects what the scripts that are due change.
  Changes take(const std::string &request_name);

 private:
  struct Script {
    std::string procedure;
    int32_t skip;
    int32_t times;
    ZDB_REPLY_KIND kind;
    int32_t value;
    std::string text;
  };

  std::vector<Script> scripts_;
};

}  // namespace zdb
