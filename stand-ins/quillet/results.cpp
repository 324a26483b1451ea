// Reading a reply: its results in server order, their columns, binding and fetching.
//
// ct_results goes on to the next result whatever has been read of the current one; unread rows are thrown away. After
// the end of the data a fetch says so again until the next ct_results.
#include <algorithm>
#include <cstring>
#include <utility>

#include "conversion.h"
#include "handles.h"
#include "operation.h"

namespace {

using quillet::Binding;
using quillet::CommandLock;
using quillet::operation;
using quillet::PendingReply;
using quillet::Phase;
using quillet::Reason;

int32_t type_of(zdb::ResultKind kind) {
  switch (kind) {
    case zdb::ResultKind::rows:
      return CS_ROW_RESULT;
    case zdb::ResultKind::status:
      return CS_STATUS_RESULT;
    case zdb::ResultKind::parameter:
      return CS_PARAM_RESULT;
    case zdb::ResultKind::succeeded:
      return CS_CMD_SUCCEED;
    case zdb::ResultKind::failed:
      return CS_CMD_FAIL;
    case zdb::ResultKind::done:
      break;
  }
  return CS_CMD_DONE;
}

// The current result when it has columns, else null.
const zdb::Result *fetchable(const qlt_command &command) {
  if (!command.reply.current || command.reply.results.front().columns.empty()) {
    return nullptr;
  }
  return &command.reply.results.front();
}

int32_t no_rows(const CommandLock &locked, const char *caller) {
  return locked.fail(Reason::no_rows, std::string(caller) + ": the current result has no columns to read");
}

// The result's column, counted from 1, or null.
const zdb::Column *column_of(const zdb::Result &result, int32_t column) {
  if (column < 1 || static_cast<std::size_t>(column) > result.columns.size()) {
    return nullptr;
  }
  return &result.columns[static_cast<std::size_t>(column) - 1];
}

// What was read of the session's end is lost: nothing more comes on this command.
int32_t break_off(const CommandLock &locked) {
  locked.connection().broken = true;
  quillet::reset_command(*locked);
  return locked.fail(Reason::connection_dead, "ct_results: the session has broken off; close the connection forced");
}

void deliver_server_messages(const CommandLock &locked) {
  qlt_connection &connection = locked.connection();
  for (const zdb::Message &message : locked->reply.messages) {
    connection.outbox.emplace_back(quillet::server_message(message, connection.server));
  }
  locked->reply.messages.clear();
}

// Puts one value into row r of its binding; false when it did not fit or could not be converted.
bool store(const zdb::Value &value, const Binding &binding, int32_t row) {
  char *place = binding.buffer + static_cast<std::ptrdiff_t>(row) * binding.format.fmt_maxlen;
  const quillet::Stored stored = quillet::store_value(value, binding.format, place);
  const bool is_null = std::holds_alternative<std::monostate>(value);
  if (binding.lengths != nullptr) {
    binding.lengths[row] = is_null ? 0 : stored.length;
  }
  if (binding.indicators != nullptr) {
    binding.indicators[row] = is_null ? QLT_IND_NULL : 0;
  }
  return stored.whole;
}

// Rows delivered by one fetch: the count of the bindings, 1 without any.
int32_t rows_per_fetch(const PendingReply &reply) {
  for (const auto &binding : reply.bindings) {
    if (binding) {
      return binding->format.fmt_count;
    }
  }
  return 1;
}

bool store_row(const std::vector<zdb::Value> &values, const PendingReply &reply, int32_t row) {
  bool whole = true;
  for (std::size_t column = 0; column < values.size(); ++column) {
    if (reply.bindings[column]) {
      whole = store(values[column], *reply.bindings[column], row) && whole;
    }
  }
  return whole;
}

// Known while the end of a command is current; -1 also stands for a count that is too large to tell.
int32_t tell_row_count(const CommandLock &locked, void *buffer, int32_t length, int32_t *outlen) {
  const PendingReply &reply = locked->reply;
  if (!reply.current || reply.results.front().kind != zdb::ResultKind::done) {
    return locked.fail(Reason::no_results, "ct_res_info: rows are counted at the end of a command (CS_CMD_DONE) only");
  }
  const int64_t count = reply.results.front().row_count;
  const int32_t told = count >= 0 && std::in_range<int32_t>(count) ? static_cast<int32_t>(count) : -1;
  return quillet::copy_integer(told, buffer, length, outlen);
}

}  // namespace

