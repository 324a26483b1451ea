/* changes.h - makes the changes of a branch again, from the changeset that the journal has of it. */
#ifndef ZDB_DISK_CHANGES_H
#define ZDB_DISK_CHANGES_H

#include <string>

#include "sqlite.h"

namespace zdb {

/*
 * Part of the open transaction. Throws SqliteError, also when the data are not as they were before the changes.
 *
 * A changeset tells what became of each row in the end, not the order in which that came about. Rows that exchanged a
 * unique value could not be changed one after the other, so all that are in the way go first.
 */
void make_changes_again(const Database &database, const std::string &changes);

}  // namespace zdb

#endif /* ZDB_DISK_CHANGES_H */
