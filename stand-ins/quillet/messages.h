// Client and server messages: how they are made, stored by the diagnostic handling and delivered to
// callbacks.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <variant>

#include "exports.h"
#include "interface/session.h"
#include "operation.h"

namespace quillet {

using AnyMessage = std::variant<QLT_CLIENT_MESSAGE, QLT_SERVER_MESSAGE>;

// The reasons of this library's own messages; the number goes into the low byte of the message number.
enum class Reason : uint8_t {
  bad_version = 1,
  bad_argument,
  not_initialised,
  setting_refused,
  already_open,
  not_open,
  connection_dead,
  login_failed,
  results_pending,
  nothing_to_send,
  no_results,
  no_rows,
  bad_bind,
  no_cursor
};

QLT_CLIENT_MESSAGE client_message(Reason reason, std::string_view text);
QLT_SERVER_MESSAGE server_message(const zdb::Message &message, const std::string &server);

struct Callbacks {
  QLT_CLIENT_MESSAGE_CB client = nullptr;
  QLT_SERVER_MESSAGE_CB server = nullptr;
};

// Gets or sets one callback through the untyped pointer of ct_callback.
int32_t access_callback(Callbacks &callbacks, int32_t action, int32_t type, void *callback);

// What the diagnostic handling has kept of a connection or the context.
struct StoredMessages {
  std::deque<QLT_CLIENT_MESSAGE> client;
  std::deque<QLT_SERVER_MESSAGE> server;

  // QLT_CLEAR or CS_GET (index from 1) of one type of message.
  int32_t access(int32_t operation, int32_t type, int32_t index, void *buffer);
};

// The callbacks that the diagnostic handling puts in place; they store what comes.
int32_t store_client_message(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_CLIENT_MESSAGE *message);
int32_t store_server_message(CS_CONTEXT *context, QLT_CONNECTION *connection, QLT_SERVER_MESSAGE *message);

}  // namespace quillet
