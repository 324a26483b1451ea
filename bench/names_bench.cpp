// The time of encoding and decoding a branch name of 64 + 64 bytes, and of one log line next to a plain fprintf and
// fflush of the same text.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "dtm/xal_dtm.h"
#include "log/xal_log.h"
#include "record/xal_record.h"

namespace {

XID full_size_xid() {
  XID xid{};
  xid.formatID = 0x5841;
  xid.gtrid_length = MAXGTRIDSIZE;
  xid.bqual_length = MAXBQUALSIZE;
  for (int32_t i = 0; i < XIDDATASIZE; ++i) {
    xid.data[i] = static_cast<char>(i * 7 + 1);
  }
  return xid;
}

void encode_name(benchmark::State &state) {
  const XID xid = full_size_xid();
  char name[XA_NAME_SIZE];
  for (auto _ : state) {
    benchmark::DoNotOptimize(xa__dtm_encode_xid(&xid, "L1", name));
  }
}
BENCHMARK(encode_name);

void decode_name(benchmark::State &state) {
  const XID xid = full_size_xid();
  char gtrid[96];
  char bqual[96];
  xa__dtm_encode(xid.data, MAXGTRIDSIZE, gtrid);
  xa__dtm_encode(xid.data + MAXGTRIDSIZE, MAXBQUALSIZE, bqual);
  char data[XIDDATASIZE];
  for (auto _ : state) {
    benchmark::DoNotOptimize(xa__dtm_decode(gtrid, data));
    benchmark::DoNotOptimize(xa__dtm_decode(bqual, data + MAXGTRIDSIZE));
  }
}
BENCHMARK(decode_name);

constexpr char text[] = " retstat: 0 ([XA_OK])";

void log_line(benchmark::State &state) {
  if (xalog_open_file("/dev/null") != 1) {
    state.SkipWithError("the log could not be opened");
    return;
  }
  for (auto _ : state) {
    xalog_msg("xa_commit", text, 42, XALOG_XA);
  }
}
BENCHMARK(log_line);

void plain_fprintf(benchmark::State &state) {
  FILE *file = fopen("/dev/null", "a+");
  if (file == nullptr) {
    state.SkipWithError("the file could not be opened");
    return;
  }
  for (auto _ : state) {
    fprintf(file, "%s: 0x%x,%s: [%s/%d] %s: %s\n", "2026/01/02 03:04:05", 0x4d2U, "N/A", "xa_commit", 42, "XA trace",
            text);
    fflush(file);
  }
  fclose(file);
}
BENCHMARK(plain_fprintf);

}  // namespace

BENCHMARK_MAIN();
