// The bytes of an XID: how its two parts are put in and taken out.
#pragma once

#include <cstdint>
#include <string_view>

#include "xa.h"

// The parts have at most 64 bytes each; nothing else about them is asked, so that wrong XIDs can be made as well.
XID xid_of(int32_t format, std::string_view gtrid, std::string_view bqual);

// Lengths that no XID has are taken for the nearest one that it may have.
std::string_view gtrid_of(const XID &xid);
std::string_view bqual_of(const XID &xid);
bool same_xid(const XID &left, const XID &right);
