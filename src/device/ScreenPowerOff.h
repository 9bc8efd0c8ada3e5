#pragma once
// The screen power-off while audio plays.  Playback arms the main window's
// timer 1089 with the stored "Power Off Time"; when it fires with the player
// in front and playing, the screen is switched off.  The input filter sees
// every key and pointer event of the application before any widget does:
// while the timer is armed it re-arms it, and a tap or key that finds the
// screen off switches it on and goes no further.  The screen may have woken
// without the player meanwhile: a display that announces it is heard at once
// (and the timer re-armed), and input asks the display first, so that input
// finding the screen lit is the listener's and acts.
//
// Contract:
// - UI thread only; the filter is installed on the application for as long
//   as this object lives.
// - "Armed" means from the start of playback until Stop kills the timer; the
//   timer firing once does not disarm it, so input while the screen is off
//   still wakes it.
// - The settings are read at every use, never kept.
#include <QObject>
#include <functional>
#include <memory>

class QEvent;

namespace talvo {

class MessageWindow;
class ScreenPower;
class SettingsStore;

class ScreenPowerOff final : public QObject {
public:
    ScreenPowerOff(MessageWindow& window, const SettingsStore& settings, std::function<bool()> isPlaying,
                   std::unique_ptr<ScreenPower> power);
    ~ScreenPowerOff() override;

    // Switch the display; only while the power-off time is not "never".
    // ScreenOn also switches on a screen this object switched off whatever
    // the setting says now, so that the screen is never left dark.
    void ScreenOn();
    void ScreenOff();
    // Timer 1089 fired.
    void OnPowerOffTimer();
    // Stop, losing the focus: a screen the timer switched off comes back.
    void ScreenOnIfOff();
    bool IsScreenOn() const { return screenOn_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool inForce() const;
    bool armed() const;
    bool windowInFront() const;
    void rearm();
    void onScreenWoken();
    bool filterInput(const QEvent& event);

    MessageWindow& window_;
    const SettingsStore& settings_;
    const std::function<bool()> isPlaying_;
    const std::unique_ptr<ScreenPower> power_;
    bool screenOn_ = true;
    // The release of the press that woke the screen belongs to the same tap.
    int swallowRelease_ = 0; // QEvent::Type, or 0
};

} // namespace talvo
