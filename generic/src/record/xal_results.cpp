// Reading what the server sends back: one value into a caller's buffer, a whole result into fresh buffers, and the
// discarding of whatever is left. Works on a command that has a result pending.
//
// The caller holds the serialisation mutex; only xa__conn_discard_results gives it up, since draining may block.
#include <cstring>

#include "common_routines.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "record/xal_results.h"

namespace {

// ---- Memory of a result ---------------------------------------------------------------------------------------------

// The four arrays of a result of several columns lie in one zeroed block, which begins with the formats; false when
// memory is short.
bool allocate_arrays(XA_RESULTS &results) {
  static_assert(sizeof(QLT_FORMAT) % alignof(char *) == 0);
  const auto columns = static_cast<size_t>(results.res_ncols);
  const size_t size = columns * (sizeof(QLT_FORMAT) + sizeof(char *) + 2 * sizeof(int32_t *));
  void *block = comn_malloc(size);
  if (block == nullptr) {
    return false;
  }
  memset(block, 0, size);
  results.res_fmts = static_cast<QLT_FORMAT *>(block);
  results.res_data = reinterpret_cast<char **>(results.res_fmts + columns);
  results.res_lens = reinterpret_cast<int32_t **>(results.res_data + columns);
  results.res_inds = results.res_lens + columns;
  return true;
}

// The arrays of an only column are its members.
void use_only_column(XA_RESULTS &results) {
  XA_ONE_COLUMN &only = results.res_only;
  only = {};
  results.res_fmts = &only.format;
  results.res_data = &only.data;
  results.res_lens = &only.lengths;
  results.res_inds = &only.indicators;
}

// Buffers for rows values of a column, the data first: the given room of size bytes, or a heap block when it is too
// small. They are zeroed: a null value leaves its place in the data as it is. False when memory is short, or the length
// is none that a column can have.
bool allocate_buffers(int32_t maxlen, int32_t rows, char *room, size_t room_size, char **data, int32_t **lengths,
                      int32_t **indicators) {
  if (maxlen < 0) {
    return false;
  }
  const auto count = static_cast<size_t>(rows);
  const size_t data_size = (static_cast<size_t>(maxlen) * count + sizeof(int32_t) - 1) & ~(sizeof(int32_t) - 1);
  const size_t size = data_size + 2 * count * sizeof(int32_t);
  char *block = room;
  if (size > room_size) {
    block = static_cast<char *>(comn_malloc(size));
    if (block == nullptr) {
      return false;
    }
    memset(block, 0, size);
  }
  *data = block;
  *lengths = reinterpret_cast<int32_t *>(block + data_size);
  *indicators = *lengths + count;
  return true;
}

void free_buffers(const XA_RESULTS &results) {
  if (results.res_fmts == nullptr) {
    return;
  }
  if (results.res_fmts == &results.res_only.format) {
    if (results.res_only.data != nullptr && results.res_only.data != results.res_only.room) {
      comn_free(results.res_only.data);
    }
    return;
  }
  for (int32_t column = 0; column < results.res_ncols; ++column) {
    if (results.res_data[column] != nullptr) {
      comn_free(results.res_data[column]);
    }
  }
  comn_free(results.res_fmts);
}

// Frees what there is after a failed binding; the counts stand as they did.
void give_up(XA_RESULTS &results) {
  if (results.res_fmts == nullptr) {
    return;
  }
  const int32_t columns = results.res_ncols;
  const int32_t rowsread = results.res_rowsread;
  xa__conn_free_results(&results);
  results.res_ncols = columns;
  results.res_rowsread = rowsread;
}

// Describes a column (the first is 1) and binds it to buffers for rows rows, in the room when that is large enough.
int32_t bind_column(QLT_COMMAND *command, int32_t column, int32_t rows, char *room, size_t room_size,
                    QLT_FORMAT &format, char **data, int32_t **lengths, int32_t **indicators) {
  const int32_t described = ct_describe(command, column, &format);
  if (described != CS_SUCCEED) {
    return described;
  }
  format.fmt_name[sizeof format.fmt_name - 1] = '\0';
  format.fmt_count = rows;
  if (!allocate_buffers(format.fmt_maxlen, rows, room, room_size, data, lengths, indicators)) {
    return CS_MEM_ERROR;
  }
  return ct_bind(command, column, &format, *data, *lengths, *indicators);
}

// ---- Fetching -------------------------------------------------------------------------------------------------------

// Reads the number of columns of the current result; CS_FAIL when it has none.
int32_t count_columns(TraceScope trace, QLT_COMMAND *command, int32_t &columns) {
  const int32_t ret = ct_res_info(command, QLT_NUM_COLUMNS, &columns, QLT_UNUSED, nullptr);
  if (ret != CS_SUCCEED) {
    columns = 0;
    trace.error()("fetch_data: res_info failed");
    return ret;
  }
  if (columns <= 0) {
    trace.error()("fetch_data: no cols!");
    return CS_FAIL;
  }
  return CS_SUCCEED;
}

// Binds an only column. It has a road of its own because every request's status takes it twice: on the other one the
// branch cycle costs 612 instructions more.
int32_t bind_only_column(QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  use_only_column(results);
  XA_ONE_COLUMN &only = results.res_only;
  return bind_column(command, 1, rows, only.room, sizeof only.room, only.format, &only.data, &only.lengths,
                     &only.indicators);
}

int32_t bind_columns(QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  if (!allocate_arrays(results)) {
    return CS_MEM_ERROR;
  }
  int32_t bound = CS_SUCCEED;
  for (int32_t column = 0; column < results.res_ncols && bound == CS_SUCCEED; ++column) {
    bound = bind_column(command, column + 1, rows, nullptr, 0, results.res_fmts[column], &results.res_data[column],
                        &results.res_lens[column], &results.res_inds[column]);
  }
  return bound;
}

// Binds the current result's columns and fetches a batch of rows. The descriptor's pointers are null before.
int32_t fetch(TraceScope trace, QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  int32_t ret = count_columns(trace, command, results.res_ncols);
  if (ret != CS_SUCCEED) {
    return ret;
  }
  ret = results.res_ncols == 1 ? bind_only_column(command, results, rows) : bind_columns(command, results, rows);
  if (ret != CS_SUCCEED) {
    give_up(results);
    return ret;
  }
  return ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &results.res_rowsread);
}

