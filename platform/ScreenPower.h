#pragma once
// Switching the display's power while audio plays.  On Linux the display is
// switched through the compositor (org.gnome.Mutter.DisplayConfig's
// PowerSaveMode on the session bus) or, on an X server, through the DPMS
// extension; "supported" means one of them answers at the time of asking.
//
// Contract:
// - UI thread only.  Neither call waits on a peer for longer than
//   kScreenPowerReplyMs, so a compositor that hangs cannot stall playback.
// - SetScreenPower is called only after IsSupported answered true, and goes to
//   the service that answered.
// - The screen can wake without the player (the compositor for a
//   notification, a hardware key that never reaches the player, another
//   program): IsScreenOn asks the service for the state it really has.
// - TALVOPLAYER_SCREEN_POWER=FILE replaces the display with a recording one:
//   it always answers, and appends "off" or "on" to FILE for every switch.
//   Its state is the file's last line, so that whoever writes "on" there
//   stands for something else waking the screen.  The value "none" stands
//   for a display that nothing can switch.
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace talvo {

inline constexpr char kScreenPowerVariable[] = "TALVOPLAYER_SCREEN_POWER";
inline constexpr char kNoScreenPower[] = "none";
inline constexpr int kScreenPowerReplyMs = 500;

class ScreenPower {
public:
    virtual ~ScreenPower() = default;
    // Whether a display-power service answers now.
    virtual bool IsSupported() = 0;
    virtual void SetScreenPower(bool on) = 0;
    // Whether the screen is lit now; nullopt when the service cannot tell.
    virtual std::optional<bool> IsScreenOn() = 0;
    // woken is called when the service announces the screen lit, whoever lit
    // it (the compositor's PropertiesChanged); a service that announces
    // nothing never calls it, and input still asks IsScreenOn.
    virtual void WatchForWaking(std::function<void()> woken) = 0;
};

// The recording display when TALVOPLAYER_SCREEN_POWER is set, else the real one.
std::unique_ptr<ScreenPower> CreateScreenPower();
std::unique_ptr<ScreenPower> CreateDisplayScreenPower();
// Records every switch as a line "off" or "on" in path; an empty path answers
// that nothing can switch the display.
std::unique_ptr<ScreenPower> CreateRecordingScreenPower(const QString& path);

} // namespace talvo
