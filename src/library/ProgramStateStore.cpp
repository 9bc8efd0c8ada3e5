#include "library/ProgramStateStore.h"

#include "library/ProgramRecordLayout.h"
#include "platform/RegistryTransaction.h"
#include "playback/ProgramFile.h"
#include "playback/SpeechProcessing.h"

#include <QThread>
#include <algorithm>
#include <map>

namespace talvo {
namespace {

using namespace ProgramRecord;

// How often a restore looks again whether a seek on the handle has finished.
constexpr unsigned long kSeekGatePollMs = 50;

// Closes every key it was given, last first, when the operation ends, however it ends.
class KeyCloser {
public:
    explicit KeyCloser(Registry& registry) : registry_(registry) {}
    ~KeyCloser()
    {
        for (auto it = keys_.rbegin(); it != keys_.rend(); ++it)
            registry_.CloseKey(*it);
    }
    KeyCloser(const KeyCloser&) = delete;
    KeyCloser& operator=(const KeyCloser&) = delete;
    HKEY Keep(HKEY key)
    {
        keys_.push_back(key);
        return key;
    }
    void CloseNow(HKEY key)
    {
        keys_.erase(std::remove(keys_.begin(), keys_.end(), key), keys_.end());
        registry_.CloseKey(key);
    }

private:
    Registry& registry_;
    std::vector<HKEY> keys_;
};

RegStatus SetDword(Registry& registry, HKEY key, std::u16string_view name, DWORD value)
{
    std::uint8_t bytes[4] = {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                             static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
    return registry.SetValue(key, name, REG_DWORD, bytes, sizeof bytes);
}

// Only a 4-byte REG_DWORD counts as a number here.
bool QueryDword(Registry& registry, HKEY key, std::u16string_view name, DWORD* value)
{
    std::uint8_t bytes[4] = {};
    DWORD type = REG_NONE;
    DWORD size = sizeof bytes;
    if (registry.QueryValue(key, name, &type, bytes, &size) != ERROR_SUCCESS || type != REG_DWORD ||
        size != sizeof bytes)
        return false;
    *value = bytes[0] | (DWORD(bytes[1]) << 8) | (DWORD(bytes[2]) << 16) | (DWORD(bytes[3]) << 24);
    return true;
}

bool QueryString(Registry& registry, HKEY key, std::u16string_view name, std::u16string* text)
{
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (registry.QueryValue(key, name, &type, nullptr, &size) != ERROR_SUCCESS || type != REG_SZ)
        return false;
    std::vector<std::uint8_t> data(size);
    if (registry.QueryValue(key, name, &type, data.data(), &size) != ERROR_SUCCESS || type != REG_SZ)
        return false;
    *text = RegSzText(data.data(), size);
    return true;
}

// The index a subkey named "Bookmark%d" was written with, or false for any
// other name.  Names compare without case, as the registry does.
bool ParseBookmarkIndex(const std::u16string& name, std::uint32_t* index)
{
    const std::size_t prefix = kBookmarkPrefix.size();
    if (name.size() <= prefix ||
        QStringView(name).left(prefix).compare(QStringView(kBookmarkPrefix), Qt::CaseInsensitive) != 0)
        return false;
    std::u16string_view digits = std::u16string_view(name).substr(prefix);
    // "%d" never writes a sign or a leading zero.
    if (digits.size() > 10 || (digits.size() > 1 && digits[0] == u'0'))
        return false;
    std::uint64_t value = 0;
    for (char16_t c : digits) {
        if (c < u'0' || c > u'9')
            return false;
        value = value * 10 + (c - u'0');
    }
    if (value > 0xFFFFFFFFu)
        return false;
    *index = static_cast<std::uint32_t>(value);
    return true;
}

// Stored times count from the start of the whole program; a part file's own
// times start at its span start.  A time past the span's end means nothing in
// this file and goes to its start.
std::uint32_t FileTimeFromStored(const ProgramFile& entry, DWORD stored)
{
    if (!entry.GetTimeSpanFlag())
        return stored;
    if (stored > entry.GetTimeSpanEnd())
        return 0;
    if (stored < entry.GetTimeSpanStart())
        return 0;
    return stored - entry.GetTimeSpanStart();
}

// "play_pos" when it was written during playback by a player that then ended
// without saving, which leaves the side file behind what was heard.
bool QueryLivePosition(Registry& registry, const QString& programKey, DWORD* positionMs)
{
    HKEY record = 0;
    if (registry.OpenKey(HKEY_LOCAL_MACHINE, ProgramKeyPath(programKey), kReadAccess, &record) !=
        ERROR_SUCCESS)
        return false;
    DWORD live = 0;
    const bool found = QueryDword(registry, record, kPlayPosLive, &live) && live == 1 &&
                       QueryDword(registry, record, kPlayPos, positionMs);
    registry.CloseKey(record);
    return found;
}

// Bookmark index of the list under bookmarks, as its own subkey.
RegStatus WriteBookmark(Registry& registry, HKEY bookmarks, std::uint32_t index, const Bookmark& bookmark,
                        std::uint32_t spanStartMs)
{
    KeyCloser keys(registry);
    HKEY item = 0;
    if (RegStatus status = registry.CreateKey(bookmarks, BookmarkKeyName(index), kCreateAccess, &item);
        status != ERROR_SUCCESS)
        return status;
    keys.Keep(item);
    std::vector<std::uint8_t> name = RegSzBytes(bookmark.name);
    if (RegStatus status =
            registry.SetValue(item, kName, REG_SZ, name.data(), static_cast<DWORD>(name.size()));
        status != ERROR_SUCCESS)
        return status;
    return SetDword(registry, item, kTimeOffset, bookmark.timeMs + spanStartMs);
}

void WaitForSeekGate(const ProgramFile& entry)
{
    while (!entry.seekGate.load())
        QThread::msleep(kSeekGatePollMs);
}

} // namespace

bool ProgramStateStore::SaveProgramState(ProgramFile& entry)
{
    // The SDK keeps its own copy of the position in the side file; it goes first
    // so that it is current even when the registry write below fails.
    ZQXSavePlaybackPosition(entry.sdkHandle, ZQX_SAVE_TO_SIDE_FILE);
    const RegStatus status = writeProgramState(entry);
    if (status == ERROR_SUCCESS) {
        failing_ = false;
        return true;
    }
    // Read before anything else touches the store.
    const int systemError = registry_.LastSystemError();
    if (!failing_ && saveFailed_)
        saveFailed_(entry, status, systemError);
    failing_ = true;
    return false;
}

RegStatus ProgramStateStore::writeProgramState(ProgramFile& entry)
{
    // The list is deleted and then written again key by key; as one
    // transaction, a player killed or a write failing halfway leaves the
    // record as it was before this save, never a Count with part of a list.
    RegistryTransaction transaction(registry_);
    if (transaction.status() != ERROR_SUCCESS)
        return transaction.status();
    const QString programKey = entry.Key();
    KeyCloser keys(registry_);
    HKEY record = 0;
    if (RegStatus status =
            registry_.CreateKey(HKEY_LOCAL_MACHINE, ProgramKeyPath(programKey), kCreateAccess, &record);
        status != ERROR_SUCCESS)
        return status;
    keys.Keep(record);

    std::uint32_t position = 0;
    if (entry.sdkHandle != 0)
        ZQXGetPlaybackPosition(entry.sdkHandle, &position);
    position += entry.GetTimeSpanStart();
    if (RegStatus status = SetDword(registry_, record, kPlayPos, position); status != ERROR_SUCCESS)
        return status;
    // The side file is current again; a record without the mark never had one.
    registry_.DeleteValue(record, kPlayPosLive);

    // The list is written whole each time, so that removed bookmarks and a
    // shorter list leave no stale subkeys behind.
    registry_.DeleteKey(record, kBookmarksKey);
    keys.CloseNow(record);

    HKEY bookmarks = 0;
    if (RegStatus status =
            registry_.CreateKey(HKEY_LOCAL_MACHINE, BookmarksKeyPath(programKey), kCreateAccess, &bookmarks);
        status != ERROR_SUCCESS)
        return status;
    keys.Keep(bookmarks);
    if (RegStatus status = SetDword(registry_, bookmarks, kCount, static_cast<DWORD>(entry.bookmarks.size()));
        status != ERROR_SUCCESS)
        return status;

    for (std::size_t i = 0; i < entry.bookmarks.size(); ++i) {
        if (RegStatus status = WriteBookmark(registry_, bookmarks, static_cast<std::uint32_t>(i),
                                             entry.bookmarks[i], entry.GetTimeSpanStart());
            status != ERROR_SUCCESS)
            return status;
    }
    keys.CloseNow(bookmarks);
    return transaction.Commit();
}

bool ProgramStateStore::SavePlayingPosition(const ProgramFile& entry, std::uint32_t positionMs)
{
    // The SDK can only keep its read position, which runs ahead of what was
    // heard by the buffers in flight, so the side file is not written here.
    RegistryTransaction transaction(registry_);
    if (transaction.status() != ERROR_SUCCESS)
        return false;
    KeyCloser keys(registry_);
    HKEY record = 0;
    if (registry_.CreateKey(HKEY_LOCAL_MACHINE, ProgramKeyPath(entry.Key()), kCreateAccess, &record) !=
        ERROR_SUCCESS)
        return false;
    keys.Keep(record);
    if (SetDword(registry_, record, kPlayPos, positionMs + entry.GetTimeSpanStart()) != ERROR_SUCCESS ||
        SetDword(registry_, record, kPlayPosLive, 1) != ERROR_SUCCESS)
        return false;
    keys.CloseNow(record);
    return transaction.Commit() == ERROR_SUCCESS;
}

bool ProgramStateStore::ReadPlayPosition(const QString& programKey, DWORD* positionMs)
{
    HKEY record = 0;
    if (registry_.OpenKey(HKEY_LOCAL_MACHINE, ProgramKeyPath(programKey), kReadAccess, &record) !=
        ERROR_SUCCESS)
        return false;
    const bool found = QueryDword(registry_, record, kPlayPos, positionMs);
    registry_.CloseKey(record);
    return found;
}

bool ProgramStateStore::readRecordValue(const ProgramFile& entry, std::u16string_view name, DWORD* value)
{
    HKEY record = 0;
    if (registry_.OpenKey(HKEY_LOCAL_MACHINE, ProgramKeyPath(entry.Key()), kReadAccess, &record) !=
        ERROR_SUCCESS)
        return false;
    const bool found = QueryDword(registry_, record, name, value);
    registry_.CloseKey(record);
    return found;
}

bool ProgramStateStore::saveRecordValue(const ProgramFile& entry, std::u16string_view name, DWORD value)
{
    HKEY record = 0;
    if (registry_.CreateKey(HKEY_LOCAL_MACHINE, ProgramKeyPath(entry.Key()), kCreateAccess, &record) !=
        ERROR_SUCCESS)
        return false;
    const bool saved = SetDword(registry_, record, name, value) == ERROR_SUCCESS;
    registry_.CloseKey(record);
    return saved;
}

int ProgramStateStore::ReadPlaySpeed(const ProgramFile& entry)
{
    DWORD tenths = SpeechProcessing::kNormalSpeed;
    if (!readRecordValue(entry, kPlaySpeed, &tenths) || !SpeechProcessing::IsSpeed(static_cast<int>(tenths)))
        return SpeechProcessing::kNormalSpeed;
    return static_cast<int>(tenths);
}

bool ProgramStateStore::SavePlaySpeed(const ProgramFile& entry, int tenths)
{
    return saveRecordValue(entry, kPlaySpeed, static_cast<DWORD>(tenths));
}

bool ProgramStateStore::ReadStoppedAt(const ProgramFile& entry, DWORD* seconds)
{
    return readRecordValue(entry, kStoppedAt, seconds);
}

bool ProgramStateStore::SaveStoppedAt(const ProgramFile& entry, DWORD seconds)
{
    return saveRecordValue(entry, kStoppedAt, seconds);
}

bool ProgramStateStore::LoadProgramState(ProgramFile& entry)
{
    if (entry.sdkHandle != 0) {
        std::uint32_t position = 0;
        if (ZQXGetPlaybackPosition(entry.sdkHandle, &position) == ZQX_OK) {
            DWORD live = 0;
            if (QueryLivePosition(registry_, entry.Key(), &live))
                position = FileTimeFromStored(entry, live);
            WaitForSeekGate(entry);
            entry.seekGate = false;
            ZQXSeek(entry.sdkHandle, position);
            entry.seekGate = true;
        }
    }

    KeyCloser keys(registry_);
    HKEY bookmarks = 0;
    if (registry_.OpenKey(HKEY_LOCAL_MACHINE, BookmarksKeyPath(entry.Key()), kReadAccess, &bookmarks) !=
        ERROR_SUCCESS)
        return false;
    keys.Keep(bookmarks);

    DWORD count = 0;
    if (!QueryDword(registry_, bookmarks, kCount, &count))
        return true;

    // The subkeys "Bookmark0" .. "Bookmark<Count-1>" are visited in index order.
    // They are found by enumerating what exists rather than by opening every
    // index, so a damaged Count of four billion costs no more than the keys
    // actually there; missing indices are skipped either way.
    std::map<std::uint32_t, std::u16string> present;
    std::u16string subkey;
    for (DWORD i = 0; registry_.EnumKey(bookmarks, i, &subkey) == ERROR_SUCCESS; ++i) {
        std::uint32_t index = 0;
        if (ParseBookmarkIndex(subkey, &index) && index < count)
            present.emplace(index, subkey);
    }
    for (const auto& [index, name] : present) {
        HKEY item = 0;
        if (registry_.OpenKey(bookmarks, name, kReadAccess, &item) != ERROR_SUCCESS)
            continue;
        Bookmark bookmark;
        DWORD stored = 0;
        bool readable = QueryString(registry_, item, kName, &bookmark.name) &&
                        QueryDword(registry_, item, kTimeOffset, &stored);
        registry_.CloseKey(item);
        if (!readable)
            continue;
        bookmark.timeMs = FileTimeFromStored(entry, stored);
        entry.bookmarks.push_back(std::move(bookmark));
    }

    RemoveDuplicateBookmarks(entry.bookmarks);
    return true;
}

void RemoveDuplicateBookmarks(std::vector<Bookmark>& bookmarks)
{
    // A bookmark equal to an earlier one in name and time adds nothing; the
    // order is otherwise kept.
    std::vector<Bookmark> unique;
    unique.reserve(bookmarks.size());
    for (Bookmark& bookmark : bookmarks) {
        if (std::find(unique.begin(), unique.end(), bookmark) == unique.end())
            unique.push_back(std::move(bookmark));
    }
    bookmarks = std::move(unique);
}

} // namespace talvo
