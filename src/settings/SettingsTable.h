#pragma once
// The player's settings as they are kept in the registry: one table with each
// value's name, type, default and range, and the choice lists of the
// Preferences dialog with the string-table texts shown for them.
#include "base/StringTable.h"
#include "platform/Registry.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace talvo {

// Every setting lives under HKEY_LOCAL_MACHINE at this key.
inline constexpr std::u16string_view kSettingsKey = u"Software\\Talvo";

struct SettingDef {
    std::u16string_view name; // registry value name
    DWORD type;
    DWORD defaultValue; // what a getter answers when no 4-byte value is stored
    DWORD minimum;      // range of the values the player writes
    DWORD maximum;
};

// Power-off time meaning "never switch the screen off".
inline constexpr DWORD kPowerOffNever = 0xFFFFFFFFu;

// The period of the screen power-off timer for a stored power-off time, or 0
// (no timer) for kPowerOffNever.  At least a second: with a stored 0 the
// screen would go dark again at once after every waking tap, and every tap
// would be swallowed.  At most what a timer counts (a signed 32-bit number of
// milliseconds).
inline constexpr std::uint32_t kLongestTimerMs = 0x7FFFFFFFu;
constexpr std::uint32_t PowerOffDelayMs(DWORD seconds)
{
    if (seconds == kPowerOffNever)
        return 0;
    const std::uint64_t ms = std::uint64_t{seconds} * 1000;
    return ms == 0 ? 1000 : static_cast<std::uint32_t>(ms < kLongestTimerMs ? ms : kLongestTimerMs);
}

namespace Setting {
// The wave-output level, 0 to 65535 on both channels; 32767 shows as 49 %.
inline constexpr SettingDef Volume{u"Volume", REG_DWORD, 32767, 0, 65535};
// Seconds of the jump-back command.
inline constexpr SettingDef JumpBack{u"Jump Back", REG_DWORD, 30, 10, 60};
// Idle seconds before the screen goes dark while audio plays, or kPowerOffNever.
inline constexpr SettingDef PowerOffTime{u"Power Off Time", REG_DWORD, 30, 30, kPowerOffNever};
// First-run marker: the main window writes 2 after the first-run step.
inline constexpr SettingDef FirstTimeRun{u"First Time Run", REG_DWORD, 0, 0, 2};
// Full path of the program that was open last; no default (empty).
inline constexpr SettingDef LastProgram{u"Last Program", REG_SZ, 0, 0, 0};
// Listening aids beyond the handheld's settings; each is off (0) when absent,
// which plays every program exactly as the handheld did.
// 1: gaps of silence longer than half a second play as a quarter second.
inline constexpr SettingDef SkipSilence{u"Skip Silence", REG_DWORD, 0, 0, 1};
// 1: playing again after a pause of over a minute starts a few seconds earlier.
inline constexpr SettingDef SmartRewind{u"Smart Rewind", REG_DWORD, 0, 0, 1};
} // namespace Setting

constexpr bool DefaultInRange(const SettingDef& s)
{
    return s.defaultValue >= s.minimum && s.defaultValue <= s.maximum;
}
static_assert(DefaultInRange(Setting::Volume) && DefaultInRange(Setting::JumpBack) &&
              DefaultInRange(Setting::PowerOffTime) && DefaultInRange(Setting::FirstTimeRun) &&
              DefaultInRange(Setting::SkipSilence) && DefaultInRange(Setting::SmartRewind));

// "Last Program" is read into room for this many characters, terminator included.
inline constexpr DWORD kLastProgramMaxChars = 260;

struct SettingChoice {
    int textId; // string-table id of the text shown
    DWORD value;
};

inline constexpr std::array<SettingChoice, 6> kPowerOffChoices{{
    {Str::PowerOff30s, 30},
    {Str::PowerOff1min, 60},
    {Str::PowerOff90s, 90},
    {Str::PowerOff2min, 120},
    {Str::PowerOff5min, 300},
    {Str::PowerOff10min, 600},
}};

inline constexpr std::array<SettingChoice, 6> kJumpBackChoices{{
    {Str::JumpBack10s, 10},
    {Str::JumpBack20s, 20},
    {Str::JumpBack30s, 30},
    {Str::JumpBack40s, 40},
    {Str::JumpBack50s, 50},
    {Str::JumpBack60s, 60},
}};

} // namespace talvo
