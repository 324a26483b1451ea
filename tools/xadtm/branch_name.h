// XIDs and branch names that users write: what is wrong with them is said, as a UsageError.
#pragma once

#include <string>
#include <string_view>

#include "xa.h"

struct NamedBranch {
  XID xid;
  std::string lrm;
};

// Throws UsageError for lengths that no XID has, and for the null XID.
XID make_xid(int32_t format, std::string_view gtrid, std::string_view bqual);

// Up to 31 characters without white space; throws UsageError for others. None at all is the name of an LRM that MTS
// opens without -N.
void check_lrm(std::string_view lrm);

// For people: no name is said in words that cannot be one.
std::string shown_lrm(std::string_view lrm);

// Throws UsageError saying what is wrong with a text that is no branch name.
NamedBranch read_branch_name(std::string_view name);
