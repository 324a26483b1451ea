// Who marks the rmid first and then looks at the others' marks cannot miss one that was made before its own.
#include "scans.h"

bool Scans::begin(int32_t rmid, uint32_t &place) {
  const uint64_t mark = mark_of(rmid);
  uint64_t expected = nothing;
  for (place = 0; place < XADTM_LP64_OPEN_RMS; ++place) {
    expected = nothing;
    if (rmids_[place].compare_exchange_strong(expected, mark)) {
      break;
    }
  }
  if (place == XADTM_LP64_OPEN_RMS) {
    return false;
  }
  for (uint32_t i = 0; i < XADTM_LP64_OPEN_RMS; ++i) {
    if (i != place && rmids_[i].load() == mark) {
      end(place);
      return false;
    }
  }
  return true;
}
