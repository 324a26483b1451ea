/* server_session.cpp - hands requests over; the session ends with the object. */
#include "server_session.h"

#include <chrono>
#include <new>
#include <thread>

namespace zdb {
namespace {

/* Without memory nothing else can be done: a branch must not stay with a session that is gone. */
constexpr std::chrono::milliseconds breather{50};

class ServerSession final : public Session {
 public:
  ServerSession(std::shared_ptr<Server> server, int number) : server_(std::move(server)), number_(number) {}
  ~ServerSession() override {
    while (!logged_out()) {
      std::this_thread::sleep_for(breather);
    }
  }

  Reply execute(const Request &request) override { return server_->execute(number_, request); }
  bool alive() const override { return server_->alive(number_); }
  void abandon() noexcept override { server_->abandon(number_); }

 private:
  bool logged_out() noexcept {
    try {
      server_->log_out(number_);
      return true;
    } catch (const std::bad_alloc &) {
      return false;
    }
  }

  std::shared_ptr<Server> server_;
  int number_;
};

}  // namespace

std::unique_ptr<Session> log_in_to(const std::shared_ptr<Server> &server, const Login &login, Message &refusal) {
  const std::optional<int> number = server->log_in(login, refusal);
  if (!number) {
    return nullptr;
  }
  return std::make_unique<ServerSession>(server, *number);
}

}  // namespace zdb
