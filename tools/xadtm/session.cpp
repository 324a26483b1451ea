// Opening, scanning and closing.
#include "session.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "branch_name.h"
#include "commands.h"
#include "discretion.h"
#include "xadtm.h"

const xa_switch_t &switch_of(const std::string &flavour) {
  if (flavour == "mts") {
    return tarvex_MTS_xa_switch;
  }
  return flavour == "tux" ? tarvex_TUX_xa_switch : tarvex_TXS_xa_switch;
}

std::string code_text(int32_t code) {
  std::string name = xacmn_log_dump_xarc(code);
  name = name.size() > 2 ? name.substr(1, name.size() - 2) : "no XA code";
  return name.append(" (").append(std::to_string(code)).append(")");
}

const std::string &open_string_of(const Arguments &arguments) {
  if (!arguments.open_string) {
    throw UsageError("give the open string, as in -o \"-NL1 -Uuser -Ppassword\"");
  }
  if (arguments.open_string->size() >= MAXINFOSIZE) {
    throw UsageError("the open string is longer than the " + std::to_string(MAXINFOSIZE - 1) +
                     " characters that a transaction manager can pass; shorten it");
  }
  return *arguments.open_string;
}

namespace {

// Calls xa_open with standard error kept back: until the library has a log it writes its errors there, without line
// ends, and quotes the open string with its password.
int32_t open_quietly(const xa_switch_t &xa, const std::string &info, std::string &errors) {
  std::FILE *kept = std::tmpfile();
  const int own = kept == nullptr ? -1 : dup(STDERR_FILENO);
  if (own < 0 || dup2(fileno(kept), STDERR_FILENO) < 0) {
    throw Refused("no temporary file can be made; look at the folder for such files and its space");
  }
  const int32_t code = xa.xa_open_entry(info.c_str(), tool_rmid, TMNOFLAGS);
  dup2(own, STDERR_FILENO);
  close(own);
  std::rewind(kept);
  for (int c = std::fgetc(kept); c != EOF; c = std::fgetc(kept)) {
    errors += static_cast<char>(c);
  }
  static_cast<void>(std::fclose(kept));  // only read since
  return code;
}

}  // namespace

std::vector<OptionGiven> options_of(const Arguments &arguments) {
  return read_open_string(open_string_of(arguments), arguments.flavour == "mts");
}

Session::Session(const Arguments &arguments) : xa_(switch_of(arguments.flavour)) {
  const std::string &info = open_string_of(arguments);
  const std::vector<OptionGiven> options = options_of(arguments);
  lrm_ = stored_value(options, 'N');
  check_lrm(lrm_);
  if (lrm_.empty() && arguments.flavour != "mts") {
    throw UsageError("the open string names no LRM, which only MTS allows; give -N and its name, or --flavour mts");
  }
  std::string errors;
  const int32_t code = open_quietly(xa_, info, errors);
  for (const std::string &line : Discretion(info, options).of_errors(errors)) {
    std::cerr << line << '\n';
  }
  if (code != XA_OK) {
    throw Refused("the resource manager cannot be opened: " + code_text(code) +
                  "; xadtm check with the same open string tells why");
  }
}

Session::~Session() {
  // The process ends; what cannot be closed ends with it.
  static_cast<void>(xa_.xa_close_entry("", tool_rmid, TMNOFLAGS));
}

int32_t scan_branches(const xa_switch_t &xa, std::vector<XID> &xids) {
  constexpr int32_t batch = 1000;
  std::vector<XID> found(batch);
  int32_t flags = TMSTARTRSCAN;
  int32_t count = batch;
  while (count == batch) {
    count = xa.xa_recover_entry(found.data(), batch, tool_rmid, flags);
    if (count < 0) {
      return count;
    }
    xids.insert(xids.end(), found.begin(), found.begin() + count);
    flags = TMNOFLAGS;
  }
  return XA_OK;
}

std::vector<XID> Session::in_doubt() const {
  std::vector<XID> xids;
  if (const int32_t code = scan_branches(xa_, xids); code != XA_OK) {
    throw Refused("the branches in doubt cannot be read: " + code_text(code) +
                  "; xadtm check with the same open string tells why");
  }
  return xids;
}
