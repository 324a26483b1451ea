// The library's version string and copyright notice, exported for tools. The version is the first line of every log.
#include "xadtm.h"

extern "C" {

const char *const xadtm__Vdate =
    "Tarvex XA Interface library for ZDB-DTM/12.0/GA/sun_svr4/SPARC Solaris 2.5.1/OPT/Mon Sep 20 13:14:14 1999";

const char *const xadtm__Vcopyright = "Copyright 2026 the authors of libxadtm. All rights reserved.\n";

const char *xadtm__getVdate(void) {
  return xadtm__Vdate;
}

}  // extern "C"
