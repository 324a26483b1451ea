// A folder such as an operator has, made by the programs that an operator uses.
#include "tool.h"

#include <gtest/gtest.h>

#include <filesystem>

Outcome xadtm(const std::string &arguments) {
  return run_command(XADTM " " + arguments);
}

Site::Site() : folder_(scratch("xadtm_site")) {
  std::filesystem::create_directory(folder_);
  write("interfaces", "bank1 = embedded:" + at("bank1") + "\n");
  write("xa_config", "[all]\n[xa]\nlrm=L1\nserver=bank1\n[xa]\nlrm=\"L\\2\"\nserver=bank1\n");
  EXPECT_EQ(run(ZDBD " --init bank1").status, 0);
  EXPECT_EQ(administer("add-user teller dtm").status, 0);
}

Site::~Site() {
  std::filesystem::remove_all(folder_);
}

void Site::write(const std::string &name, const std::string &text) const {
  write_text(at(name), text);
}

std::string Site::there(const std::string &command) const {
  return "cd '" + folder_ + "' && export TARVEX=. XACONFIGFILE=xa_config XALOGFILE=xa.log && " + command;
}

Outcome Site::run(const std::string &command) const {
  return run_command(there(command));
}

Outcome Site::xadtm(const std::string &arguments) const {
  return run(XADTM " " + arguments + " -o '-NL1 -Uteller -PtopSecret'");
}

Outcome Site::administer(const std::string &words) const {
  return run("echo topSecret | " ZDBD " --admin bank1 " + words);
}

void Site::prepare(const std::vector<std::string> &xids, const std::string &lrm) const {
  std::string names;
  for (const std::string &xid : xids) {
    names.append(xid).append("\n");
  }
  write("names", names);
  const Outcome left =
      run(LEAVE_BRANCHES " '" + (lrm.empty() ? "-Sbank1" : "-N" + lrm) + " -Uteller -PtopSecret' < names");
  EXPECT_EQ(left.status, 0) << left.output;
}
