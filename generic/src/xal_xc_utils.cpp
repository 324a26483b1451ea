// Reading what the server sends back: one value into a caller's buffer, a whole result into fresh buffers, and the
// discarding of whatever is left. Works on a command that has a result pending.
//
// The caller holds the serialisation mutex; only xa__conn_discard_results gives it up, since draining may block.
#include "common_routines.h"
#include "xal_conn.h"
#include "xal_log.h"
#include "xal_personality.h"

namespace {

// Where a fetch's blocks come from. What the caller gets comes from the heap; the check for a further row, whose result
// nobody sees, uses a little room on the stack, and the heap for what does not fit.
struct HeapBlocks {
  static void *take(size_t size) { return comn_malloc(size); }
  static void give(void *block) { comn_free(block); }
};

class StackBlocks {
 public:
  void *take(size_t size) {
    const size_t rounded = (size + alignof(void *) - 1) & ~(alignof(void *) - 1);
    if (rounded > static_cast<size_t>(room_ + sizeof room_ - free_)) {
      return comn_malloc(size);
    }
    char *block = free_;
    free_ += rounded;
    return block;
  }
  void give(void *block) const {
    if (block < room_ || block >= room_ + sizeof room_) {
      comn_free(block);
    }
  }

 private:
  alignas(void *) char room_[320];
  char *free_ = room_;
};

// Frees what a fetch allocated and empties the descriptor, but for the rows wanted.
template <typename Blocks>
int32_t free_results(Blocks &blocks, XA_RESULTS &results) {
  const TraceScope trace("xa__conn_free_results", TRACE_CONN);
  if (results.res_fmts != nullptr) {
    for (int32_t column = 0; column < results.res_ncols; ++column) {
      if (results.res_data[column] != nullptr) {
        blocks.give(results.res_data[column]);
      }
    }
    blocks.give(results.res_fmts);
  }
  XA_RESULTS emptied{};
  emptied.res_rows = results.res_rows;
  results = emptied;
  return trace.cs(CS_SUCCEED);
}

// One fetch's columns: their arrays, buffers and bindings. The four arrays of the descriptor lie in one block, which
// begins with the formats.
template <typename Blocks>
class ColumnBinder {
 public:
  ColumnBinder(Blocks &blocks, QLT_COMMAND *command, XA_RESULTS &results, int32_t rows)
      : blocks_(blocks), command_(command), results_(results), rows_(rows) {}

  int32_t bind_all() {
    if (!allocate_arrays()) {
      return CS_MEM_ERROR;
    }
    for (int32_t column = 0; column < results_.res_ncols; ++column) {
      const int32_t bound = bind(column);
      if (bound != CS_SUCCEED) {
        unbind();
        return bound;
      }
    }
    return CS_SUCCEED;
  }

 private:
  static_assert(sizeof(QLT_FORMAT) % alignof(char *) == 0);

  // A fetch that failed leaves nothing allocated, and the counts as they stood.
  void unbind() {
    const int32_t columns = results_.res_ncols;
    const int32_t rowsread = results_.res_rowsread;
    free_results(blocks_, results_);
    results_.res_ncols = columns;
    results_.res_rowsread = rowsread;
  }

  bool allocate_arrays() {
    const auto columns = static_cast<size_t>(results_.res_ncols);
    const size_t size = columns * (sizeof(QLT_FORMAT) + sizeof(char *) + 2 * sizeof(int32_t *));
    void *block = blocks_.take(size);
    if (block == nullptr) {
      return false;
    }
    memset(block, 0, size);
    results_.res_fmts = static_cast<QLT_FORMAT *>(block);
    results_.res_data = reinterpret_cast<char **>(results_.res_fmts + columns);
    results_.res_lens = reinterpret_cast<int32_t **>(results_.res_data + columns);
    results_.res_inds = results_.res_lens + columns;
    return true;
  }

