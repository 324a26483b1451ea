// Com_getenv, the process's environment as the C library keeps it.
#include <cstdlib>

#include "common_routines.h"

const char *com_getenv(const char *name) {
  return name == nullptr ? nullptr : std::getenv(name);
}
