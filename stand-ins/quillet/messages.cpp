// Makes, stores and hands out client and server messages, and gets and sets callbacks.
#include "messages.h"

#include <algorithm>
#include <cstring>

#include "handles.h"

namespace quillet {
namespace {

constexpr int32_t layer = 1;
constexpr int32_t origin = 1;
constexpr int32_t severity = 2;

// Enough for a client that never reads its messages.
constexpr std::size_t stored_max = 100;

void copy_limited(char *target, std::size_t capacity, std::string_view text, int32_t *length) {
  const std::size_t size = std::min(text.size(), capacity - 1);
  std::memcpy(target, text.data(), size);
  target[size] = '\0';
  if (length != nullptr) {
    *length = static_cast<int32_t>(size);
  }
}

template <typename Message>
void keep(std::deque<Message> &messages, const Message &message) {
  if (messages.size() == stored_max) {
    messages.pop_front();
  }
  messages.push_back(message);
}

template <typename Message>
int32_t access_messages(std::deque<Message> &messages, int32_t operation, int32_t index, void *buffer) {
  if (operation == QLT_CLEAR) {
    messages.clear();
    return CS_SUCCEED;
  }
  if (operation != CS_GET || buffer == nullptr || index < 1) {
    return CS_FAIL;
  }
  if (static_cast<std::size_t>(index) > messages.size()) {
    return CS_NOMSG;
  }
  std::memcpy(buffer, &messages[static_cast<std::size_t>(index) - 1], sizeof(Message));
  return CS_SUCCEED;
}

// Callbacks travel as untyped pointers: on CS_GET the address of one, on CS_SET the callback itself.
template <typename Callback>
int32_t access_one(Callback &current, int32_t action, void *callback) {
  if (action == CS_SET) {
    current = reinterpret_cast<Callback>(callback);
    return CS_SUCCEED;
  }
  if (action != CS_GET || callback == nullptr) {
    return CS_FAIL;
  }
  std::memcpy(callback, &current, sizeof current);
  return CS_SUCCEED;
}

}  // namespace

QLT_CLIENT_MESSAGE client_message(Reason reason, std::string_view text) {
  QLT_CLIENT_MESSAGE message{};
  message.msg_severity = severity;
  message.msg_number = layer << 24 | origin << 16 | severity << 8 | static_cast<int32_t>(reason);
  copy_limited(message.msg_text, sizeof message.msg_text, text, &message.msg_textlen);
  return message;
}

QLT_SERVER_MESSAGE server_message(const zdb::Message &message, const std::string &server) {
  QLT_SERVER_MESSAGE made{};
  made.msg_number = message.number;
  made.msg_severity = message.severity;
  copy_limited(made.msg_text, sizeof made.msg_text, message.text, &made.msg_textlen);
  copy_limited(made.msg_server, sizeof made.msg_server, server, nullptr);
  return made;
}

int32_t access_callback(Callbacks &callbacks, int32_t action, int32_t type, void *callback) {
  if (type == QLT_CLIENTMSG_CB) {
    return access_one(callbacks.client, action, callback);
  }
  return type == QLT_SERVERMSG_CB ? access_one(callbacks.server, action, callback) : CS_FAIL;
}

int32_t StoredMessages::access(int32_t operation, int32_t type, int32_t index, void *buffer) {
  if (type == QLT_CLIENT_MESSAGES) {
    return access_messages(client, operation, index, buffer);
  }
  return type == QLT_SERVER_MESSAGES ? access_messages(server, operation, index, buffer) : CS_FAIL;
}

int32_t store_client_message(CS_CONTEXT *, QLT_CONNECTION *connection, QLT_CLIENT_MESSAGE *message) {
  return guarded([&] {
    const std::lock_guard<std::mutex> lock(connection->mutex);
    keep(connection->stored.client, *message);
    return CS_SUCCEED;
  });
}

int32_t store_server_message(CS_CONTEXT *, QLT_CONNECTION *connection, QLT_SERVER_MESSAGE *message) {
  return guarded([&] {
    const std::lock_guard<std::mutex> lock(connection->mutex);
    keep(connection->stored.server, *message);
    return CS_SUCCEED;
  });
}

}  // namespace quillet

int32_t ct_callback(CS_CONTEXT *context, QLT_CONNECTION *connection, int32_t action, int32_t type, void *callback) {
  return quillet::operation("ct_callback", [&]() -> int32_t {
    if ((context == nullptr) == (connection == nullptr)) {
      return CS_FAIL;
    }
    if (connection != nullptr) {
      const auto locked = quillet::lock_connection(connection);
      return locked ? quillet::access_callback(locked->callbacks, action, type, callback) : CS_FAIL;
    }
    if (!quillet::is_context(context)) {
      return CS_FAIL;
    }
    const std::lock_guard<std::mutex> lock(context->mutex);
    return quillet::access_callback(context->callbacks, action, type, callback);
  });
}

int32_t ct_diag(QLT_CONNECTION *connection, int32_t operation, int32_t type, int32_t index, void *buffer) {
  return quillet::operation("ct_diag", [&]() -> int32_t {
    const auto locked = quillet::lock_connection(connection);
    if (!locked) {
      return CS_FAIL;
    }
    if (operation == CS_INIT) {
      locked->callbacks = {quillet::store_client_message, quillet::store_server_message};
      return CS_SUCCEED;
    }
    return locked->stored.access(operation, type, index, buffer);
  });
}
