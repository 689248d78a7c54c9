// What the transactions of a database ask of its lock beyond db_lock and db_unlock (database.h).
#pragma once

#include "data/database.h"

namespace tovik {

bool db_lock_disabled(const Database &db);
bool db_holds_write(const Database &db, ThreadId thread);

bool db_granted(LockResult result);  // busy: 140003

// Repeats the releases that are owed; false when the thread's own fails again.
[[nodiscard]] bool db_settle_releases(Database &db, ThreadId thread);

// db_lock with other retries than the database's.
LockResult db_lock_trying(Database &db, ThreadId thread, DbLock mode, int retry, int sleep);

// From reserved to exclusive and back. 140003 and the lock manager's.
[[nodiscard]] bool db_raise_exclusive(Database &db, ThreadId thread);
[[nodiscard]] bool db_lower_exclusive(Database &db, ThreadId thread);

}  // namespace tovik
