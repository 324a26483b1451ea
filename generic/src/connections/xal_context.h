// The process's client-library context.
#pragma once

#include <cstdint>

#include "config/xal_settings.h"
#include "quillet.h"

// Set by xl_init once it is initialised, used by every connection, never released.
extern CS_CONTEXT *xl_context;

// Sets the context up and applies the context settings: 1, or 0 at the first step that fails. To be tried again for as
// long as there is no context.
int32_t xl_init(const XA_SETTING *settings);
