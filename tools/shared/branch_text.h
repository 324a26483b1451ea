// The text form of a branch: "formatID_gtrid_bqual_:LRM", by which servers know it. The formatID is in
// hexadecimal, the two byte strings in an alphabet of 64 characters.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "xa.h"

std::string branch_name(const XID &xid, std::string_view lrm);

// The bytes that a name's gtrid or bqual stands for; nothing when a character is none of the alphabet.
std::optional<std::string> bytes_of_branch_text(std::string_view text);
