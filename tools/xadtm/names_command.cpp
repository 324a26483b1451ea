// Xadtm names: XIDs to branch names and back.
#include <cstdint>
#include <iostream>
#include <optional>

#include "branch_name.h"
#include "branch_text.h"
#include "commands.h"
#include "hex_text.h"
#include "shown_text.h"
#include "xid_bytes.h"

namespace {

int32_t format_of(std::string_view text) {
  const std::optional<int32_t> number = integer_of(text);
  if (!number) {
    throw UsageError(
        "the formatID is no number of 32 bits; give one from -2147483648 to 2147483647, or 0x and up to "
        "eight hexadecimal digits");
  }
  return *number;
}

std::string bytes_of(std::string_view digits, const std::string &what) {
  if (digits == "-") {
    return "";
  }
  const std::optional<std::string> bytes = bytes_of_hex(digits);
  if (!bytes) {
    throw UsageError("the " + what +
                     " is no row of pairs of hexadecimal digits; write two digits a byte, as in 54310a");
  }
  return *bytes;
}

void encode(const std::vector<std::string> &words) {
  const std::string lrm = original_of(words[5]);
  check_lrm(lrm);
  const XID xid = make_xid(format_of(words[2]), bytes_of(words[3], "gtrid"), bytes_of(words[4], "bqual"));
  std::cout << pasteable(branch_name(xid, lrm)) << '\n';
}

void decode(const std::string &name) {
  const auto [xid, lrm] = read_branch_name(original_of(name));
  std::cout << "formatID " << xid.formatID << '\n';
  std::cout << "gtrid    " << hex_of(gtrid_of(xid)) << '\n';
  std::cout << "bqual    " << (bqual_of(xid).empty() ? "-" : hex_of(bqual_of(xid))) << '\n';
  std::cout << "LRM      " << shown_lrm(lrm) << '\n';
}

}  // namespace

int names_command(const Arguments &arguments) {
  const std::vector<std::string> &words = arguments.words;
  if (words.size() == 6 && words[1] == "encode") {
    encode(words);
  } else if (words.size() == 3 && words[1] == "decode") {
    decode(words[2]);
  } else {
    throw UsageError("write names encode FORMATID GTRID BQUAL LRM, or names decode NAME");
  }
  return exit_done;
}
