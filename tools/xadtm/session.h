// The resource manager, opened through a switch record as a transaction manager opens it.
#pragma once

#include <string>
#include <vector>

#include "arguments.h"
#include "open_string.h"
#include "xa.h"

inline constexpr int32_t tool_rmid = 1;

const xa_switch_t &switch_of(const std::string &flavour);

// The decoded form of a result, "XAER_NOTA (-4)".
std::string code_text(int32_t code);

// The open string of -o; throws UsageError when it is missing or longer than the XA standard allows.
const std::string &open_string_of(const Arguments &arguments);

// The options of the open string, as the flavour takes them.
std::vector<OptionGiven> options_of(const Arguments &arguments);

// Closes the resource manager when it ends.
class Session {
 public:
  // Opens; throws Refused.
  explicit Session(const Arguments &arguments);
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  const xa_switch_t &xa() const { return xa_; }
  const std::string &lrm() const { return lrm_; }
  // All branches in doubt; throws Refused.
  std::vector<XID> in_doubt() const;

 private:
  const xa_switch_t &xa_;
  std::string lrm_;
};

// Reads a whole recovery scan; the code of the call that failed, or 0.
int32_t scan_branches(const xa_switch_t &xa, std::vector<XID> &xids);
