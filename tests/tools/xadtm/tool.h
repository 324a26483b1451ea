// Runs xadtm and the programs that make something for it to look at.
#pragma once

#include <string>
#include <vector>

#include "programs.h"

// Runs xadtm with the arguments, as a shell takes them.
Outcome xadtm(const std::string &arguments);

// A folder with a server's folder, the interfaces file that leads to it, and a configuration.
class Site {
 public:
  Site();
  ~Site();
  Site(const Site &) = delete;
  Site &operator=(const Site &) = delete;

  std::string at(const std::string &name) const { return folder_ + "/" + name; }
  void write(const std::string &name, const std::string &text) const;
  // The shell command as it is run in the folder, with the environment of an application of the server.
  std::string there(const std::string &command) const;
  Outcome run(const std::string &command) const;
  // Runs xadtm with the arguments and a good open string.
  Outcome xadtm(const std::string &arguments) const;
  // An operator's command at the server.
  Outcome administer(const std::string &words) const;
  // Prepares branches of the LRM, each named as "T1.a" (gtrid and bqual), and leaves them.
  void prepare(const std::vector<std::string> &xids, const std::string &lrm = "L1") const;
  // The branches that the server has, as it shows them.
  std::string branches() const { return administer("list").output; }

 private:
  std::string folder_;
};
