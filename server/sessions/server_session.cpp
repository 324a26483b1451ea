// Hands requests over; the session ends with the object.
#include "sessions/server_session.h"

#include <chrono>
#include <new>
#include <optional>
#include <thread>

namespace zdb {
namespace {

// Without memory nothing else can be done: a branch must not stay with a session that is gone.
constexpr std::chrono::milliseconds breather{50};

class ServerSession final : public Session {
 public:
  explicit ServerSession(std::shared_ptr<Server> server) : server_(std::move(server)) {}
  ~ServerSession() override {
    while (number_ && !logged_out()) {
      std::this_thread::sleep_for(breather);
    }
  }

  Reply execute(const Request &request) override { return server_->execute(*number_, request); }
  bool alive() const override { return server_->alive(*number_); }
  void abandon() noexcept override { server_->abandon(*number_); }

  bool log_in(const Login &login, Message &refusal) {
    number_ = server_->log_in(login, refusal);
    return number_.has_value();
  }

 private:
  bool logged_out() noexcept {
    try {
      server_->log_out(*number_);
      return true;
    } catch (const std::bad_alloc &) {
      return false;
    }
  }

  std::shared_ptr<Server> server_;
  std::optional<int> number_;
};

}  // namespace

std::unique_ptr<Session> log_in_to(const std::shared_ptr<Server> &server, const Login &login, Message &refusal) {
  auto session = std::make_unique<ServerSession>(server);
  if (!session->log_in(login, refusal)) {
    return nullptr;
  }
  return session;
}

}  // namespace zdb