// Makes sure that no further row follows: CS_END_DATA. It is a fetch of its own in the trace. When a row did follow, or
// the check failed, the command's results are cancelled.
int32_t check_no_more_rows(QLT_COMMAND *command) {
  const TraceScope trace("xa__conn_fetch_data", TRACE_CONN);
  XA_RESULTS scratch;
  const ResultsScope scope(scratch);
  const int32_t ret = trace.cs(fetch(trace, command, scratch, 1));
  if (ret != CS_END_DATA) {
    // The caller learns of the further rows by the check's code; a failing cancel adds nothing to it.
    static_cast<void>(ct_cancel(nullptr, command, CS_CANCEL_ALL));
  }
  return ret;
}

bool fetch_again(int32_t code) {
  return code == CS_ROW_FAIL || code == CS_PENDING || code == CS_BUSY;
}

}  // namespace

int32_t xa__conn_fetch_1c1r(QLT_COMMAND *command, int32_t datatype, int32_t format, void *buffer, int32_t maxlen) {
  const TraceScope trace("xa__conn_fetch_1c1r", TRACE_MISC);
  int32_t columns = 0;
  int32_t ret = ct_res_info(command, QLT_NUM_COLUMNS, &columns, QLT_UNUSED, nullptr);
  if (ret != CS_SUCCEED) {
    trace.error()("xa__conn_fetch_1c1r: unable to obtain result information (%s)", xacmn_log_dump_csrc(ret));
    return trace.cs(ret);
  }
  if (columns != 1) {
    trace.error()("xa__conn_fetch_1c1r: not one column (%d)", columns);
    return trace.cs(CS_FAIL);
  }
  QLT_FORMAT column{};
  ret = ct_describe(command, 1, &column);
  if (ret != CS_SUCCEED) {
    trace.error()("xa__conn_fetch_1c1r: unable to obtain data format (%s)", xacmn_log_dump_csrc(ret));
    return trace.cs(ret);
  }
  column.fmt_datatype = datatype;
  column.fmt_format = format;
  column.fmt_maxlen = maxlen;
  column.fmt_count = 1;
  ret = ct_bind(command, 1, &column, buffer, nullptr, nullptr);
  if (ret != CS_SUCCEED) {
    trace.error()("xa__conn_fetch_1c1r: unable to bind to get row (%s)", xacmn_log_dump_csrc(ret));
    return trace.cs(ret);
  }
  int32_t rows = 0;
  do {
    ret = ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &rows);
  } while (fetch_again(ret));
  if (ret == CS_SUCCEED && rows != 1) {
    // This spelling stays: operators and scripts search for it.
    trace.error()("xa__conn_fetch_1c1r: imp[roper number of rows %d", rows);
    return trace.cs(CS_FAIL);
  }
  return trace.cs(ret);
}

int32_t xa__conn_fetch_data(QLT_COMMAND *command, XA_RESULTS *results) {
  const TraceScope trace("xa__conn_fetch_data", TRACE_CONN);
  const int32_t ret = fetch(trace, command, *results, results->res_rows > 0 ? results->res_rows : 1);
  if (ret != CS_SUCCEED || results->res_rows <= 0) {
    return trace.cs(ret);
  }
  return trace.cs(check_no_more_rows(command));
}

int32_t xa__conn_free_results(XA_RESULTS *results) {
  const TraceScope trace("xa__conn_free_results", TRACE_CONN);
  free_buffers(*results);
  results->res_rowsread = 0;
  results->res_ncols = 0;
  results->res_fmts = nullptr;
  results->res_data = nullptr;
  results->res_lens = nullptr;
  results->res_inds = nullptr;
  return trace.cs(CS_SUCCEED);
}

int32_t xa__conn_discard_results(QLT_COMMAND *command) {
  // One pause for the whole draining: it touches nothing but the command, which the caller's connection owns.
  const SerialisePause pause;
  for (;;) {
    int32_t type = 0;
    const int32_t code = ct_results(command, &type);
    if (code != CS_SUCCEED) {
      return code;
    }
    if (type == CS_ROW_RESULT || type == QLT_CURSOR_RESULT || type == CS_PARAM_RESULT || type == CS_STATUS_RESULT ||
        type == QLT_COMPUTE_RESULT) {
      // The next ct_results shows whether it worked.
      static_cast<void>(ct_cancel(nullptr, command, QLT_CANCEL_CURRENT));
    }
  }
}
