/* names_command.cpp - xadtm names: XIDs to branch names and back. */
#include <charconv>
#include <iostream>

#include "branch_name.h"
#include "commands.h"
#include "texts.h"

template <typename Number>
static bool is_number(std::string_view text, int base, Number &number) {
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  return !text.empty() && error == std::errc() && stop == end;
}

static int32_t format_of(std::string_view text) {
  int32_t number = 0;
  uint32_t bits = 0;
  if (text.starts_with("0x") && is_number(text.substr(2), 16, bits)) {
    return static_cast<int32_t>(bits);
  }
  if (!is_number(text, 10, number)) {
    throw UsageError(
        "the formatID is no number of 32 bits; give one from -2147483648 to 2147483647, or 0x and up to "
        "eight hexadecimal digits");
  }
  return number;
}

static void encode(const std::vector<std::string> &words) {
  check_lrm(words[5]);
  const XID xid = make_xid(format_of(words[2]), bytes_of_hex(words[3], "gtrid"), bytes_of_hex(words[4], "bqual"));
  std::cout << branch_name(xid, words[5]) << '\n';
}

static void decode(const std::string &name) {
  const auto [xid, lrm] = read_branch_name(name);
  std::cout << "formatID " << xid.formatID << '\n';
  std::cout << "gtrid    " << hex_of(gtrid_of(xid)) << '\n';
  std::cout << "bqual    " << (bqual_of(xid).empty() ? "-" : hex_of(bqual_of(xid))) << '\n';
  std::cout << "LRM      " << printable(lrm) << '\n';
}

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
