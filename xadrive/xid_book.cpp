/*
 * xid_book.cpp - the XIDs of a script, their names, and the names that servers give to their branches.
 */
#include "xid_book.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "xa_names.h"

static constexpr int32_t automatic_format = 0x5841;

static XID make_xid(int32_t format, std::string_view gtrid, std::string_view bqual) {
  if (gtrid.size() > MAXGTRIDSIZE || bqual.size() > MAXBQUALSIZE) {
    throw ScriptError("an XID's gtrid and bqual have at most 64 bytes each; shorten the longer one");
  }
  XID xid{};
  xid.formatID = format;
  xid.gtrid_length = static_cast<int32_t>(gtrid.size());
  xid.bqual_length = static_cast<int32_t>(bqual.size());
  std::copy(gtrid.begin(), gtrid.end(), xid.data);
  std::copy(bqual.begin(), bqual.end(), xid.data + gtrid.size());
  return xid;
}

static std::string_view part_of(const XID &xid, int32_t offset, int32_t length) {
  const auto start = static_cast<size_t>(std::clamp<int32_t>(offset, 0, XIDDATASIZE));
  const auto count = static_cast<size_t>(std::clamp<int32_t>(length, 0, MAXGTRIDSIZE));
  return std::string_view(xid.data, XIDDATASIZE).substr(start, count);
}

static std::string_view gtrid_of(const XID &xid) {
  return part_of(xid, 0, xid.gtrid_length);
}

static std::string_view bqual_of(const XID &xid) {
  return part_of(xid, xid.gtrid_length, xid.bqual_length);
}

static bool same(const XID &left, const XID &right) {
  return left.formatID == right.formatID && left.gtrid_length == right.gtrid_length &&
         left.bqual_length == right.bqual_length && gtrid_of(left) == gtrid_of(right) &&
         bqual_of(left) == bqual_of(right);
}

static std::string hex_of_bytes(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string out;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += {digits[byte >> 4], digits[byte & 15]};
  }
  return out;
}

static std::string format_text(int32_t format) {
  char digits[8];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), static_cast<uint32_t>(format), 16).ptr;
  return {std::begin(digits), end};
}

static bool is_xid_name(std::string_view name) {
  static constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  static constexpr std::string_view others = "0123456789._-";
  return !name.empty() && letters.find(name.front()) != std::string_view::npos &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return letters.find(c) != std::string_view::npos || others.find(c) != std::string_view::npos;
         });
}

static void check_name(const std::string &name) {
  if (is_flag_name(name)) {
    throw ScriptError(name + " is a flag; put the name of an XID before it");
  }
  if (!is_xid_name(name)) {
    throw ScriptError(quoted(name) + " cannot name an XID; use a letter, then letters, digits, '.', '_' or '-'");
  }
}

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
    if (same(known, xid)) {
      return name;
    }
  }
  return format_text(xid.formatID) + ":" + hex_of_bytes(gtrid_of(xid)) + ":" + hex_of_bytes(bqual_of(xid));
}

std::string bytes_of_hex(std::string_view digits) {
  std::string bytes;
  for (size_t at = 0; at < digits.size(); at += 2) {
    const std::string_view pair = digits.substr(at, 2);
    unsigned value = 0;
    const auto end = std::from_chars(pair.data(), pair.data() + pair.size(), value, 16).ptr;
    if (pair.size() != 2 || end != pair.data() + 2) {
      throw ScriptError(quoted(digits) + " is no row of hexadecimal digit pairs; put plain text in quotes");
    }
    bytes.push_back(static_cast<char>(value));
  }
  return bytes;
}

/* Six bits a character, the last group filled up with zero bits and not padded. */
static std::string wire_text(std::string_view bytes) {
  static constexpr char alphabet[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ@#";
  std::string text;
  uint32_t pending = 0;
  int bits = 0;
  for (const char c : bytes) {
    pending = (pending << 8) | static_cast<unsigned char>(c);
    for (bits += 8; bits >= 6; bits -= 6) {
      text += alphabet[(pending >> (bits - 6)) & 63];
    }
  }
  if (bits > 0) {
    text += alphabet[(pending << (6 - bits)) & 63];
  }
  return text;
}

std::string branch_name(const XID &xid, std::string_view lrm) {
  return format_text(xid.formatID) + "_" + wire_text(gtrid_of(xid)) + "_" + wire_text(bqual_of(xid)) +
         "_:" + std::string(lrm);
}