  // Gives a column its data buffer, lengths and indicators, in one block that begins with the data; a null value leaves
  // its place in the data zero. False when memory is short, or the length is none that a column can have.
  bool allocate(int32_t column, int32_t maxlen) {
    if (maxlen < 0) {
      return false;
    }
    const auto rows = static_cast<size_t>(rows_);
    const size_t data_size = (static_cast<size_t>(maxlen) * rows + sizeof(int32_t) - 1) & ~(sizeof(int32_t) - 1);
    const size_t size = data_size + 2 * rows * sizeof(int32_t);
    auto *block = static_cast<char *>(blocks_.take(size));
    if (block == nullptr) {
      return false;
    }
    memset(block, 0, size);
    auto *words = reinterpret_cast<int32_t *>(block + data_size);
    results_.res_data[column] = block;
    results_.res_lens[column] = words;
    results_.res_inds[column] = words + rows;
    return true;
  }

  // Describes a column (counted from 0 here, from 1 by the client library) and binds it.
  int32_t bind(int32_t column) {
    QLT_FORMAT &format = results_.res_fmts[column];
    const int32_t described = ct_describe(command_, column + 1, &format);
    if (described != CS_SUCCEED) {
      return described;
    }
    format.fmt_name[sizeof format.fmt_name - 1] = '\0';
    format.fmt_count = rows_;
    if (!allocate(column, format.fmt_maxlen)) {
      return CS_MEM_ERROR;
    }
    return ct_bind(command_, column + 1, &format, results_.res_data[column], results_.res_lens[column],
                   results_.res_inds[column]);
  }

  Blocks &blocks_;
  QLT_COMMAND *command_;
  XA_RESULTS &results_;
  int32_t rows_;
};

// Binds the current result and fetches its first batch of rows; the descriptor's pointers are null.
template <typename Blocks>
int32_t fetch_batch(const TraceScope &trace, Blocks &blocks, QLT_COMMAND *command, XA_RESULTS &results, int32_t rows) {
  int32_t ret = ct_res_info(command, QLT_NUM_COLUMNS, &results.res_ncols, QLT_UNUSED, nullptr);
  if (ret != CS_SUCCEED) {
    results.res_ncols = 0;
    trace.error()("fetch_data: res_info failed");
    return ret;
  }
  if (results.res_ncols <= 0) {
    trace.error()("fetch_data: no cols!");
    return CS_FAIL;
  }
  ret = ColumnBinder<Blocks>(blocks, command, results, rows).bind_all();
  if (ret != CS_SUCCEED) {
    return ret;
  }
  return ct_fetch(command, QLT_UNUSED, QLT_UNUSED, QLT_UNUSED, &results.res_rowsread);
}

// Makes sure that no further row follows: CS_END_DATA. Otherwise the command's results are cancelled.
int32_t check_no_more_rows(QLT_COMMAND *command) {
  StackBlocks blocks;
  XA_RESULTS scratch{};
  int32_t ret;
  {
    const TraceScope trace("xa__conn_fetch_data", TRACE_CONN);
    ret = trace.cs(fetch_batch(trace, blocks, command, scratch, 1));
  }
  if (ret != CS_END_DATA) {
    // The caller learns of the further rows by the code; a failing cancel adds nothing to it.
    static_cast<void>(ct_cancel(nullptr, command, CS_CANCEL_ALL));
  }
  free_results(blocks, scratch);
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
  HeapBlocks blocks;
  const int32_t rows = results->res_rows > 0 ? results->res_rows : 1;
  const int32_t ret = fetch_batch(trace, blocks, command, *results, rows);
  if (ret != CS_SUCCEED || results->res_rows <= 0) {
    return trace.cs(ret);
  }
  return trace.cs(check_no_more_rows(command));
}

int32_t xa__conn_free_results(XA_RESULTS *results) {
  HeapBlocks blocks;
  return free_results(blocks, *results);
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
