// Between the server's values and the client's memory: how columns are described, which formats can be
// bound, and values stored into bound memory or read from a parameter's.
#pragma once

#include <optional>

#include "exports.h"
#include "interface/session.h"

namespace quillet {

// The datatype as which a column is described.
int32_t datatype_of(zdb::ColumnType type);
// Whether values can be stored under this format.
bool is_bindable(const QLT_FORMAT &format);

struct Stored {
  int32_t length;  // bytes of the value as it was stored, without a terminating zero
  bool whole;      // false when it did not fit or could not be converted
};

// Stores a value at a place that has room for the format's longest one. Null and what cannot be converted become zero
// or an empty text; a text or binary that is too long is cut.
Stored store_value(const zdb::Value &value, const QLT_FORMAT &format, char *place);
// The parameter value at data; none when it does not fit its format.
std::optional<zdb::Value> read_value(const QLT_FORMAT &format, const void *data, int32_t length);

}  // namespace quillet
