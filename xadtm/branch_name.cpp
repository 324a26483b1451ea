/*
 * branch_name.cpp - branch names from XIDs and back.
 *
 * Servers compare names character by character, so only the one spelling that the library itself writes is accepted.
 */
#include "branch_name.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "commands.h"

static constexpr std::string_view alphabet = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ@#";
static constexpr size_t longest_lrm = 31;

static constexpr const char *form_of_names =
    "; a branch name is formatID_gtrid_bqual_:LRM, as the commands branches and names encode print it";

XID make_xid(int32_t format, std::string_view gtrid, std::string_view bqual) {
  if (format == -1) {
    throw UsageError("formatID -1 (ffffffff) marks a null XID, which names no branch; give another one");
  }
  if (gtrid.empty() || gtrid.size() > MAXGTRIDSIZE) {
    throw UsageError("a gtrid has 1 to 64 bytes, not " + std::to_string(gtrid.size()) + "; give others");
  }
  if (bqual.size() > MAXBQUALSIZE) {
    throw UsageError("a bqual has 0 to 64 bytes, not " + std::to_string(bqual.size()) + "; give fewer");
  }
  XID xid{};
  xid.formatID = format;
  xid.gtrid_length = static_cast<int32_t>(gtrid.size());
  xid.bqual_length = static_cast<int32_t>(bqual.size());
  std::copy(gtrid.begin(), gtrid.end(), xid.data);
  std::copy(bqual.begin(), bqual.end(), xid.data + gtrid.size());
  return xid;
}

static size_t length_within(int32_t length, size_t most) {
  return std::min(static_cast<size_t>(std::max(length, 0)), most);
}

std::string_view gtrid_of(const XID &xid) {
  return {xid.data, length_within(xid.gtrid_length, MAXGTRIDSIZE)};
}

std::string_view bqual_of(const XID &xid) {
  return {xid.data + gtrid_of(xid).size(), length_within(xid.bqual_length, MAXBQUALSIZE)};
}

bool same_xid(const XID &left, const XID &right) {
  return left.formatID == right.formatID && gtrid_of(left) == gtrid_of(right) && bqual_of(left) == bqual_of(right);
}

void check_lrm(std::string_view lrm) {
  if (lrm.empty() || lrm.size() > longest_lrm || lrm.find_first_of(" \t\n\v\f\r") != std::string_view::npos) {
    throw UsageError(
        "an LRM name has 1 to 31 characters, none of them white space; give the one of -N in the open string");
  }
}

/* Six bits a character, the last ones filled up with zero bits. */
static std::string encode(std::string_view bytes) {
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

static std::string decode(std::string_view text, const std::string &what) {
  std::string bytes;
  uint32_t pending = 0;
  int bits = 0;
  for (const char c : text) {
    const size_t value = alphabet.find(c);
    if (value == std::string_view::npos) {
      throw UsageError("the name's " + what + " holds a character that is none of 0-9, a-z, A-Z, @ and #" +
                       std::string(form_of_names));
    }
    pending = (pending << 6) | static_cast<uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>(pending >> bits));
    }
  }
  return bytes;
}

static std::string format_text(int32_t format) {
  char digits[8];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), static_cast<uint32_t>(format), 16).ptr;
  return {std::begin(digits), end};
}

std::string branch_name(const XID &xid, std::string_view lrm) {
  return format_text(xid.formatID).append("_") + encode(gtrid_of(xid)) + "_" + encode(bqual_of(xid)) +
         "_:" + std::string(lrm);
}

/* Cuts off what stands before the next underscore. */
static std::string_view take_field(std::string_view &rest, const char *what) {
  const size_t end = rest.find('_');
  if (end == std::string_view::npos) {
    throw UsageError(std::string("the name ends within its ") + what + form_of_names);
  }
  const std::string_view field = rest.substr(0, end);
  rest.remove_prefix(end + 1);
  return field;
}

static int32_t read_format(std::string_view digits) {
  uint32_t bits = 0;
  const char *end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, bits, 16);
  if (digits.empty() || error != std::errc() || stop != end) {
    throw UsageError(std::string("the name's formatID is no number of up to eight hexadecimal digits") + form_of_names);
  }
  return static_cast<int32_t>(bits);
}

NamedBranch read_branch_name(std::string_view name) {
  std::string_view rest = name;
  const int32_t format = read_format(take_field(rest, "formatID"));
  const std::string gtrid = decode(take_field(rest, "gtrid"), "gtrid");
  const std::string bqual = decode(take_field(rest, "bqual"), "bqual");
  if (!rest.starts_with(':')) {
    throw UsageError(std::string("the name has no colon before its LRM") + form_of_names);
  }
  rest.remove_prefix(1);
  check_lrm(rest);
  NamedBranch branch{make_xid(format, gtrid, bqual), std::string(rest)};
  if (const std::string usual = branch_name(branch.xid, branch.lrm); usual != name) {
    throw UsageError(
        "no server has a branch of this spelling, since names are compared character by character; the "
        "name for this XID is " +
        usual);
  }
  return branch;
}
