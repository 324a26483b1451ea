/* socket_test.cpp - servers in processes of their own that want the same socket file at the same moment. */
#include "socket.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace zdb;

/* A process that takes the path when the gate opens, says whether it has it, and keeps it until it is let go. */
class Rival {
 public:
  Rival(const std::string &path, int gate) {
    int says[2];
    int keep[2];
    EXPECT_EQ(pipe(says) + pipe(keep), 0);
    process_ = fork();
    if (process_ == 0) {
      close(keep[1]);
      contend(path, gate, says[1], keep[0]);
    }
    close(says[1]);
    close(keep[0]);
    says_ = Descriptor(says[0]);
    keep_ = Descriptor(keep[1]);
  }
  ~Rival() { waitpid(process_, nullptr, 0); }
  Rival(Rival &&) = delete;

  bool has_it() const {
    char answer = '?';
    EXPECT_EQ(read(says_.number(), &answer, 1), 1);
    return answer == 'y';
  }
  void let_go() { keep_ = Descriptor(); }

 private:
  [[noreturn]] static void contend(const std::string &path, int gate, int says, int keep) {
    pollfd opened{gate, POLLIN, 0};
    while (poll(&opened, 1, -1) != 1) {
    }
    {
      std::optional<SocketFile> file;
      try {
        file.emplace(path, 0600);
      } catch (const std::runtime_error &) {
        file.reset();
      }
      char byte = file ? 'y' : 'n';
      (void)!write(says, &byte, 1);
      (void)!read(keep, &byte, 1);
    }
    _exit(0);
  }

  pid_t process_ = -1;
  Descriptor says_;
  Descriptor keep_;
};

class SocketRace : public testing::Test {
 protected:
  SocketRace() { EXPECT_NE(mkdtemp(place_.data()), nullptr); }
  ~SocketRace() override { std::filesystem::remove_all(place_); }

  /* What a server leaves that is killed. */
  void leave_stale_file() const {
    const pid_t killed = fork();
    if (killed == 0) {
      const SocketFile file(path_, 0600);
      _exit(0);
    }
    waitpid(killed, nullptr, 0);
    EXPECT_TRUE(std::filesystem::exists(path_));
  }
  bool is_served() const {
    int error = 0;
    return static_cast<bool>(connect_socket(path_, true, error));
  }

  std::string place_ = "/tmp/socket_test.XXXXXX";
  std::string path_;
};

}  // namespace

TEST_F(SocketRace, ForAStaleFileHasOneWinner) {
  path_ = place_ + "/socket";
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    leave_stale_file();
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    Rival rivals[] = {{path_, gate[0]}, {path_, gate[0]}, {path_, gate[0]}};
    (void)!write(gate[1], "go", 1);
    int winners = 0;
    for (const Rival &rival : rivals) {
      winners += rival.has_it() ? 1 : 0;
    }
    EXPECT_EQ(winners, 1) << "round " << round;
    EXPECT_TRUE(is_served()) << "round " << round;
    for (Rival &rival : rivals) {
      rival.let_go();
    }
    close(gate[0]);
    close(gate[1]);
  }
}
