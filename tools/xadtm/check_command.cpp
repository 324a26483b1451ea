// Xadtm check: tries a configuration and says everything that is known about it.
#include <algorithm>
#include <iostream>

#include "check_reports.h"
#include "commands.h"
#include "config_file.h"
#include "discretion.h"
#include "open_string.h"
#include "private_log.h"
#include "session.h"

namespace {

// What came of the three calls; those that were not made have no text.
struct Trial {
  std::string open;
  std::string recover;
  std::string close;
  bool opened = false;
  bool fine = false;
};

Trial try_out(const xa_switch_t &xa, const std::string &info) {
  Trial trial;
  const int32_t opened = xa.xa_open_entry(info.c_str(), tool_rmid, TMNOFLAGS);
  trial.open = code_text(opened);
  if (opened != XA_OK) {
    return trial;
  }
  trial.opened = true;
  std::vector<XID> xids;
  const int32_t scanned = scan_branches(xa, xids);
  trial.recover = scanned == XA_OK ? "branches in doubt: " + std::to_string(xids.size()) : code_text(scanned);
  const int32_t closed = xa.xa_close_entry("", tool_rmid, TMNOFLAGS);
  trial.close = code_text(closed);
  trial.fine = scanned == XA_OK && closed == XA_OK;
  return trial;
}

void print_trial(const Trial &trial) {
  std::cout << "tried\n  xa_open, with the check that the server is ready: " << trial.open << '\n';
  if (!trial.recover.empty()) {
    std::cout << "  xa_recover: " << trial.recover << "\n  xa_close: " << trial.close << '\n';
  }
}

// The settings of the LRM's section are taken before the connection is made.
bool has_connected(const std::vector<Heard> &heard) {
  return std::any_of(heard.begin(), heard.end(), [](const Heard &one) { return one.said.starts_with("Connect("); });
}

// Under mts an open string without a name opens; the others refuse it.
void report_name(const std::string &lrm) {
  if (lrm.empty()) {
    std::cout << "no LRM name: MTS alone opens that, and only resource managers without a name recover the branches; "
                 "add -N and the name of an LRM, without a blank between them\n";
  }
}

void print_heard(const Findings &findings) {
  const std::vector<Heard> &heard = findings.heard;
  const bool is_faultless = std::all_of(findings.options.begin(), findings.options.end(),
                                        [](const OptionGiven &option) { return option.fault == OpenFault::none; });
  if (heard.empty()) {
    std::cout << (is_faultless ? "the library had nothing to complain about\n" : "");
    return;
  }
  std::cout << "the library said\n";
  for (const Heard &one : heard) {
    std::cout << "  " << one.type << ": " << one.text << '\n';
    std::cout << (one.advice.empty() ? "" : "    -> " + one.advice + "\n");
  }
}

}  // namespace

int check_command(const Arguments &arguments) {
  if (arguments.words.size() != 1) {
    throw UsageError("write check -o OPEN_STRING, and no further words");
  }
  const std::string &info = open_string_of(arguments);
  const std::vector<OptionGiven> options = options_of(arguments);
  const ConfigFile config = read_config(stored_value(options, 'N'));
  const Discretion discretion(info, options, {config_value(config, "xa", "server").value_or("")});
  std::cout << "trying it out; all that is found is shown when that has come to its end\n" << std::flush;
  const PrivateLog log;
  const Trial trial = try_out(switch_of(arguments.flavour), info);
  const std::vector<Heard> heard = log.read(discretion);
  const Findings findings{
      info, arguments.flavour, options, config, heard, discretion, trial.opened || has_connected(heard)};
  std::cout << "open string, flavour " << arguments.flavour << (arguments.flavour_given ? "" : " (unless --flavour)")
            << '\n';
  report_options(findings);
  report_config(findings);
  report_server(findings);
  const bool log_is_fine = report_log(findings);
  print_trial(trial);
  print_heard(findings);
  report_name(stored_value(options, 'N'));
  const bool usable = trial.fine && log_is_fine;
  std::cout << (usable ? "A transaction manager can use it as it stands.\n"
                       : "A transaction manager cannot use it: correct what is said above, then check again.\n");
  return usable ? exit_done : exit_refused;
}
