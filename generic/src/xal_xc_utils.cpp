// Reading what the server sends back: one value into a caller's buffer, a whole result into fresh buffers, and the
// discarding of whatever is left. Works on a command that has a result pending.
//
// The caller holds the serialisation mutex; only xa__conn_discard_results gives it up, since draining may block.
#include <algorithm>

#include "common_routines.h"
#include "xal_conn.h"
#include "xal_log.h"
#include "xal_personality.h"

namespace {

// Zeroed memory for count items; null when memory is short or the size makes no sense.
template <typename Item>
Item *allocate_items(int64_t count) {
  if (count < 0 || count > INT32_MAX) {
    return nullptr;
  }
  const size_t size = std::max<size_t>(static_cast<size_t>(count) * sizeof(Item), 1);
  auto *items = static_cast<Item *>(comn_malloc(size));
  if (items != nullptr) {
    memset(static_cast<void *>(items), 0, size);
  }
  return items;
}

template <typename Item>
void free_item(Item *&item) {
  if (item != nullptr) {
    comn_free(item);
    item = nullptr;
  }
}

template <typename Item>
void free_columns(Item **columns, int32_t count) {
  for (int32_t i = 0; columns != nullptr && i < count; ++i) {
    free_item(columns[i]);
  }
}

bool allocate_columns(XA_RESULTS &results) {
  results.res_fmts = allocate_items<QLT_FORMAT>(results.res_ncols);
  if (results.res_fmts == nullptr) {
    return false;
  }
  results.res_data = allocate_items<char *>(results.res_ncols);
  if (results.res_data == nullptr) {
    return false;
  }
  results.res_lens = allocate_items<int32_t *>(results.res_ncols);
  if (results.res_lens == nullptr) {
    return false;
  }
  results.res_inds = allocate_items<int32_t *>(results.res_ncols);
  return results.res_inds != nullptr;
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
  results.res_data[column] = allocate_items<char>(static_cast<int64_t>(format.fmt_maxlen) * rows);
  results.res_lens[column] = allocate_items<int32_t>(rows);
  results.res_inds[column] = allocate_items<int32_t>(rows);
  if (results.res_data[column] == nullptr || results.res_lens[column] == nullptr ||
      results.res_inds[column] == nullptr) {
    return CS_MEM_ERROR;
  }
  return ct_bind(command, column + 1, &format, results.res_data[column], results.res_lens[column],
                 results.res_inds[column]);
}

// Binds every column; on a failure everything is freed and the counts stand as they did.
int32_t bind_columns(QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  for (int32_t column = 0; column < results.res_ncols; ++column) {
    const int32_t bound = bind_column(command, results, column, rows);
    if (bound != CS_SUCCEED) {
      const int32_t ncols = results.res_ncols;
      const int32_t rowsread = results.res_rowsread;
      xa__conn_free_results(&results);
      results.res_ncols = ncols;
      results.res_rowsread = rowsread;
      return bound;
    }
  }
  return CS_SUCCEED;
}

// Makes sure that no further row follows: CS_END_DATA. Otherwise the command's results are cancelled.
int32_t check_no_more_rows(QLT_COMMAND *command) {
  XA_RESULTS scratch{};
  const ResultsScope scope(scratch);
  const int32_t ret = xa__conn_fetch_data(command, &scratch);
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
  const int32_t rows = results->res_rows > 0 ? results->res_rows : 1;
  int32_t ret = ct_res_info(command, QLT_NUM_COLUMNS, &results->res_ncols, QLT_UNUSED, nullptr);
  if (ret != CS_SUCCEED) {
    results->res_ncols = 0;
    trace.error()("fetch_data: res_info failed");
    return trace.cs(ret);
  }
  if (results->res_ncols <= 0) {
    trace.error()("fetch_data: no cols!");
    return trace.cs(CS_FAIL);
  }
  if (!allocate_columns(*results)) {
    return trace.cs(CS_MEM_ERROR);
  }
  ret = bind_columns(command, *results, rows);
  if (ret != CS_SUCCEED) {
    return trace.cs(ret);
  }
  ret = ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &results->res_rowsread);
  if (ret != CS_SUCCEED) {
    return trace.cs(ret);
  }
  if (results->res_rows <= 0) {
    return trace.cs(CS_SUCCEED);
  }
  return trace.cs(check_no_more_rows(command));
}

int32_t xa__conn_free_results(XA_RESULTS *results) {
  const TraceScope trace("xa__conn_free_results", TRACE_CONN);
  free_columns(results->res_data, results->res_ncols);
  free_columns(results->res_lens, results->res_ncols);
  free_columns(results->res_inds, results->res_ncols);
  results->res_ncols = 0;
  results->res_rowsread = 0;
  free_item(results->res_data);
  free_item(results->res_fmts);
  free_item(results->res_lens);
  free_item(results->res_inds);
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
