#include "device/ScreenPowerOff.h"

#include "base/CommandIds.h"
#include "platform/MessageWindow.h"
#include "platform/ScreenPower.h"
#include "settings/SettingsStore.h"

#include <QApplication>
#include <QEvent>

namespace talvo {
namespace {

// The key and pointer events that count as the user's activity; the first
// of each pair wakes the screen, the second ends the same tap.
bool isPress(QEvent::Type type)
{
    return type == QEvent::KeyPress || type == QEvent::MouseButtonPress ||
           type == QEvent::MouseButtonDblClick;
}

QEvent::Type releaseOf(QEvent::Type press)
{
    return press == QEvent::KeyPress ? QEvent::KeyRelease : QEvent::MouseButtonRelease;
}

bool isInput(QEvent::Type type)
{
    switch (type) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::MouseMove:
    case QEvent::Wheel:
        return true;
    default:
        return false;
    }
}

} // namespace

ScreenPowerOff::ScreenPowerOff(MessageWindow& window, const SettingsStore& settings,
                               std::function<bool()> isPlaying, std::unique_ptr<ScreenPower> power)
    : window_(window), settings_(settings), isPlaying_(std::move(isPlaying)), power_(std::move(power))
{
    qApp->installEventFilter(this);
    power_->WatchForWaking([this] { onScreenWoken(); });
}

ScreenPowerOff::~ScreenPowerOff()
{
    ScreenOnIfOff();
}

bool ScreenPowerOff::inForce() const
{
    return settings_.GetPowerOffTime() != kPowerOffNever;
}

bool ScreenPowerOff::armed() const
{
    return isPlaying_() && inForce();
}

bool ScreenPowerOff::windowInFront() const
{
    for (const QWidget* w = QApplication::activeWindow(); w; w = w->parentWidget()) {
        if (w == &window_)
            return true;
    }
    return false;
}

void ScreenPowerOff::ScreenOn()
{
    if (screenOn_ && !inForce())
        return;
    if (!power_->IsSupported())
        return;
    power_->SetScreenPower(true);
    screenOn_ = true;
}

void ScreenPowerOff::ScreenOff()
{
    if (!inForce() || !power_->IsSupported())
        return;
    power_->SetScreenPower(false);
    screenOn_ = false;
}

void ScreenPowerOff::OnPowerOffTimer()
{
    window_.KillTimer(Timer::ScreenPowerOff); // one shot
    if (screenOn_ && isPlaying_() && windowInFront())
        ScreenOff();
}

void ScreenPowerOff::ScreenOnIfOff()
{
    if (!screenOn_)
        ScreenOn();
}

void ScreenPowerOff::onScreenWoken()
{
    if (screenOn_)
        return;
    screenOn_ = true;
    // Lit by something else while playing: dark again after the stored time,
    // as after the listener's own input.
    if (armed())
        rearm();
}

void ScreenPowerOff::rearm()
{
    if (const std::uint32_t ms = PowerOffDelayMs(settings_.GetPowerOffTime()))
        window_.SetTimer(Timer::ScreenPowerOff, ms);
}

bool ScreenPowerOff::filterInput(const QEvent& event)
{
    const QEvent::Type type = event.type();
    if (swallowRelease_ == type) {
        swallowRelease_ = 0;
        return true;
    }
    if (!armed())
        return false;
    rearm();
    if (!screenOn_ && power_->IsScreenOn() == true)
        screenOn_ = true; // woken by something else: this input is the listener's
    if (screenOn_)
        return false;
    ScreenOn();
    if (isPress(type))
        swallowRelease_ = releaseOf(type);
    return true;
}

bool ScreenPowerOff::eventFilter(QObject* watched, QEvent* event)
{
    if (isInput(event->type()))
        return filterInput(*event);
    // The window losing the focus to another program.
    if (event->type() == QEvent::WindowDeactivate && watched == &window_)
        ScreenOnIfOff();
    return false;
}

} // namespace talvo
