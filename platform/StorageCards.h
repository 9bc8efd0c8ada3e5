#pragma once
// Storage cards: the removable volumes programs may live on, and notices when
// one comes or goes.
//
// Contract:
// - A card is known by its name (the folder name that stands for it, e.g.
//   "Storage Card" or a volume label) and by the folder it is reached through.
//   Enumerate answers the cards in a stable order and never an empty name.
// - CreateStorageCards chooses the source once: the folders listed in
//   TALVOPLAYER_CARDS (colon-separated) when the variable is set, even to an
//   empty value (no cards then); otherwise the volumes mounted under
//   /media/$USER/ and /run/media/$USER/.  The listed source reads the variable
//   again at each Enumerate, so a test changes its cards by changing it.
// - StorageChangeWatcher reports a card that appeared (MediaInserted) or
//   disappeared (MediaRemoved) since the previous look.  It looks by itself
//   whenever the mount table changes, on a thread of its own; Recheck looks at
//   once, on the caller's thread.  The callback runs on whichever thread looked,
//   one call at a time, and must only hand the notice on (post it).
#include <QString>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace talvo {

// Folders standing for cards, colon-separated; set (even empty) it replaces the mounted volumes.
inline constexpr const char* kStorageCardsVariable = "TALVOPLAYER_CARDS";

struct StorageCard {
    QString name;
    QString root; // the card's folder, without a trailing '/'
    bool operator==(const StorageCard&) const = default;
};

// The storage-change events, with the handheld platform's numbers, because the
// main window's handler is written against them.
enum class StorageChange : std::uint32_t {
    MediaInserted = 32,
    MediaRemoved = 64,
};

struct StorageSpace {
    std::uint64_t totalBytes = 0;
    std::uint64_t freeBytes = 0;      // free blocks, the reserved ones included
    std::uint64_t availableBytes = 0; // what this user may still write
};

class StorageCards {
public:
    virtual ~StorageCards() = default;
    virtual std::vector<StorageCard> Enumerate() const = 0;
};

// Size and free space of the file system holding folder; false when it cannot be asked.
bool GetStorageSpace(const QString& folder, StorageSpace* space);

std::unique_ptr<StorageCards> CreateStorageCards();
// The cards named by TALVOPLAYER_CARDS, read at each Enumerate; a folder's card
// name is its last path component.
std::unique_ptr<StorageCards> CreateListedStorageCards();
// Removable volumes from /proc/self/mountinfo, in mount order.
std::unique_ptr<StorageCards> CreateMountedStorageCards();

class StorageChangeWatcher {
public:
    using Callback = std::function<void(StorageChange change, const StorageCard& card)>;

    // Takes the current cards as the starting point and starts watching the
    // mount table.  cards must outlive the watcher.
    StorageChangeWatcher(const StorageCards& cards, Callback callback);
    ~StorageChangeWatcher();
    StorageChangeWatcher(const StorageChangeWatcher&) = delete;
    StorageChangeWatcher& operator=(const StorageChangeWatcher&) = delete;

    // Compares the cards with the last look and reports each one gone, then
    // each one new.
    void Recheck();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace talvo