int32_t ct_results(QLT_COMMAND *command, int32_t *type) {
  return operation("ct_results", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked || type == nullptr) {
      return CS_FAIL;
    }
    if (locked->phase != Phase::sent) {
      return locked.fail(Reason::no_results, "ct_results: nothing has been sent on this command");
    }
    qlt_connection &connection = locked.connection();
    if (locked->reply.cut_off || connection.broken || !connection.session->alive()) {
      return break_off(locked);
    }
    deliver_server_messages(locked);
    PendingReply &reply = locked->reply;
    quillet::pass_current_result(*locked);
    if (reply.results.empty()) {
      quillet::reset_command(*locked);
      return CS_END_RESULTS;
    }
    reply.current = true;
    reply.bindings.resize(reply.results.front().columns.size());
    *type = type_of(reply.results.front().kind);
    return CS_SUCCEED;
  });
}

int32_t ct_res_info(QLT_COMMAND *command, int32_t type, void *buffer, int32_t length, int32_t *outlen) {
  return operation("ct_res_info", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    if (type == QLT_ROW_COUNT) {
      return tell_row_count(locked, buffer, length, outlen);
    }
    const zdb::Result *result = fetchable(*locked);
    if (result == nullptr) {
      return no_rows(locked, "ct_res_info");
    }
    if (type != QLT_NUM_COLUMNS) {
      return locked.fail(Reason::bad_argument, "ct_res_info: only the numbers of columns and of rows are known");
    }
    return quillet::copy_integer(static_cast<int32_t>(result->columns.size()), buffer, length, outlen);
  });
}

int32_t ct_describe(QLT_COMMAND *command, int32_t column, QLT_FORMAT *format) {
  return operation("ct_describe", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    const zdb::Result *result = fetchable(*locked);
    if (result == nullptr) {
      return no_rows(locked, "ct_describe");
    }
    const zdb::Column *described = column_of(*result, column);
    if (described == nullptr || format == nullptr) {
      return locked.fail(Reason::bad_argument, "ct_describe: no such column, or no format to fill");
    }
    *format = {};
    const std::size_t size = std::min(described->name.size(), sizeof format->fmt_name - 1);
    std::memcpy(format->fmt_name, described->name.data(), size);
    format->fmt_namelen = static_cast<int32_t>(size);
    format->fmt_datatype = quillet::datatype_of(described->type);
    format->fmt_maxlen = described->max_length;
    format->fmt_count = 1;
    return CS_SUCCEED;
  });
}

// All columns that are bound must be bound for the same number of rows; a null buffer takes a binding away.
int32_t ct_bind(QLT_COMMAND *command, int32_t column, const QLT_FORMAT *format, void *buffer, int32_t *lengths,
                int32_t *indicators) {
  return operation("ct_bind", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    const zdb::Result *result = fetchable(*locked);
    if (result == nullptr) {
      return no_rows(locked, "ct_bind");
    }
    if (column_of(*result, column) == nullptr) {
      return locked.fail(Reason::bad_bind, "ct_bind: no such column");
    }
    auto &binding = locked->reply.bindings[static_cast<std::size_t>(column) - 1];
    binding.reset();
    if (buffer == nullptr) {
      return CS_SUCCEED;
    }
    if (format == nullptr || !quillet::is_bindable(*format)) {
      return locked.fail(Reason::bad_bind, "ct_bind: the format cannot be bound");
    }
    if (format->fmt_count != rows_per_fetch(locked->reply)) {
      // All columns are fetched the same number of rows at a time: a new number begins a new set of bindings.
      std::fill(locked->reply.bindings.begin(), locked->reply.bindings.end(), std::nullopt);
    }
    binding = Binding{*format, static_cast<char *>(buffer), lengths, indicators};
    return CS_SUCCEED;
  });
}

// A value that did not fit or could not be converted makes the fetch end at its row with CS_ROW_FAIL.
int32_t ct_fetch(QLT_COMMAND *command, int32_t type, int32_t offset, int32_t option, int32_t *rows) {
  return operation("ct_fetch", [&]() -> int32_t {
    const auto locked = quillet::lock_command(command);
    if (!locked) {
      return CS_FAIL;
    }
    int32_t ignored = 0;
    int32_t &rows_read = rows == nullptr ? ignored : *rows;
    rows_read = 0;
    if (type != QLT_UNUSED || offset != QLT_UNUSED || option != QLT_UNUSED) {
      return locked.fail(Reason::bad_argument, "ct_fetch: rows are only read one after the other");
    }
    const zdb::Result *result = fetchable(*locked);
    if (result == nullptr) {
      return no_rows(locked, "ct_fetch");
    }
    PendingReply &reply = locked->reply;
    if (!reply.fetch_codes.empty()) {
      const int32_t code = reply.fetch_codes.front();
      reply.fetch_codes.pop_front();
      return code;
    }
    const int32_t wanted = rows_per_fetch(reply);
    while (rows_read < wanted && reply.next_row < result->rows.size()) {
      if (!store_row(result->rows[reply.next_row++], reply, rows_read++)) {
        return CS_ROW_FAIL;
      }
    }
    return rows_read == 0 ? CS_END_DATA : CS_SUCCEED;
  });
}
