// The open string: which LRM a resource manager is, who logs in, and where.
#pragma once

#include <cstdint>

inline constexpr int32_t XAL_FIELD_SIZE = 32;  // bytes of an LRM's text fields, the terminating zero included

// Reads the values that name an LRM from an open string. Each output is a 32-byte field or null. XA_OK, or XAER_INVAL
// when anything was wrong; every problem is logged and values after the first error are not stored.
int32_t xacmn_parse_open_info(const char *info, char *name, char *user, char *password, char *key, char *server);
