// See the header.
#include "bank.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <map>

#include "disk/disk_store.h"
#include "disk/folder.h"
#include "sessions/operator.h"
#include "sessions/server_session.h"

namespace {

struct Operation {
  const char *procedure;
  int64_t flags;
  int64_t wanted;
};

const std::map<std::string, Operation> operations = {
    {"begin", {"$beginTrvDtmXact", 0x10, 1}},
    {"attach", {"$attachTrvDtmXact", 0, 1}},
    {"end", {"$detachTrvDtmXact", 0, 2}},
    {"suspend", {"$detachTrvDtmXact", 0, 3}},
    {"prepare", {"$prepareTrvDtmXact", 0, 7}},
    {"commit", {"$commitTrvDtmXact", 0, 100}},
    {"commit1", {"$commitTrvDtmXact", 0x20, 100}},
    {"rollback", {"$rollbackTrvDtmXact", 0, 101}},
    {"abort", {"$rollbackTrvDtmXact", 0x100, 101}},
    {"forget", {"$forgetTrvDtmXact", 0, 102}},
    {"status", {"$statusTrvDtmXact", 0, 0}},
    {"try_attach", {"$attachTrvDtmXact", 0x2, 1}},
    {"migrate", {"$detachTrvDtmXact", 0, 4}},
    {"attach_abort", {"$attachTrvDtmXact", 0x2, 6}},
    {"detach", {"$detachTrvDtmXact", 0x4, 2}},
    {"forced_prepare", {"$prepareTrvDtmXact", 0x6000, 7}},
    {"bad_flags", {"$commitTrvDtmXact", 0x40, 100}},
    {"forced_commit1", {"$commitTrvDtmXact", 0x6020, 100}},
    {"forced_rollback", {"$rollbackTrvDtmXact", 0x6000, 101}},
};

std::string shown(const zdb::Value &value) {
  if (const auto *number = std::get_if<int64_t>(&value)) {
    return std::to_string(*number);
  }
  if (const auto *real = std::get_if<double>(&value)) {
    return std::string("~").append(std::to_string(*real));
  }
  if (const auto *binary = std::get_if<zdb::Binary>(&value)) {
    return std::string("x").append(std::to_string(binary->bytes.size()));
  }
  const auto *text = std::get_if<std::string>(&value);
  return text == nullptr ? "null" : *text;
}

}  // namespace

Place::Place() {
  // In memory where that can be had: a killed process does not need the disk to leave its files behind.
  const std::filesystem::path memory = "/dev/shm";
  const auto base = std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
  std::string name = base / "zdb_tests.XXXXXX";
  EXPECT_NE(mkdtemp(name.data()), nullptr);
  path_ = name;
}

Place::~Place() {
  std::filesystem::remove_all(path_);
}

std::shared_ptr<zdb::Server> open_bank(const Place &place) {
  const bool made = !std::filesystem::exists(place.folder());
  if (made) {
    zdb::create_folder(place.folder());
  }
  auto server = std::make_shared<zdb::Server>(std::make_unique<zdb::DiskStore>(place.folder()));
  if (made) {
    server->store().add_user("sa", "pw", true);
    server->store().add_user("guest", "pw", false);
  }
  return server;
}

Client::Client(const std::shared_ptr<zdb::Server> &server, const std::string &user) {
  zdb::Message refusal;
  session_ = zdb::log_in_to(server, {user, "pw", "test", false}, refusal);
  EXPECT_NE(session_, nullptr) << refusal.text;
}

zdb::Reply Client::ask(zdb::RequestKind kind, const std::string &text) const {
  return session_->execute({kind, text, {}});
}

std::string Client::sql(const std::string &text) const {
  return in_one_line(ask(zdb::RequestKind::language, text));
}

int32_t Client::dtm(const std::string &operation, const std::string &branch) const {
  const Operation &asked = operations.at(operation);
  const zdb::Reply reply = session_->execute({zdb::RequestKind::procedure,
                                              asked.procedure,
                                              {{"@name", branch}, {"@status", asked.wanted}, {"@flags", asked.flags}}});
  for (const zdb::Result &result : reply.results) {
    if (result.kind == zdb::ResultKind::status) {
      return static_cast<int32_t>(std::get<int64_t>(result.rows.at(0).at(0)));
    }
  }
  return no_status;
}

std::string Client::scan() const {
  return in_one_line(session_->execute(
      {zdb::RequestKind::procedure, "sp_transactions", {{"@query_type", std::string("xa_recover")}}}));
}

void Client::work(const std::string &branch, const std::string &sql_text) const {
  EXPECT_EQ(dtm("begin", branch), 0);
  EXPECT_EQ(sql(sql_text).find('!'), std::string::npos) << sql_text;
  EXPECT_EQ(dtm("end", branch), 1);
}

std::string in_child(const std::function<void(int pipe)> &action, int &status) {
  std::array<int, 2> ends{};
  EXPECT_EQ(pipe(ends.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    action(ends[1]);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  close(ends[1]);
  std::string all;
  std::array<char, 4096> bytes{};
  ssize_t count = 0;
  while ((count = read(ends[0], bytes.data(), bytes.size())) > 0) {
    all.append(bytes.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return all;
}

std::string in_one_line(const zdb::Reply &reply) {
  std::string line = reply.broken_off ? "broken" : "";
  for (const zdb::Result &result : reply.results) {
    for (const auto &row : result.rows) {
      for (const zdb::Value &value : row) {
        line.append(&value == row.data() ? "" : "|").append(shown(value));
      }
      line += &row == &result.rows.back() ? "" : ";";
    }
    if (result.row_count >= 0) {
      line.append("#").append(std::to_string(result.row_count));
    }
    if (result.kind == zdb::ResultKind::failed) {
      line.append("!").append(reply.messages.empty() ? "" : std::to_string(reply.messages.back().number));
    }
  }
  return line;
}

std::string operate(zdb::Server &server, const std::string &command, std::initializer_list<std::string> arguments) {
  zdb::Request request{zdb::RequestKind::administer, command, {}};
  for (const std::string &argument : arguments) {
    request.parameters.push_back({"", argument});
  }
  const zdb::Reply reply = zdb::administer(server, request);
  return in_one_line(reply) + " " + (reply.messages.empty() ? "" : reply.messages.front().text);
}
