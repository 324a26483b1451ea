// What libFuzzer calls: the entry that FUZZED names.
#include <cstddef>
#include <cstdint>

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
  fuzz::FUZZED({reinterpret_cast<const char *>(data), size});
  return 0;
}
