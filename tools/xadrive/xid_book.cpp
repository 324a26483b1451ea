// The XIDs of a script and their names.
#include "xid_book.h"

#include <algorithm>
#include <cstdint>

#include "hex_text.h"
#include "xa_names.h"
#include "xid_bytes.h"

namespace {

constexpr int32_t automatic_format = 0x5841;

XID make_xid(int32_t format, std::string_view gtrid, std::string_view bqual) {
  if (gtrid.size() > MAXGTRIDSIZE || bqual.size() > MAXBQUALSIZE) {
    throw ScriptError("an XID's gtrid and bqual have at most 64 bytes each; shorten the longer one");
  }
  return xid_of(format, gtrid, bqual);
}

bool is_xid_name(std::string_view name) {
  static constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  static constexpr std::string_view others = "0123456789._-";
  return !name.empty() && letters.find(name.front()) != std::string_view::npos &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return letters.find(c) != std::string_view::npos || others.find(c) != std::string_view::npos;
         });
}

void check_name(const std::string &name) {
  if (is_flag_name(name)) {
    throw ScriptError(name + " is a flag; put the name of an XID before it");
  }
  if (!is_xid_name(name)) {
    throw ScriptError(quoted(name) + " cannot name an XID; use a letter, then letters, digits, '.', '_' or '-'");
  }
}

}  // namespace

void XidBook::define(const std::string &name, int32_t format, std::string_view gtrid, std::string_view bqual) {
  check_name(name);
  if (!xids_.emplace(name, make_xid(format, gtrid, bqual)).second) {
    throw ScriptError("the XID " + name + " exists already; define it once, before its first use");
  }
}

const XID &XidBook::get(const std::string &name) {
  const auto found = xids_.find(name);
  if (found != xids_.end()) {
    return found->second;
  }
  check_name(name);
  const size_t dot = name.find('.');
  const std::string gtrid = name.substr(0, dot);
  const std::string bqual = dot == std::string::npos ? "1" : name.substr(dot + 1);
  return xids_.emplace(name, make_xid(automatic_format, gtrid, bqual)).first->second;
}

std::string XidBook::name_of(const XID &xid) const {
  for (const auto &[name, known] : xids_) {
    if (same_xid(known, xid)) {
      return name;
    }
  }
  return hex_number(static_cast<uint32_t>(xid.formatID)) + ":" + hex_of(gtrid_of(xid)) + ":" + hex_of(bqual_of(xid));
}
