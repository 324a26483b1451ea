// Plays a parsed script against the loaded libraries.
#pragma once

#include "libraries.h"
#include "script.h"

// Runs the commands in order, printing each with its result on standard output, up to the first result that is not the
// expected one, which is explained on standard error. True when there was none.
bool play(const Script &script, const Libraries &libraries);
