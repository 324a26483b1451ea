// The public headers, with the visibility that lets the version script export what they declare.
#pragma once

#pragma GCC visibility push(default)
#include "quillet.h"
#include "quillet_control.h"
#pragma GCC visibility pop
