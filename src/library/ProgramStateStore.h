#pragma once
// Each program's listening position and named bookmarks, kept in the registry
// under HKEY_LOCAL_MACHINE\SOFTWARE\Talvo\AudioData\<program key>.  Values in
// the registry count from the start of the whole program; in memory they count
// from the start of the file, which differs for a file holding a part of a
// longer program (its span start is added on save and taken off on load).
#include "platform/Registry.h"
#include "playback/ProgramFile.h"

#include <QString>
#include <functional>
#include <vector>

namespace talvo {

class ProgramStateStore {
public:
    // Told of a save that failed, with the errno behind it (or 0); the listener
    // must hear that a place or a bookmark was not kept.
    using SaveFailed = std::function<void(const ProgramFile& entry, RegStatus status, int systemError)>;

    explicit ProgramStateStore(Registry& registry) : registry_(registry) {}

    // Saves the SDK's own position, then "play_pos" and the whole bookmark list
    // in one registry transaction: all of it reaches the store, or none.  A
    // failure goes to the SaveFailed listener, once until a save succeeds
    // again, so that a disk that stays full is told once, not at every save.
    bool SaveProgramState(ProgramFile& entry);
    void OnSaveFailed(SaveFailed listener) { saveFailed_ = std::move(listener); }
    // Keeps the position reached while playing (in file time) as "play_pos",
    // marked newer than the side file, in one small transaction; the bookmark
    // list is left as it is.
    bool SavePlayingPosition(const ProgramFile& entry, std::uint32_t positionMs);
    // Restores the SDK's stored position into the open file (or "play_pos" when
    // a player ended while playing left it newer) and reads the bookmarks; true
    // when the bookmarks key was readable.
    bool LoadProgramState(ProgramFile& entry);
    // The stored "play_pos" of a program key, as the desktop sync reports it
    // without opening the file; false when there is none (or not a REG_DWORD).
    bool ReadPlayPosition(const QString& programKey, DWORD* positionMs);

    // The listener's speed for a program in tenths; 10 (1.0x) when none or
    // not a speed.
    int ReadPlaySpeed(const ProgramFile& entry);
    bool SavePlaySpeed(const ProgramFile& entry, int tenths);
    // The wall-clock time (seconds since 1970) playback of a program last
    // stopped; false when never.
    bool ReadStoppedAt(const ProgramFile& entry, DWORD* seconds);
    bool SaveStoppedAt(const ProgramFile& entry, DWORD seconds);

private:
    bool readRecordValue(const ProgramFile& entry, std::u16string_view name, DWORD* value);
    bool saveRecordValue(const ProgramFile& entry, std::u16string_view name, DWORD value);
    RegStatus writeProgramState(ProgramFile& entry);

    Registry& registry_;
    SaveFailed saveFailed_;
    bool failing_ = false; // the last save failed and was told
};

// Drops every bookmark equal in name and time to an earlier one, as loading does.
void RemoveDuplicateBookmarks(std::vector<Bookmark>& bookmarks);

} // namespace talvo
