#include "library/ProgramLibrary.h"

#include "base/StringTable.h"
#include "library/ProgramDeletion.h"
#include "library/ProgramStateStore.h"
#include "platform/FileNames.h"
#include "platform/FolderListing.h"
#include "platform/ProgramFolders.h"
#include "settings/SettingsStore.h"

#include <QCoreApplication>
#include <QDir>
#include <algorithm>
#include <new>

namespace talvo {
namespace {

// The search pattern "*.zq*", matched without regard to case: any name that
// holds ".zq", which takes in both ".zq" and ".zqx" files.
bool MatchesProgramPattern(const QString& name)
{
    return name.contains(QLatin1String(".zq"), Qt::CaseInsensitive);
}

QString WithSlash(const QString& folder)
{
    return folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
}

// A folder's names in code-unit order, so that a search finds the same list
// on every run and every file system.  Like the platform's find-first search,
// this lists files and folders alike and asks nothing about them.
QStringList ListNames(const QString& folder, bool programsOnly = false)
{
    QStringList names = ListFolderNames(folder);
    if (programsOnly)
        names.removeIf([](const QString& name) { return !MatchesProgramPattern(name); });
    std::sort(names.begin(), names.end());
    return names;
}

QString AppName()
{
    return LoadString(Str::AppName);
}

} // namespace

// A fresh entry loads its stored state before its metadata, while its key is
// still empty, so every entry of a search reads one and the same record.  A
// search reads it once, when it starts, and gives each entry a copy, instead
// of asking the registry again for every file; the folder scans inside a
// RefreshAll or ScanForSync belong to that one search.
class ProgramLibrary::SearchScope {
public:
    explicit SearchScope(ProgramLibrary& library) : library_(library), outermost_(!library.searchBookmarks_)
    {
        if (!outermost_)
            return;
        ProgramFile fresh{QString()};
        library_.store_.LoadProgramState(fresh);
        library_.searchBookmarks_ = std::move(fresh.bookmarks);
    }
    ~SearchScope()
    {
        if (outermost_)
            library_.searchBookmarks_.reset();
    }
    SearchScope(const SearchScope&) = delete;
    SearchScope& operator=(const SearchScope&) = delete;

private:
    ProgramLibrary& library_;
    const bool outermost_;
};

LibraryFolders DefaultLibraryFolders(const QString& applicationFolder)
{
    LibraryFolders folders;
    folders.applicationFolder = applicationFolder;
    folders.musicFolder = MusicFolder();
    folders.programFilesFolder =
        QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
    return folders;
}

ProgramLibrary::ProgramLibrary(Registry& registry, ProgramStateStore& store, const StorageCards& cards,
                               LibraryFolders folders)
    : registry_(registry), store_(store), cards_(cards), folders_(std::move(folders))
{
}

ProgramLibrary::~ProgramLibrary()
{
    ReleaseCurrent();
}

bool ProgramLibrary::RefreshAll()
{
    const SearchScope search(*this);
    ScanFolderFlat(folders_.applicationFolder);
    ScanFolderTwoLevel(folders_.musicFolder);
    EnumerateStorageCards();
    for (const StorageCard& card : std::vector<StorageCard>(cardsFound_)) {
        ScanFolderFlat(card.root);
        ScanCardFolders(card, true);
    }
    if (!entries_.empty())
        ReopenLastProgram();
    return true;
}

void ProgramLibrary::ScanCardFolders(const StorageCard& card, bool requireDirectory)
{
    const QString root = WithSlash(card.root);
    for (const QString& folder : {root + AppName() + QLatin1Char('/'),
                                  root + QStringLiteral("Program Files/") + AppName() + QLatin1Char('/')}) {
        const PathStatus status = StatusOfPath(folder);
        if (requireDirectory ? status.isFolder : status.exists)
            ScanFolderFlat(folder);
    }
    ScanFolderTwoLevel(root + QStringLiteral("Music/"));
}

bool ProgramLibrary::ScanForSync(const std::optional<QString>& folder)
{
    const SearchScope search(*this);
    EnumerateStorageCards();
    if (folder) {
        const QString argument = WithSlash(*folder);
        for (const StorageCard& card : std::vector<StorageCard>(cardsFound_)) {
            if (argument.startsWith(WithSlash(card.root)))
                ScanFolderFlat(argument);
            ScanCardFolders(card, false);
        }
        return true;
    }
    const QString prefix = WithSlash(folders_.programFilesFolder);
    for (const QString& candidate :
         {prefix + AppName() + QLatin1Char('/'),
          prefix + QStringLiteral("Program Files/") + AppName() + QLatin1Char('/')}) {
        if (StatusOfPath(candidate).exists)
            ScanFolderFlat(candidate);
    }
    ScanFolderTwoLevel(prefix + QStringLiteral("Music/"));
    return true;
}

void ProgramLibrary::ScanFolderFlat(const QString& folder)
{
    if (folder.isEmpty())
        return;
    const SearchScope search(*this);
    const QString base = WithSlash(folder);
    for (const QString& name : ListNames(base, true))
        ProcessFoundFile(base + name);
}

void ProgramLibrary::ScanFolderTwoLevel(const QString& folder)
{
    if (folder.isEmpty())
        return;
    const SearchScope search(*this);
    const QString base = WithSlash(folder);
    // Every name counts as a folder; a plain file simply lists nothing below it.
    for (const QString& first : ListNames(base)) {
        const QString firstFolder = base + first + QLatin1Char('/');
        for (const QString& second : ListNames(firstFolder)) {
            const QString secondFolder = firstFolder + second + QLatin1Char('/');
            for (const QString& name : ListNames(secondFolder, true))
                ProcessFoundFile(secondFolder + name);
        }
    }
}

void ProgramLibrary::ProcessFoundFile(const QString& path)
{
    auto entry = std::make_unique<ProgramFile>(path);
    entry->inMainMemory = !IsOnStorageCard(path);
    // Before the metadata, while the key is still empty: the real bookmarks
    // are read when the program is opened.  Every search holds that state.
    entry->bookmarks = searchBookmarks_.value();
    if (entry->ReadMetadata() != ZQX_OK)
        return;
    if (paths_.contains(path))
        return;
    Append(std::move(entry));
    // The metadata reader holds nothing open once it has read, so the kept
    // entry needs no closing here.
}

bool ProgramLibrary::Append(std::unique_ptr<ProgramFile> entry)
{
    if (Count() == capacity_) {
        const std::int64_t grown = capacity_ == 0 ? 1 : std::int64_t{capacity_} * 2;
        if (grown > kMaxEntrySlots)
            return false;
        try {
            entries_.reserve(static_cast<std::size_t>(grown));
        } catch (const std::bad_alloc&) {
            return false;
        }
        capacity_ = static_cast<std::int32_t>(grown);
    }
    paths_.insert(entry->path);
    entries_.push_back(std::move(entry));
    return true;
}

void ProgramLibrary::EnumerateStorageCards()
{
    cardNames_.clear();
    cardsFound_.clear();
    for (StorageCard& card : cards_.Enumerate()) {
        if (card.name.isEmpty())
            continue;
        cardNames_.append(card.name);
        cardsFound_.push_back(std::move(card));
    }
}

bool ProgramLibrary::IsOnStorageCard(const QString& path) const
{
    return std::any_of(cardsFound_.begin(), cardsFound_.end(), [&](const StorageCard& card) {
        return path.startsWith(WithSlash(card.root), Qt::CaseSensitive);
    });
}

std::int32_t ProgramLibrary::IndexOfPath(const QString& path) const
{
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i]->path == path)
            return static_cast<std::int32_t>(i);
    }
    return -1;
}

