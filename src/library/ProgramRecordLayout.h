#pragma once
// Where a program's position and bookmarks live in the registry.  The desktop
// sync enumeration reads "play_pos" straight from here, without opening the
// program file, so the names are shared rather than private to the store.
//
//   HKEY_LOCAL_MACHINE\SOFTWARE\Talvo\AudioData\<program key>   "play_pos"  REG_DWORD
//                                                               "play_pos_live" REG_DWORD
//                                                               "play_speed" REG_DWORD
//                                                               "stopped_at" REG_DWORD
//     \Bookmarks                                                "Count"     REG_DWORD
//       \Bookmark<i>, i = 0 .. Count-1                          "Name"      REG_SZ
//                                                               "Time Offset" REG_DWORD
// Stored times count from the start of the whole program.
#include "platform/Registry.h"

#include <QString>
#include <cstdint>
#include <string>
#include <string_view>

namespace talvo::ProgramRecord {

inline constexpr std::u16string_view kAudioDataKey = u"SOFTWARE\\Talvo\\AudioData";
inline constexpr std::u16string_view kPlayPos = u"play_pos";
// 1 while "play_pos" was last written during playback, and so is newer than
// the SDK's side file; a clean save removes it.
inline constexpr std::u16string_view kPlayPosLive = u"play_pos_live";
// The listener's speed for this program in tenths (5 to 30); absent is 1.0x.
inline constexpr std::u16string_view kPlaySpeed = u"play_speed";
// When playback of this program last stopped: seconds since 1970, UTC.
inline constexpr std::u16string_view kStoppedAt = u"stopped_at";
inline constexpr std::u16string_view kBookmarksKey = u"Bookmarks";
inline constexpr std::u16string_view kCount = u"Count";
// Followed by the bookmark's index in decimal ("Bookmark%d").
inline constexpr std::u16string_view kBookmarkPrefix = u"Bookmark";
inline constexpr std::u16string_view kName = u"Name";
inline constexpr std::u16string_view kTimeOffset = u"Time Offset";

// Keys are created for reading and writing, and opened for reading only.
inline constexpr REGSAM kCreateAccess = 0x2001F;
inline constexpr REGSAM kReadAccess = 0x20019;
static_assert(kReadAccess == KEY_READ);

// "SOFTWARE\Talvo\AudioData\<key>"
inline std::u16string ProgramKeyPath(const QString& programKey)
{
    return std::u16string(kAudioDataKey) + u'\\' + programKey.toStdU16String();
}

// "SOFTWARE\Talvo\AudioData\<key>\Bookmarks"
inline std::u16string BookmarksKeyPath(const QString& programKey)
{
    return ProgramKeyPath(programKey) + u'\\' + std::u16string(kBookmarksKey);
}

inline std::u16string BookmarkKeyName(std::uint32_t index)
{
    return std::u16string(kBookmarkPrefix) + QString::number(index).toStdU16String();
}

// The position the desktop sync reports for a program: whole seconds of
// "play_pos", but never at or past the end, where the desktop would take the
// program for finished; length - 1 then (-1 for a program of length 0).
inline std::int64_t SyncPositionSeconds(std::uint32_t playPosMs, std::uint32_t lengthSeconds)
{
    std::int64_t seconds = playPosMs / 1000;
    if (seconds >= static_cast<std::int64_t>(lengthSeconds))
        return static_cast<std::int64_t>(lengthSeconds) - 1;
    return seconds;
}

} // namespace talvo::ProgramRecord
