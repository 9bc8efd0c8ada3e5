#include "platform/SleepInhibitor.h"

#include "platform/BusConnection.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <atomic>

namespace talvo {
namespace {

std::atomic<int> nextConnection{0};

class LogindSleepInhibitor final : public SleepInhibitor {
public:
    LogindSleepInhibitor()
        : connectionName_(QStringLiteral("talvo-sleep-inhibitor-%1").arg(nextConnection++)),
          bus_(ConnectToSystemBus(connectionName_))
    {
    }

    ~LogindSleepInhibitor() override
    {
        Release();
        QDBusConnection::disconnectFromBus(connectionName_);
    }

    void Hold() override
    {
        if (wanted_ || !bus_.isConnected())
            return;
        wanted_ = true;
        QDBusMessage inhibit = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
            QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
        inhibit << QStringLiteral("sleep") << QStringLiteral("TalvoPlayer")
                << QStringLiteral("Playing an audio program") << QStringLiteral("block");
        auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(inhibit), nullptr);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                         [this, alive = alive_](QDBusPendingCallWatcher* call) {
                             call->deleteLater();
                             QDBusPendingReply<QDBusUnixFileDescriptor> reply = *call;
                             // The descriptor closes with the reply unless kept.
                             if (*alive && reply.isValid())
                                 lock_ = reply.value();
                         });
    }

    void Release() override
    {
        wanted_ = false;
        lock_ = QDBusUnixFileDescriptor();
        *alive_ = false;
        alive_ = std::make_shared<bool>(true);
    }

private:
    QString connectionName_;
    QDBusConnection bus_;
    bool wanted_ = false;
    QDBusUnixFileDescriptor lock_;
    // False for the answers to requests made before the last Release (and
    // after the inhibitor is gone).
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace

std::unique_ptr<SleepInhibitor> CreateLogindSleepInhibitor()
{
    return std::make_unique<LogindSleepInhibitor>();
}

} // namespace talvo