void ProgramLibrary::ReopenLastProgram()
{
    std::int32_t index = IndexOfPath(SettingsStore(registry_).GetLastProgram());
    SelectProgram(index < 0 ? 0 : index);
}

void ProgramLibrary::SelectProgram(std::int32_t index)
{
    if (index < 0 || index >= Count())
        return;
    ReleaseCurrent();
    currentIndex_ = index;
    ProgramFile& entry = *entries_[static_cast<std::size_t>(index)];
    if (entry.Open(store_))
        SettingsStore(registry_).SetLastProgram(entry.path);
}

void ProgramLibrary::ReleaseCurrent()
{
    ProgramFile* entry = Current();
    // Only an open program holds its real position and bookmarks; the state of
    // one that is not open is what discovery read, and saving it would write
    // over the stored record.
    if (entry == nullptr || !entry->IsOpen())
        return;
    store_.SaveProgramState(*entry);
    entry->Close();
}

ProgramFile* ProgramLibrary::Current() const
{
    if (currentIndex_ < 0 || currentIndex_ >= Count())
        return nullptr;
    return entries_[static_cast<std::size_t>(currentIndex_)].get();
}

void ProgramLibrary::Clear()
{
    ReleaseCurrent();
    entries_.clear();
    paths_.clear();
    currentIndex_ = -1;
}

bool ProgramLibrary::RemoveEntryAt(std::int32_t index)
{
    if (index < 0 || index >= Count())
        return false;
    paths_.remove(entries_[static_cast<std::size_t>(index)]->path);
    entries_.erase(entries_.begin() + index);
    if (index == currentIndex_)
        currentIndex_ = -1;
    else if (index < currentIndex_)
        --currentIndex_;
    return true;
}

bool ProgramLibrary::DeleteProgram(ProgramFile& entry)
{
    // entry may be the listed object itself, which RemoveEntryAt destroys.
    const QString path = entry.path;
    const std::int32_t index = IndexOfPath(path);
    if (index < 0)
        return false;
    entry.Close();
    const QString sideFile = PositionSideFilePath(path);
    if (!DeleteFileReporting(path))
        return false;
    // The SDK writes the side file only once a position was saved; a missing one
    // is reported but does not undo the deletion.
    DeleteFileReporting(sideFile);
    RemoveEntryAt(index);
    return true;
}

bool ProgramLibrary::DeletePrograms(const std::optional<QString>& folder)
{
    // A running player lists Music and the cards as well: a request that names
    // nothing deletes only what the desktop's own scan finds, listed here or
    // not, and not even that where the installation's folders reach into Music
    // or onto a card (a player installed in the home folder or on a card).
    ProgramLibrary found(registry_, store_, cards_, folders_);
    if (!folder)
        found.ScanForSync(std::nullopt);
    const auto inMusic = [this](const QString& path) {
        return !folders_.musicFolder.isEmpty() && path.startsWith(WithSlash(folders_.musicFolder));
    };
    QStringList doomed;
    for (const auto& entry : folder ? entries_ : found.entries_) {
        if (folder ? entry->path.startsWith(WithSlash(*folder))
                   : !inMusic(entry->path) && !found.IsOnStorageCard(entry->path))
            doomed.append(entry->path);
    }
    bool allDeleted = true;
    for (const QString& path : doomed) {
        // Through this list's entry where there is one: it closes an open program first.
        ProgramLibrary& owner = IndexOfPath(path) >= 0 ? *this : found;
        const std::int32_t index = owner.IndexOfPath(path);
        if (index < 0 || !owner.DeleteProgram(owner.At(index)))
            allDeleted = false;
    }
    return allDeleted;
}

} // namespace talvo
