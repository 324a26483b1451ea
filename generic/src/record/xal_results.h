// Fetching: rows of a result into the caller's buffers, or into ones that are made for them. The caller holds the
// serialisation mutex; only what is discarded is waited for without it.
#pragma once

#include <cstdint>

#include "quillet.h"

// A fetched result. The caller sets res_rows and frees the rest with xa__conn_free_results, whatever the fetch said.
// The arrays share one heap block, which res_fmts begins, and each column's buffers another, which its res_data begins;
// a single column's short buffers lie in the first.
struct XA_RESULTS {
  int32_t res_rows;
  int32_t res_rowsread;
  int32_t res_ncols;
  QLT_FORMAT *res_fmts;
  char **res_data;
  int32_t **res_lens;
  int32_t **res_inds;
};

int32_t xa__conn_fetch_1c1r(QLT_COMMAND *command, int32_t datatype, int32_t format, void *buffer, int32_t maxlen);
int32_t xa__conn_fetch_data(QLT_COMMAND *command, XA_RESULTS *results);
int32_t xa__conn_free_results(XA_RESULTS *results);
// Throws the remaining results away, giving the serialisation mutex up meanwhile. The last code of ct_results.
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
