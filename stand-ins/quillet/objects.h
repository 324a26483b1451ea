// What other files of the library need of the object registry beside cs_objects.
#pragma once

#include "exports.h"

namespace quillet {

int32_t live_objects();
// One CS_GET, CS_SET or QLT_CLEAR, as cs_objects does it.
int32_t access_objects(int32_t action, const QLT_OBJECT_NAME &name, QLT_OBJECT_DATA *data);

}  // namespace quillet
