// Where the library writes its trace log.
#pragma once

#include <string>

#include "libraries.h"

// The place that the first open of a process chooses: the logfile entry of the configuration file, else -L of the open
// string, else $XALOGFILE, else $TARVEX/trv_xa_log, else standard error.
std::string log_place(const Libraries &libraries, const std::string &open_string);
