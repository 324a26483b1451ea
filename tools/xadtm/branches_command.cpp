// Xadtm branches: lists the branches in doubt.
#include <algorithm>
#include <iomanip>
#include <iostream>

#include "branch_text.h"
#include "commands.h"
#include "hex_text.h"
#include "session.h"
#include "shown_text.h"
#include "texts.h"
#include "xid_bytes.h"

namespace {

std::string bqual_text(const XID &xid) {
  return bqual_of(xid).empty() ? "-" : hex_of(bqual_of(xid));
}

void print_row(const std::string &format, const std::string &gtrid, int gtrid_width, const std::string &bqual,
               int bqual_width, const std::string &name) {
  std::cout << std::left << std::setw(11) << format << "  " << std::setw(gtrid_width) << gtrid << "  "
            << std::setw(bqual_width) << bqual << "  " << name << '\n';
}

void print_table(const std::vector<XID> &xids, const std::string &lrm) {
  int gtrid_width = sizeof "gtrid" - 1;
  int bqual_width = sizeof "bqual" - 1;
  for (const XID &xid : xids) {
    gtrid_width = std::max(gtrid_width, 2 * xid.gtrid_length);
    bqual_width = std::max(bqual_width, 2 * xid.bqual_length);
  }
  if (!xids.empty()) {
    print_row("formatID", "gtrid", gtrid_width, "bqual", bqual_width, "branch name");
  }
  for (const XID &xid : xids) {
    print_row(std::to_string(xid.formatID), hex_of(gtrid_of(xid)), gtrid_width, bqual_text(xid), bqual_width,
              pasteable(branch_name(xid, lrm)));
  }
  std::cout << "branches in doubt: " << xids.size() << '\n';
}

void print_json(const std::vector<XID> &xids, const std::string &lrm) {
  std::cout << '[';
  const char *separator = "\n";
  for (const XID &xid : xids) {
    std::cout << separator << "  {\"formatID\": " << xid.formatID << ", \"gtrid\": " << json_text(hex_of(gtrid_of(xid)))
              << ", \"bqual\": " << json_text(hex_of(bqual_of(xid)))
              << ", \"name\": " << json_text(pasteable_ascii(branch_name(xid, lrm))) << '}';
    separator = ",\n";
  }
  std::cout << (xids.empty() ? "]\n" : "\n]\n");
}

}  // namespace

int branches_command(const Arguments &arguments) {
  if (arguments.words.size() != 1) {
    throw UsageError("write branches -o OPEN_STRING, and no further words");
  }
  const Session session(arguments);
  const std::vector<XID> xids = session.in_doubt();
  if (arguments.json) {
    print_json(xids, session.lrm());
  } else {
    print_table(xids, session.lrm());
  }
  return exit_done;
}
