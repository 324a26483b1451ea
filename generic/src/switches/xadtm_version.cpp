// The library's version string and proprietary notice, exported for tools. The version is the first line of every log.
#include "xadtm.h"

extern "C" {

const char *const xadtm__Vdate =
    "Tarvex XA Interface library for ZDB-DTM/12.0/GA/sun_svr4/SPARC Solaris 2.5.1/OPT/Mon Sep 20 13:14:14 1999";

const char *const xadtm__Vcopyright =
    "XA Interface library for ZDB-DTM.\n"
    "This library is the property of its authors. It may be loaded by any transaction manager that drives ZDB servers\n"
    "through the X/Open XA interface; it may not be sold or passed off as another product.\n";

const char *xadtm__getVdate(void) {
  return xadtm__Vdate;
}

}  // extern "C"
