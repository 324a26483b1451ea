// Fetching: rows of a result into the caller's buffers, or into ones that are made for them. The caller holds the
// serialisation mutex; only what is discarded is waited for without it.
#pragma once

#include <cstdint>

#include "quillet.h"

// Where the only column of a result is kept, with room for two short values, their lengths and indicators.
struct XA_ONE_COLUMN {
  QLT_FORMAT format;
  char *data;
  int32_t *lengths;
  int32_t *indicators;
  alignas(int32_t) char room[80];
};

// A fetched result. The caller sets res_rows and frees the rest with xa__conn_free_results, whatever the fetch said.
// The arrays of several columns share one heap block, which res_fmts begins, and each column's buffers another, which
// its res_data begins. An only column, such as a status, lies in the descriptor itself, which therefore stays where it
// is; its buffers as well, unless they are too long.
struct XA_RESULTS {
  int32_t res_rows = 0;      // rows wanted; 0 or less: one, and no check that none follows
  int32_t res_rowsread = 0;  // rows that came
  int32_t res_ncols = 0;     // columns, and elements of each array
  QLT_FORMAT *res_fmts = nullptr;
  char **res_data = nullptr;     // a column's values, fmt_maxlen bytes each
  int32_t **res_lens = nullptr;  // their lengths in bytes
  int32_t **res_inds = nullptr;  // their indicators; a null value leaves its place in the data zero
  XA_ONE_COLUMN res_only;        // not to be read before a fetch

  XA_RESULTS() {}  // leaves res_only alone, which every request would pay for
  XA_RESULTS(const XA_RESULTS &) = delete;
  XA_RESULTS &operator=(const XA_RESULTS &) = delete;
};

// The command's current result must have one column; its first value goes into the buffer of maxlen bytes, converted to
// datatype and format. CS_SUCCEED; CS_END_DATA without a row; CS_FAIL with other than one column or one row; else the
// code of the client call that failed. What follows the value stays on the command.
int32_t xa__conn_fetch_1c1r(QLT_COMMAND *command, int32_t datatype, int32_t format, void *buffer, int32_t maxlen);
// The command's current result into buffers made for it. With res_rows above 0 a row behind them is an error, and
// everything that the command still has is cancelled then. CS_END_DATA: all rows came; CS_SUCCEED: more than res_rows,
// or res_rows is 0 or less and a row came; CS_MEM_ERROR, CS_FAIL without columns; else the code of the client call that
// failed.
int32_t xa__conn_fetch_data(QLT_COMMAND *command, XA_RESULTS *results);
// Frees the buffers and clears the descriptor but for res_rows. Always CS_SUCCEED.
int32_t xa__conn_free_results(XA_RESULTS *results);
// Throws the remaining results away, giving the serialisation mutex up meanwhile. The last code of ct_results:
// CS_END_RESULTS when the command is free again.
int32_t xa__conn_discard_results(QLT_COMMAND *command);

// Frees what a fetch left in its descriptor, whichever way the scope is left.
class ResultsScope {
 public:
  explicit ResultsScope(XA_RESULTS &results) : results_(results) {}
  ~ResultsScope() { xa__conn_free_results(&results_); }
  ResultsScope(const ResultsScope &) = delete;
  ResultsScope &operator=(const ResultsScope &) = delete;

 private:
  XA_RESULTS &results_;
};
