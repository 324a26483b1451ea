// The XIDs of a script and their names.
//
// A name that no "xid" line defines stands for an XID of its own: format 0x5841, the name up to its first dot as the
// global transaction identifier, what follows the dot (or "1") as the branch qualifier. So T1.a and T1.b are two
// branches of one global transaction.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "tokens.h"
#include "xa.h"

class XidBook {
 public:
  // Throws ScriptError when the name has an XID already or a part is too long.
  void define(const std::string &name, int32_t format, std::string_view gtrid, std::string_view bqual);
  // The named XID, defined on the spot when need be; throws ScriptError for a name that no XID can have.
  const XID &get(const std::string &name);
  // The name, or format:gtrid:bqual in hexadecimal for an XID without one.
  std::string name_of(const XID &xid) const;

 private:
  std::map<std::string, XID> xids_;
};
