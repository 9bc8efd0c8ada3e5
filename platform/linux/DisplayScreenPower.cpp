#include "platform/ScreenPower.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QObject>
#include <QVariant>
#include <QVariantMap>

// Xlib's headers define macros (None, Bool, Status) that clash with Qt's; they
// come last and stay in this file.
#include <X11/Xlib.h>
#include <X11/extensions/dpms.h>

namespace talvo {
namespace {

const QString kMutterService = QStringLiteral("org.gnome.Mutter.DisplayConfig");
const QString kMutterPath = QStringLiteral("/org/gnome/Mutter/DisplayConfig");
const QString kPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kPowerSaveMode = QStringLiteral("PowerSaveMode");
// PowerSaveMode follows the DPMS levels: 0 on, 3 off.
constexpr int kMutterModeOn = 0;
constexpr int kMutterModeOff = 3;

QDBusMessage mutterPropertyCall(const QString& method)
{
    return QDBusMessage::createMethodCall(kMutterService, kMutterPath, kPropertiesInterface, method);
}

// The compositor's PowerSaveMode, as GNOME's compositor offers it; nullopt
// when no compositor answers in time.
std::optional<int> mutterPowerSaveMode()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return std::nullopt;
    QDBusMessage get = mutterPropertyCall(QStringLiteral("Get"));
    get << kMutterService << kPowerSaveMode;
    const QDBusMessage reply = bus.call(get, QDBus::Block, kScreenPowerReplyMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    return qvariant_cast<QDBusVariant>(reply.arguments().first()).variant().toInt();
}

void setMutterPowerSaveMode(int mode)
{
    QDBusMessage set = mutterPropertyCall(QStringLiteral("Set"));
    set << kMutterService << kPowerSaveMode << QVariant::fromValue(QDBusVariant(mode));
    QDBusConnection::sessionBus().call(set, QDBus::NoBlock);
}

// Hears the compositor announce its PowerSaveMode, from whichever program
// (a compositor that appears later too: the name is watched, not its owner).
class MutterWakeWatcher : public QObject {
    Q_OBJECT
public:
    explicit MutterWakeWatcher(std::function<void()> woken) : woken_(std::move(woken))
    {
        QDBusConnection::sessionBus().connect(kMutterService, kMutterPath, kPropertiesInterface,
                                              QStringLiteral("PropertiesChanged"), this,
                                              SLOT(onPropertiesChanged(QString, QVariantMap, QStringList)));
    }

public slots:
    void onPropertiesChanged(const QString&, const QVariantMap& changed, const QStringList&)
    {
        const auto mode = changed.constFind(kPowerSaveMode);
        if (mode != changed.constEnd() && mode->toInt() == kMutterModeOn)
            woken_();
    }

private:
    std::function<void()> woken_;
};

// An X server's own display power.  Forcing a level needs DPMS enabled; when
// the player had to enable it, it disables it again once the screen is back,
// leaving the user's settings as they were.
class X11Dpms {
public:
    X11Dpms() : display_(XOpenDisplay(nullptr)) {}
    ~X11Dpms()
    {
        if (display_)
            XCloseDisplay(display_);
    }
    X11Dpms(const X11Dpms&) = delete;
    X11Dpms& operator=(const X11Dpms&) = delete;

    bool Answers() const
    {
        int event = 0, error = 0;
        return display_ && DPMSQueryExtension(display_, &event, &error) && DPMSCapable(display_);
    }

    bool IsOn() const
    {
        CARD16 level = 0;
        BOOL enabled = False;
        DPMSInfo(display_, &level, &enabled);
        return !enabled || level == DPMSModeOn;
    }

    void Force(bool on)
    {
        CARD16 level = 0;
        BOOL enabled = False;
        DPMSInfo(display_, &level, &enabled);
        if (!on && !enabled) {
            DPMSEnable(display_);
            enabledByUs_ = true;
        }
        DPMSForceLevel(display_, on ? DPMSModeOn : DPMSModeOff);
        if (on && enabledByUs_) {
            DPMSDisable(display_);
            enabledByUs_ = false;
        }
        XFlush(display_);
    }

private:
    Display* display_;
    bool enabledByUs_ = false;
};

class DisplayScreenPower final : public ScreenPower {
public:
    bool IsSupported() override
    {
        // The compositor first: under Wayland an X server may exist for older
        // programs and claim DPMS without owning the screen.
        if (mutterPowerSaveMode())
            service_ = Service::Mutter;
        else if (dpms_.Answers())
            service_ = Service::Dpms;
        else
            service_ = Service::Nothing;
        return service_ != Service::Nothing;
    }

    void SetScreenPower(bool on) override
    {
        switch (service_) {
        case Service::Mutter:
            setMutterPowerSaveMode(on ? kMutterModeOn : kMutterModeOff);
            break;
        case Service::Dpms:
            dpms_.Force(on);
            break;
        case Service::Nothing:
            break;
        }
    }

    std::optional<bool> IsScreenOn() override
    {
        switch (service_) {
        case Service::Mutter:
            if (const std::optional<int> mode = mutterPowerSaveMode())
                return *mode == kMutterModeOn;
            return std::nullopt;
        case Service::Dpms:
            return dpms_.IsOn();
        case Service::Nothing:
            break;
        }
        return std::nullopt;
    }

    void WatchForWaking(std::function<void()> woken) override
    {
        mutterWatcher_ = std::make_unique<MutterWakeWatcher>(std::move(woken));
    }

private:
    enum class Service { Nothing, Mutter, Dpms };
    Service service_ = Service::Nothing;
    X11Dpms dpms_;
    std::unique_ptr<MutterWakeWatcher> mutterWatcher_;
};

} // namespace

std::unique_ptr<ScreenPower> CreateDisplayScreenPower()
{
    return std::make_unique<DisplayScreenPower>();
}

} // namespace talvo

#include "DisplayScreenPower.moc"
