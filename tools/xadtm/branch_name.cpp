// The checks that a branch name and its parts must pass.
//
// Servers compare names character by character, so only the one spelling that the library itself writes is accepted.
#include "branch_name.h"

#include <cstdint>
#include <optional>

#include "branch_text.h"
#include "commands.h"
#include "hex_text.h"
#include "shown_text.h"
#include "xid_bytes.h"

namespace {

constexpr size_t longest_lrm = 31;

constexpr const char *form_of_names =
    "; a branch name is formatID_gtrid_bqual_:LRM, as the commands branches and names encode print it";

}  // namespace

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
  return xid_of(format, gtrid, bqual);
}

void check_lrm(std::string_view lrm) {
  if (lrm.size() > longest_lrm || lrm.find_first_of(" \t\n\v\f\r") != std::string_view::npos) {
    throw UsageError(
        "an LRM name has up to 31 characters, none of them white space; give the one of -N in the open string");
  }
}

std::string shown_lrm(std::string_view lrm) {
  return lrm.empty() ? "(no name)" : pasteable(lrm);
}

namespace {

std::string decode(std::string_view text, const std::string &what) {
  const std::optional<std::string> bytes = bytes_of_branch_text(text);
  if (!bytes) {
    throw UsageError("the name's " + what + " holds a character that is none of 0-9, a-z, A-Z, @ and #" +
                     std::string(form_of_names));
  }
  return *bytes;
}

// Cuts off what stands before the next underscore.
std::string_view take_field(std::string_view &rest, const char *what) {
  const size_t end = rest.find('_');
  if (end == std::string_view::npos) {
    throw UsageError(std::string("the name ends within its ") + what + form_of_names);
  }
  const std::string_view field = rest.substr(0, end);
  rest.remove_prefix(end + 1);
  return field;
}

int32_t read_format(std::string_view digits) {
  const std::optional<uint32_t> bits = number_of_hex(digits);
  if (!bits) {
    throw UsageError(std::string("the name's formatID is no number of up to eight hexadecimal digits") + form_of_names);
  }
  return static_cast<int32_t>(*bits);
}

}  // namespace

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
        pasteable(usual));
  }
  return branch;
}
