#pragma once
// Shared by the store and its last-good copy: SQLite's own check of every
// page and index, without the slow cross-checks of integrity_check.
// ERROR_BADDB when it finds damage.
//
// The check reads the whole store, so its cost grows with the listener's
// records.  A store found sound is remembered in a stamp beside it (the
// store's path with ".checked" appended: the file's device, inode, size, and
// modification and change times).  An open whose store file still matches the stamp, with no
// write-ahead log holding anything, has a store nothing has written to since
// it was found sound, and is not read whole again.  Anything else (a log left
// by a killed process, a write since, a file replaced) is checked.
#include "platform/Registry.h"

#include <string>

struct sqlite3;

namespace talvo {

RegStatus CheckSqliteConsistency(sqlite3* db);

// True when the store at storePath is unchanged since a stamp was taken.
bool IsStampedSound(const std::string& storePath);

// The stamp of the store as it stands, to be kept once a check of the same
// content has passed.  Empty when there is nothing to stamp: no store file,
// or a log with content.
std::string CurrentStamp(const std::string& storePath);
// Writes the stamp taken before a check, if the store still matches it; a
// failure to write only means the next open checks again.
void KeepStamp(const std::string& storePath, const std::string& stamp);
// Forgets the stamp, so that the next open checks.
void RemoveStamp(const std::string& storePath);

} // namespace talvo
