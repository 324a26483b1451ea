// The flavour that a ready-made module works in.
#pragma once

#include "xadtm_lp64.h"

// The switch record of the flavour that "XADTM_FLAVOUR" names, that of TXS unless it is set. Null, with a message on
// standard error, when it names none.
const xadtm_lp64_switch *chosen_flavour();
