// The flavour that a ready-made module works in.
#pragma once

#include "xadtm_lp64.h"

// The switch record of the flavour that "XADTM_FLAVOUR" names, that of TXS when it is empty or not set. When it names
// none: a record whose open writes so to standard error and answers XAER_INVAL, while nothing else is available.
const xadtm_lp64_switch *chosen_flavour();
