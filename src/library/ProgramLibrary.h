#pragma once
// ProgramLibrary: every program file found on main memory and the storage
// cards, in the order found, and the program currently open.
//
// Contract:
// - Discovery reads only each file's header and metadata; the SDK file of a
//   program is opened only by SelectProgram, for the one current program.
// - The list is never sorted: its order is the search order of RefreshAll,
//   and within a folder the order of names (byte order, for repeatability).
// - Entries are owned here, one object per program, and stay at the same
//   address until removed; the main window and the playback engine use them
//   in place.  They are held by pointer, not copied, because an entry may hold
//   the open SDK handle and the seek interlock, which must exist once.
// - All calls happen on the user-interface thread.
// - Paths are kept as they were composed by the search that found them: a
//   folder given with its trailing '/' followed by the names below it.
#include "library/ProgramEntry.h"
#include "platform/Registry.h"
#include "platform/StorageCards.h"

#include <QSet>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace talvo {

class ProgramStateStore;

// The folders that stand for the handheld's fixed places.
struct LibraryFolders {
    // The program's own folder (the executable's when it holds "Skins/", else
    // the installed data folder).
    QString applicationFolder;
    // Main memory's "\Music\": TALVOPLAYER_MUSIC or the XDG music folder.
    QString musicFolder;
    // What stood for the platform's "Program Files" folder, searched by the
    // desktop sync when it names no folder: the prefix the player is installed
    // under (the parent of the executable's folder).
    QString programFilesFolder;
};

// The folders of this installation, from the environment and the executable's place.
LibraryFolders DefaultLibraryFolders(const QString& applicationFolder);

class ProgramLibrary {
public:
    // An add that would need more slots than this fails: slots times the
    // original entry size had to stay below 2^31.
    static constexpr std::int32_t kMaxEntrySlots = 10324440;

    ProgramLibrary(Registry& registry, ProgramStateStore& store, const StorageCards& cards,
                   LibraryFolders folders);
    ~ProgramLibrary();
    ProgramLibrary(const ProgramLibrary&) = delete;
    ProgramLibrary& operator=(const ProgramLibrary&) = delete;

    // Full discovery appended to the current list, then reopens "Last Program"
    // (the first program when it is missing or not found).  Always true.
    bool RefreshAll();
    // For desktop-sync requests: the cards' folders (and folder, when it lies on
    // a card), or with no folder the installation's folders.  Selects nothing.
    bool ScanForSync(const std::optional<QString>& folder);

    void ScanFolderFlat(const QString& folder);
    void ScanFolderTwoLevel(const QString& folder);
    void EnumerateStorageCards();

    bool IsOnStorageCard(const QString& path) const;
    // First index whose path equals path exactly, or -1.
    std::int32_t IndexOfPath(const QString& path) const;

    // Releases the current program (saving its state) and opens the one at
    // index; only when that open succeeds is its path kept as "Last Program".
    // Does nothing for an index outside the list.
    void SelectProgram(std::int32_t index);

    // Closes the SDK file of the program if it is open, deletes the file and its
    // position side file (a box for each that fails), and removes the entry.
    // False, with nothing changed, when the entry is not in the list or the
    // program file cannot be deleted.  The registry record stays.
    bool DeleteProgram(ProgramFile& entry);
    // A desktop-sync deletion, never wider than what it names: with a folder,
    // the programs of this list below that folder; with none, the programs
    // that ScanForSync without a folder finds (listed here or not), so never
    // those of Music or the cards.  True when each deletion succeeded.
    bool DeletePrograms(const std::optional<QString>& folder);
    // Destroys the entry (closing its SDK file) and moves the later ones down.
    // The current index follows its program: it moves down with it, and becomes
    // -1 when the current program itself is removed.
    bool RemoveEntryAt(std::int32_t index);

    std::int32_t Count() const { return static_cast<std::int32_t>(entries_.size()); }
    std::int32_t CurrentIndex() const { return currentIndex_; }
    // The open program, or null when the current index is outside the list.
    ProgramFile* Current() const;
    // An index outside the list is a programming error and throws std::out_of_range.
    ProgramFile& At(std::int32_t index) const { return *entries_.at(static_cast<std::size_t>(index)); }
    const QStringList& CardNames() const { return cardNames_; }
    // Empties the list; the current program is released (saved and closed) first.
    void Clear();

private:
    class SearchScope;

    void ProcessFoundFile(const QString& path);
    bool Append(std::unique_ptr<ProgramFile> entry);
    void ScanCardFolders(const StorageCard& card, bool requireDirectory);
    void ReopenLastProgram();
    void ReleaseCurrent();

    Registry& registry_;
    ProgramStateStore& store_;
    const StorageCards& cards_;
    LibraryFolders folders_;
    std::vector<std::unique_ptr<ProgramFile>> entries_;
    std::int32_t capacity_ = 0;
    // The paths of entries_, for the duplicate test of large libraries.
    QSet<QString> paths_;
    std::int32_t currentIndex_ = -1;
    QStringList cardNames_;
    std::vector<StorageCard> cardsFound_;
    // While a search runs: what loading a fresh entry's state gives.
    std::optional<std::vector<Bookmark>> searchBookmarks_;
};

} // namespace talvo
