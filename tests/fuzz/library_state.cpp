#include "library_state.h"

#include "fuzz.h"
#include "xadtm.h"

void fuzz::use_library_without_log() {
  static const bool open = xalog_open_file("/dev/null") == 1;
  require(open, "the log opens");
}
