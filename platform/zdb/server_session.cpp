/* server_session.cpp - hands requests over; the session ends with the object. */
#include "server_session.h"

namespace zdb {
namespace {

class ServerSession final : public Session {
 public:
  ServerSession(std::shared_ptr<Server> server, int number) : server_(std::move(server)), number_(number) {}
  ~ServerSession() override { server_->log_out(number_); }

  Reply execute(const Request &request) override { return server_->execute(number_, request); }
  bool alive() const override { return server_->alive(number_); }
  void abandon() noexcept override { server_->abandon(number_); }

 private:
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
