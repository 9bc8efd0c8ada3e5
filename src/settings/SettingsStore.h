#pragma once
// The user's settings, read from the registry at every use and written at
// once on every change: no copy is held in memory, so the player, the
// Preferences dialog and a desktop tool editing the registry always agree.
//
// Contract:
// - Each operation is one registry access (open or create the key, one query
//   or one write, close); nothing is cached.
// - A getter answers the setting's default unless the registry delivered
//   exactly 4 bytes of a number: a missing key or value, a REG_DWORD or
//   REG_BINARY of another size, or any text type (REG_SZ, REG_EXPAND_SZ,
//   REG_MULTI_SZ, even one of 4 bytes, since its bytes are characters) gives
//   the default.  A 4-byte REG_BINARY is taken as the little-endian number it
//   holds, as a 4-byte read of it always delivered.
// - A setter writes REG_DWORD and returns the registry's status (0 on
//   success); callers may ignore it.
// - Called on the UI thread; the registry itself may be shared with other
//   processes.
#include "platform/Registry.h"
#include "settings/SettingsTable.h"

#include <QString>

namespace talvo {

class SettingsStore {
public:
    explicit SettingsStore(Registry& registry) : registry_(registry) {}

    DWORD GetVolume() const { return GetDword(Setting::Volume); }
    RegStatus SetVolume(DWORD level) { return SetDword(Setting::Volume, level); }
    // Percent of the wave-volume scale, truncated both ways: storing 33 % and
    // reading it back shows 32 %.
    DWORD GetVolumePercent() const;
    RegStatus SetVolumePercent(DWORD percent);

    DWORD GetJumpBack() const { return GetDword(Setting::JumpBack); }
    RegStatus SetJumpBack(DWORD seconds) { return SetDword(Setting::JumpBack, seconds); }
    DWORD GetPowerOffTime() const { return GetDword(Setting::PowerOffTime); }
    RegStatus SetPowerOffTime(DWORD seconds) { return SetDword(Setting::PowerOffTime, seconds); }
    DWORD GetFirstTimeRun() const { return GetDword(Setting::FirstTimeRun); }
    RegStatus SetFirstTimeRun(DWORD marker) { return SetDword(Setting::FirstTimeRun, marker); }

    DWORD GetSkipSilence() const { return GetDword(Setting::SkipSilence); }
    RegStatus SetSkipSilence(DWORD on) { return SetDword(Setting::SkipSilence, on); }
    DWORD GetSmartRewind() const { return GetDword(Setting::SmartRewind); }
    RegStatus SetSmartRewind(DWORD on) { return SetDword(Setting::SmartRewind, on); }

    // Empty when absent, not a string, or longer than kLastProgramMaxChars.
    QString GetLastProgram() const;
    RegStatus SetLastProgram(const QString& path);

    // The conversions of the percent accessors, in double precision.
    static DWORD PercentFromLevel(DWORD level);
    static DWORD LevelFromPercent(DWORD percent);

private:
    DWORD GetDword(const SettingDef& setting) const;
    RegStatus SetDword(const SettingDef& setting, DWORD value);

    Registry& registry_;
};

} // namespace talvo
