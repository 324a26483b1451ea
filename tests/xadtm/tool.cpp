/* tool.cpp - programs run through a shell, their output and exit status. */
#include "tool.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

Outcome run_command(const std::string &command) {
  Outcome run;
  std::FILE *pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  std::array<char, 4096> buffer{};
  while (const size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    run.output.append(buffer.data(), got);
  }
  const int ended = pclose(pipe);
  run.status = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
  return run;
}

Outcome xadtm(const std::string &arguments) {
  return run_command(XADTM " " + arguments);
}

std::string text_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Site::Site() : folder_(testing::TempDir() + "xadtm_site." + std::to_string(getpid())) {
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directories(folder_);
  write("interfaces", "bank1 = embedded:" + at("bank1") + "\n");
  write("xa_config", "[all]\n[xa]\nlrm=L1\nserver=bank1\n[xa]\nlrm=\"L\\2\"\nserver=bank1\n");
  EXPECT_EQ(run(ZDBD " --init bank1").status, 0);
  EXPECT_EQ(administer("add-user teller dtm").status, 0);
}

Site::~Site() {
  std::filesystem::remove_all(folder_);
}

void Site::write(const std::string &name, const std::string &text) const {
  std::ofstream(at(name), std::ios::binary) << text;
}

Outcome Site::run(const std::string &command) const {
  return run_command("cd '" + folder_ + "' && export TARVEX=. XACONFIGFILE=xa_config XALOGFILE=xa.log && " + command);
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
  const Outcome left = run(LEAVE_BRANCHES " '-N" + lrm + " -Uteller -PtopSecret' < names");
  EXPECT_EQ(left.status, 0) << left.output;
}
