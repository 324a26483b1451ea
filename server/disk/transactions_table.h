// The branches of a server as a table, systransactions, that queries can read.
#pragma once

#include "disk/sqlite.h"
#include "store/store.h"

namespace zdb {

// Makes the table known on a connection: columns xactname, state, age (seconds in that state) and held (1: a session
// has it). Every query asks the lister again; the lister outlives the connection.
void add_transactions_table(const Database &database, const Store::BranchLister &lister);

}  // namespace zdb
