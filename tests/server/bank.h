// A server over a folder of its own, and clients that speak to it as libxadtm and application code do.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "sessions/server.h"

// A directory that goes with the object; the server's folder is "bank" in it.
class Place {
 public:
  Place();
  ~Place();
  Place(const Place &) = delete;
  Place &operator=(const Place &) = delete;
  std::filesystem::path path() const { return path_; }
  std::string folder() const { return path_ / "bank"; }

 private:
  std::filesystem::path path_;
};

// Opens the place's folder, making it at first with the users "sa", who may use DTM, and "guest", who may not.
std::shared_ptr<zdb::Server> open_bank(const Place &place);

// A logged-in session.
class Client {
 public:
  static constexpr int32_t no_status = -9999;  // the request failed

  explicit Client(const std::shared_ptr<zdb::Server> &server, const std::string &user = "sa");

  // What came of a command, in one line: rows as "1|a;2|b", then "#" and the row count of each statement, and "!" with
  // the number of the message when one failed.
  std::string sql(const std::string &text) const;
  // The status of a DTM request; "begin", "attach", "end" and so on, see bank.cpp.
  int32_t dtm(const std::string &operation, const std::string &branch) const;
  zdb::Reply ask(zdb::RequestKind kind, const std::string &text) const;
  // The names of a recovery scan, in its order, as in a command's line.
  std::string scan() const;
  bool alive() const { return session_->alive(); }
  // Begins the branch, runs the command in it and ends it.
  void work(const std::string &branch, const std::string &sql_text) const;

 private:
  std::unique_ptr<zdb::Session> session_;
};

// Runs the action in a child, whose failures show in its status; returns what it has written to its pipe.
std::string in_child(const std::function<void(int pipe)> &action, int &status);

std::string in_one_line(const zdb::Reply &reply);
// The same for an operator's command, with the message's text behind it.
std::string operate(zdb::Server &server, const std::string &command, std::initializer_list<std::string> arguments);
