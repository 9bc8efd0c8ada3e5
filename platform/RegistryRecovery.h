#pragma once
// A damaged store must not lock the listener out, and recovering from it must
// never lose more than it has to.
//
// Contract:
// - A last-good copy of the store lies beside it (LastGoodCopyPath), taken
//   with SQLite's online backup while other processes keep using the store,
//   checked, and put in place by a rename, so the copy there is always whole.
// - Only damage (ERROR_BADDB) is recovered from: the damaged store, with its
//   write-ahead log, is renamed in its own folder to a dated name (never
//   deleted), the last-good copy is copied into its place (or the store starts
//   empty without one) and opened.  Every other failure (no permission, a
//   folder in the store's place, a full disk, a store of another kind) moves
//   nothing and is returned as it is.
// - Recovery is for one process at a time: the player at its start and
//   `talvoreg repair`; a process that only reads the store refuses a damaged
//   one and leaves it alone (OpenSqliteRegistry).
#include "platform/Registry.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace talvo {

// How old the last-good copy may grow before the start of the player takes a
// new one; a clean exit always takes one.
inline constexpr std::chrono::hours kLastGoodCopyMaxAge{24};

// The store's path with ".last-good" appended.
std::string LastGoodCopyPath(const std::string& storePath);

// What recovering a damaged store did.
struct StoreRecovery {
    // Where the damaged store lies now, in the store's folder.
    std::string keptAsidePath;
    // The last-good copy was put in the store's place; false: the store
    // started empty, there being no usable copy.
    bool restored = false;
    // How old the restored copy was.
    std::chrono::seconds restoredAge{0};
};

struct OpenedStore {
    // Null when the store could not be opened: status and systemError say why.
    std::unique_ptr<Registry> registry;
    RegStatus status = ERROR_SUCCESS;
    // The errno behind the failure, 0 when there was none.
    int systemError = 0;
    // Set when the store was damaged and moved aside, even when restoring
    // then failed (a full disk), so that the listener can be told where it is.
    std::optional<StoreRecovery> recovery;
};

// Opens the store at path; a damaged one is recovered as described above.
OpenedStore OpenOrRecoverSqliteRegistry(const std::string& path);

// Writes the last-good copy of the store at path.  With maxAge, a copy younger
// than that is kept and nothing is written.  On failure the earlier copy is
// left as it was; *systemError gets the errno behind it (ENOSPC for a full
// disk), or 0.
RegStatus SaveLastGoodCopy(const std::string& storePath, std::optional<std::chrono::seconds> maxAge,
                           int* systemError = nullptr);

} // namespace talvo
