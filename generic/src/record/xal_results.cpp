// Reading what the server sends back: one value into a caller's buffer, a whole result into fresh buffers, and the
// discarding of whatever is left. Works on a command that has a result pending.
//
// Every request's status comes through xa__conn_fetch_data, so the road of a result with a single column is short and
// straight; results of several columns branch off it.
//
// The caller holds the serialisation mutex; only xa__conn_discard_results gives it up, since draining may block.
#include <cstring>

#include "common_routines.h"
#include "log/xal_log.h"
#include "personality/xal_personality.h"
#include "quillet.h"
#include "record/xal_results.h"

namespace {

// ---- Results of one column ------------------------------------------------------------------------------------------

constexpr int32_t short_rows = 2;
constexpr int32_t short_value = 32;

// What a result of one column is bound to, with room for the short values that nearly all of them carry. data points at
// value, or at a heap block of its own that holds the lengths and indicators too.
struct SINGLE_COLUMN {
  QLT_FORMAT format;
  char *data;
  int32_t *lengths;
  int32_t *indicators;
  int32_t length[short_rows];
  int32_t indicator[short_rows];
  char value[short_rows * short_value];
};

// Buffers for rows values of a column in one zeroed block that begins with the data; a null value leaves its place in
// the data zero. False when memory is short, or the length is none that a column can have.
bool allocate_buffers(int32_t maxlen, int32_t rows, char **data, int32_t **lengths, int32_t **indicators) {
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
  *data = block;
  *lengths = reinterpret_cast<int32_t *>(block + data_size);
  *indicators = *lengths + count;
  return true;
}

bool place_single(SINGLE_COLUMN &column, int32_t rows) {
  const int32_t maxlen = column.format.fmt_maxlen;
  const bool fits = maxlen >= 0 && maxlen <= short_value && rows <= short_rows;
  if (__builtin_expect(fits ? 1 : 0, 1) == 0) {
    return allocate_buffers(maxlen, rows, &column.data, &column.lengths, &column.indicators);
  }
  column.data = column.value;
  column.lengths = column.length;
  column.indicators = column.indicator;
  return true;
}

// Describes the only column and binds it for rows rows. The column is zeroed before, and released afterwards.
[[gnu::always_inline]] inline int32_t bind_single(QLT_COMMAND *command, SINGLE_COLUMN &column, int32_t rows) {
  const int32_t described = ct_describe(command, 1, &column.format);
  if (described != CS_SUCCEED) {
    return described;
  }
  column.format.fmt_name[sizeof column.format.fmt_name - 1] = '\0';
  column.format.fmt_count = rows;
  if (!place_single(column, rows)) {
    return CS_MEM_ERROR;
  }
  return ct_bind(command, 1, &column.format, column.data, column.lengths, column.indicators);
}

void release_single(SINGLE_COLUMN &column) {
  if (column.data != nullptr && column.data != column.value) {
    comn_free(column.data);
  }
}

// ---- Results of any number of columns -------------------------------------------------------------------------------

// The four arrays of a descriptor lie in one block, which begins with the formats; false when memory is short.
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

// The record that the descriptor of a result with a single column points into.
SINGLE_COLUMN &single_column(const XA_RESULTS &results) {
  static_assert(offsetof(SINGLE_COLUMN, format) == 0);
  return *reinterpret_cast<SINGLE_COLUMN *>(results.res_fmts);
}

// Frees everything after a failed binding; the counts stand as they did.
[[gnu::cold]] void give_up(XA_RESULTS &results) {
  const int32_t columns = results.res_ncols;
  const int32_t rowsread = results.res_rowsread;
  xa__conn_free_results(&results);
  results.res_ncols = columns;
  results.res_rowsread = rowsread;
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
  if (!allocate_buffers(format.fmt_maxlen, rows, &results.res_data[column], &results.res_lens[column],
                        &results.res_inds[column])) {
    return CS_MEM_ERROR;
  }
  return ct_bind(command, column + 1, &format, results.res_data[column], results.res_lens[column],
                 results.res_inds[column]);
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

int32_t fetch_rows(QLT_COMMAND *command, int32_t *rowsread) {
  return ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, rowsread);
}

// Binds the columns of a result that has several and fetches a batch of rows; res_ncols is set, the pointers are null.
[[gnu::noinline]] int32_t fetch_columns(QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  if (!allocate_arrays(results)) {
    return CS_MEM_ERROR;
  }
  for (int32_t column = 0; column < results.res_ncols; ++column) {
    const int32_t bound = bind_column(command, results, column, rows);
    if (bound != CS_SUCCEED) {
      give_up(results);
      return bound;
    }
  }
  return fetch_rows(command, &results.res_rowsread);
}

// The same for a result with a single column, whose arrays are the members of its record.
int32_t fetch_only_column(QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  auto *column = static_cast<SINGLE_COLUMN *>(comn_malloc(sizeof(SINGLE_COLUMN)));
  if (column == nullptr) {
    return CS_MEM_ERROR;
  }
  memset(column, 0, sizeof *column);
  results.res_fmts = &column->format;
  results.res_data = &column->data;
  results.res_lens = &column->lengths;
  results.res_inds = &column->indicators;
  const int32_t bound = bind_single(command, *column, rows);
  if (bound != CS_SUCCEED) {
    give_up(results);
    return bound;
  }
  return fetch_rows(command, &results.res_rowsread);
}

// Ends the check for a further row: when one followed, or the check failed, the command's results are cancelled.
void cancel_unless_ended(QLT_COMMAND *command, int32_t checked) {
  if (checked != CS_END_DATA) {
    // The caller learns of the further rows by the check's code; a failing cancel adds nothing to it.
    static_cast<void>(ct_cancel(nullptr, command, CS_CANCEL_ALL));
  }
}

[[gnu::noinline]] int32_t check_further_columns(TraceScope trace, QLT_COMMAND *command, int32_t columns) {
  XA_RESULTS scratch{};
  scratch.res_ncols = columns;
  const ResultsScope scope(scratch);
  const int32_t ret = trace.cs(fetch_columns(command, scratch, 1));
  cancel_unless_ended(command, ret);
  return ret;
}

// The stack's buffers are freed without a call; the trace shows it all the same.
void trace_freeing() {
  TraceScope("xa__conn_free_results", TRACE_CONN).cs(CS_SUCCEED);
}

// Makes sure that no further row follows: CS_END_DATA. It is a fetch of its own in the trace. Nobody looks at the row,
// so a short single value goes to the stack.
[[gnu::always_inline]] inline int32_t check_no_more_rows(QLT_COMMAND *command) {
  const TraceScope trace("xa__conn_fetch_data", TRACE_CONN);
  int32_t columns = 0;
  int32_t ret = count_columns(trace, command, columns);
  if (columns > 1) {
    return check_further_columns(trace, command, columns);
  }
  SINGLE_COLUMN column{};
  if (ret == CS_SUCCEED) {
    ret = bind_single(command, column, 1);
    if (ret == CS_SUCCEED) {
      int32_t rows = 0;
      ret = fetch_rows(command, &rows);
    } else {
      trace_freeing();
    }
  }
  trace.cs(ret);
  cancel_unless_ended(command, ret);
  release_single(column);
  trace_freeing();
  return ret;
}

void free_buffers(const XA_RESULTS &results) {
  if (results.res_ncols == 1) {
    release_single(single_column(results));
    return;
  }
  for (int32_t column = 0; column < results.res_ncols; ++column) {
    if (results.res_data[column] != nullptr) {
      comn_free(results.res_data[column]);
    }
  }
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
    const int32_t rows = results->res_rows > 0 ? results->res_rows : 1;
    ret = results->res_ncols == 1 ? fetch_only_column(command, *results, rows) : fetch_columns(command, *results, rows);
  }
  if (ret != CS_SUCCEED || results->res_rows <= 0) {
    return trace.cs(ret);
  }
  return trace.cs(check_no_more_rows(command));
}

int32_t xa__conn_free_results(XA_RESULTS *results) {
  const TraceScope trace("xa__conn_free_results", TRACE_CONN);
  if (results->res_fmts != nullptr) {
    free_buffers(*results);
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
