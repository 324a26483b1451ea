// Reading what the server sends back: one value into a caller's buffer, a whole result into fresh buffers, and the
// discarding of whatever is left. Works on a command that has a result pending.
//
// The caller holds the serialisation mutex; only xa__conn_discard_results gives it up, since draining may block.
#include "common_routines.h"
#include "xal_conn.h"
#include "xal_log.h"
#include "xal_personality.h"

namespace {

// The four arrays of a descriptor lie in one block, which begins with the formats.
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

// Gives a column its data buffer, lengths and indicators, in one block that begins with the data; a null value leaves
// its place in the data zero. False when memory is short, or the length is none that a column can have.
bool allocate_column(XA_RESULTS &results, int32_t column, int32_t maxlen, int32_t rows) {
  if (maxlen < 0) {
    return false;
  }
  const auto count = static_cast<size_t>(rows);
  const size_t data_size = (static_cast<size_t>(maxlen) * count + sizeof(int32_t) - 1) & ~(sizeof(int32_t) - 1);
  const size_t size = data_size + 2 * count * sizeof(int32_t);
  auto *block = static_cast<char *>(comn_malloc(size));
  if (block == nullptr) {
    return false;
  }
  memset(block, 0, size);
  auto *words = reinterpret_cast<int32_t *>(block + data_size);
  results.res_data[column] = block;
  results.res_lens[column] = words;
  results.res_inds[column] = words + count;
  return true;
}

// Describes a column (counted from 0 here, from 1 by the client library) and binds it to buffers for rows rows.
int32_t bind_column(QLT_COMMAND *command, XA_RESULTS &results, int32_t column, int32_t rows) {
  QLT_FORMAT &format = results.res_fmts[column];
  const int32_t described = ct_describe(command, column + 1, &format);
  if (described != CS_SUCCEED) {
    return described;
  }
  format.fmt_name[sizeof format.fmt_name - 1] = '\0';
  format.fmt_count = rows;
  if (!allocate_column(results, column, format.fmt_maxlen, rows)) {
    return CS_MEM_ERROR;
  }
  return ct_bind(command, column + 1, &format, results.res_data[column], results.res_lens[column],
                 results.res_inds[column]);
}

// Binds every column; on a failure everything is freed and the counts stand as they did.
int32_t bind_columns(QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  if (!allocate_arrays(results)) {
    return CS_MEM_ERROR;
  }
  const int32_t columns = results.res_ncols;
  for (int32_t column = 0; column < columns; ++column) {
    const int32_t bound = bind_column(command, results, column, rows);
    if (bound != CS_SUCCEED) {
      const int32_t rowsread = results.res_rowsread;
      xa__conn_free_results(&results);
      results.res_ncols = columns;
      results.res_rowsread = rowsread;
      return bound;
    }
  }
  return CS_SUCCEED;
}

// Reads the number of columns of the current result; CS_FAIL when it has none.
int32_t count_columns(const TraceScope &trace, QLT_COMMAND *command, int32_t &columns) {
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

// Binds the result's columns and fetches a batch of rows; res_ncols is set and the pointers are null.
int32_t fetch_batch(QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  const int32_t bound = bind_columns(command, results, rows);
  if (bound != CS_SUCCEED) {
    return bound;
  }
  return ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &results.res_rowsread);
}

constexpr int32_t short_value = 64;

// Fetches one more row of a result with a single column. Nobody looks at the row, so a short value goes to the stack.
int32_t fetch_further_value(QLT_COMMAND *command) {
  QLT_FORMAT format{};
  const int32_t described = ct_describe(command, 1, &format);
  if (described != CS_SUCCEED) {
    return described;
  }
  if (format.fmt_maxlen < 0) {
    return CS_MEM_ERROR;
  }
  char value[short_value];
  char *data = format.fmt_maxlen <= short_value
                   ? value
                   : static_cast<char *>(comn_malloc(static_cast<size_t>(format.fmt_maxlen)));
  if (data == nullptr) {
    return CS_MEM_ERROR;
  }
  format.fmt_count = 1;
  int32_t length = 0;
  int32_t indicator = 0;
  int32_t rows = 0;
  int32_t ret = ct_bind(command, 1, &format, data, &length, &indicator);
  if (ret == CS_SUCCEED) {
    ret = ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &rows);
  }
  if (data != value) {
    comn_free(data);
  }
  return ret;
}

// What it allocated, when the result has several columns, stays in the descriptor.
int32_t fetch_further_row(QLT_COMMAND *command, XA_RESULTS &scratch) {
  const TraceScope trace("xa__conn_fetch_data", TRACE_CONN);
  int32_t columns = 0;
  const int32_t counted = count_columns(trace, command, columns);
  if (counted != CS_SUCCEED) {
    return trace.cs(counted);
  }
  if (columns == 1) {
    return trace.cs(fetch_further_value(command));
  }
  scratch.res_ncols = columns;
  return trace.cs(fetch_batch(command, scratch, 1));
}

// Makes sure that no further row follows: CS_END_DATA. Otherwise the command's results are cancelled.
int32_t check_no_more_rows(QLT_COMMAND *command) {
  XA_RESULTS scratch{};
  const ResultsScope scope(scratch);
  const int32_t ret = fetch_further_row(command, scratch);
  if (ret != CS_END_DATA) {
    // The caller learns of the further rows by the code; a failing cancel adds nothing to it.
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
    trace.error()("xa__conn_fetch_1c1r: imp[roper number of rows %d", rows);
    return trace.cs(CS_FAIL);
  }
  return trace.cs(ret);
}

int32_t xa__conn_fetch_data(QLT_COMMAND *command, XA_RESULTS *results) {
  const TraceScope trace("xa__conn_fetch_data", TRACE_CONN);
  results->res_fmts = nullptr;
  results->res_data = nullptr;
  results->res_lens = nullptr;
  results->res_inds = nullptr;
  int32_t ret = count_columns(trace, command, results->res_ncols);
  if (ret == CS_SUCCEED) {
    ret = fetch_batch(command, *results, results->res_rows > 0 ? results->res_rows : 1);
  }
  if (ret != CS_SUCCEED || results->res_rows <= 0) {
    return trace.cs(ret);
  }
  return trace.cs(check_no_more_rows(command));
}

int32_t xa__conn_free_results(XA_RESULTS *results) {
  const TraceScope trace("xa__conn_free_results", TRACE_CONN);
  if (results->res_fmts != nullptr) {
    for (int32_t column = 0; column < results->res_ncols; ++column) {
      if (results->res_data[column] != nullptr) {
        comn_free(results->res_data[column]);
      }
    }
    comn_free(results->res_fmts);
  }
  XA_RESULTS emptied{};
  emptied.res_rows = results->res_rows;
  *results = emptied;
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
