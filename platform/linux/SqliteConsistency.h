#pragma once
// Shared by the store and its last-good copy: SQLite's own check of every
// page and index, without the slow cross-checks of integrity_check (a store
// is small and this runs at each open).  ERROR_BADDB when it finds damage.
#include "platform/Registry.h"

struct sqlite3;

namespace talvo {

RegStatus CheckSqliteConsistency(sqlite3* db);

} // namespace talvo
