/* exports.h - the public headers, with the visibility that lets the version script export what they declare. */
#ifndef QUILLET_EXPORTS_H
#define QUILLET_EXPORTS_H

#pragma GCC visibility push(default)
#include "quillet.h"
#include "quillet_control.h"
#pragma GCC visibility pop

#endif /* QUILLET_EXPORTS_H */
