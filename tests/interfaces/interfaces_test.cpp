// Good and bad interfaces files, as texts and on disk.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "embedded/interfaces_file.h"

namespace {

constexpr auto embedded = zdb::ServerAddress::Kind::embedded;
constexpr auto unix_socket = zdb::ServerAddress::Kind::unix_socket;

TEST(Parser, takes_names_and_paths) {
  const struct {
    std::string text, name;
    zdb::ServerAddress address;
  } cases[] = {
      {"bank=embedded:/data", "bank", {embedded, "/data"}},
      {"\n# all\n\t bank \t=  unix:  /run/a b.sock \r\n", "bank", {unix_socket, "/run/a b.sock"}},
      {"bank = embedded:data/bank", "bank", {embedded, "/etc/zdb/data/bank"}},
      {"b#1 = unix:/run/#1 # the first\n", "b#1", {unix_socket, "/run/#1"}},
      {"a = embedded:/a\nb = embedded:/b=c:d", "b", {embedded, "/b=c:d"}},
      {std::string(31, 'n') + " = embedded:/n", std::string(31, 'n'), {embedded, "/n"}},
      {"s = unix:/" + std::string(106, 's'), "s", {unix_socket, "/" + std::string(106, 's')}},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(test.text);
    const zdb::Interfaces interfaces = zdb::parse_interfaces(test.text, "/etc/zdb");
    EXPECT_EQ(interfaces.problem, "");
    ASSERT_TRUE(interfaces.servers.contains(test.name));
    EXPECT_EQ(interfaces.servers.at(test.name), test.address);
  }
  EXPECT_TRUE(zdb::parse_interfaces("# nothing\n\n", "").servers.empty());
}

TEST(Parser, refuses_the_whole_file_for_one_bad_line) {
  const struct {
    std::string text;
    const char *problem;
  } cases[] = {
      {"bank", "line 1: there is no \"=\"; write NAME = "},
      {"#\n\na = embedded:/a\n = unix:/b\n", "line 4: a server's name has 1 to 31"},
      {"my bank = unix:/b", "line 1: a server's name has 1 to 31"},
      {std::string(32, 'n') + " = unix:/b", "line 1: a server's name has 1 to 31"},
      {"a = embedded:/a\na = unix:/b\nc", "line 2: server 'a' is named above"},
      {"a =", "line 1: no address stands behind"},
      {"a = /b", "line 1: no address stands behind"},
      {"a = Unix:/b", "line 1: no address stands behind"},
      {"a = unix: # /b", "line 1: no address stands behind"},
      {std::string("a = unix:/b\0c", 13), "line 1: the line holds a zero byte"},
      {"a = unix:/" + std::string(107, 's'), "line 1: the path has 108 bytes"},
      {"a = unix:" + std::string(99, 's'), "line 1: the path has 108 bytes"},
      {"a = embedded:/" + std::string(4095, 's'), "line 1: the path has 4096 bytes"},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(test.text);
    const zdb::Interfaces interfaces = zdb::parse_interfaces(test.text, "/etc/zdb");
    EXPECT_TRUE(interfaces.problem.starts_with(test.problem)) << interfaces.problem;
    EXPECT_TRUE(interfaces.servers.empty());
  }
}

TEST(File, is_read_from_disk_or_told_of) {
  std::string folder = testing::TempDir() + "interfaces.XXXXXX";
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  const std::string file = folder + "/interfaces";
  const auto find = [&](const std::string &path, const std::string &server) {
    std::string problem = "left over";
    const auto address = zdb::find_address(path, server, problem);
    return address ? "found " + address->path : problem;
  };
  EXPECT_EQ(find(file, "a").find("interfaces file " + file + " cannot be read: No such file"), 0U);
  EXPECT_NE(find(folder, "a").find("cannot be read: Is a directory"), std::string::npos);
  std::ofstream(file) << "";
  EXPECT_EQ(find(file, "a"), "");
  std::ofstream(file) << std::string(5000, '#') << "\na = unix:s\n";
  EXPECT_EQ(find(file, "a"), "found " + folder + "/s");
  EXPECT_EQ(find(file, "b"), "");
  std::ofstream(file, std::ios::app) << "b\n";
  EXPECT_EQ(find(file, "a").find("interfaces file " + file + ", line 3: "), 0U);
  std::filesystem::remove_all(folder);
}

}  // namespace
