#include "platform/CallLine.h"

#include "platform/BusConnection.h"
#include "platform/EventQueueHandOff.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QHash>
#include <QThread>
#include <atomic>

namespace talvo {
namespace {

const QString kService = QStringLiteral("org.freedesktop.ModemManager1");
const QString kCallInterface = QStringLiteral("org.freedesktop.ModemManager1.Call");
const QString kVoiceInterface = QStringLiteral("org.freedesktop.ModemManager1.Modem.Voice");
const QString kBusService = QStringLiteral("org.freedesktop.DBus");
const QString kBusPath = QStringLiteral("/org/freedesktop/DBus");
const QString kNameOwnerChanged = QStringLiteral("NameOwnerChanged");

// ModemManager's call states (MMCallState).
constexpr int kDialing = 1, kRingingOut = 2, kRingingIn = 3, kTerminated = 7;
// A call object that does not answer a property read within this is taken as
// gone; the wait only holds the watcher's thread.
constexpr int kPeerTimeoutMs = 2000;

CallState callStateOf(int modemState)
{
    switch (modemState) {
    case kRingingIn:
        return CallState::Offering;
    case kDialing:
    case kRingingOut:
        return CallState::Dialling;
    case kTerminated:
        return CallState::Disconnected;
    default:
        return CallState::Other;
    }
}

// Lives on the line's thread: every signal from ModemManager is handled there.
class CallWatcher : public QObject {
    Q_OBJECT
public:
    CallWatcher(QDBusConnection bus, CallLine::Listener listener) : bus_(bus), listener_(std::move(listener))
    {
    }

    // The name is matched rather than its current owner, so a ModemManager
    // (and a modem) that appears later is heard as well.
    bool Watch()
    {
        return bus_.connect(kService, QString(), kCallInterface, QStringLiteral("StateChanged"), this,
                            SLOT(onStateChanged(int, int, uint, QDBusMessage))) &&
               bus_.connect(kService, QString(), kVoiceInterface, QStringLiteral("CallAdded"), this,
                            SLOT(onCallAdded(QDBusObjectPath))) &&
               bus_.connect(kService, QString(), kVoiceInterface, QStringLiteral("CallDeleted"), this,
                            SLOT(onCallDeleted(QDBusObjectPath))) &&
               bus_.connect(kBusService, kBusPath, kBusService, kNameOwnerChanged, {kService}, QString(),
                            this, SLOT(onOwnerChanged(QString, QString, QString)));
    }

    void Unwatch()
    {
        bus_.disconnect(kBusService, kBusPath, kBusService, kNameOwnerChanged, {kService}, QString(), this,
                        SLOT(onOwnerChanged(QString, QString, QString)));
        bus_.disconnect(kService, QString(), kCallInterface, QStringLiteral("StateChanged"), this,
                        SLOT(onStateChanged(int, int, uint, QDBusMessage)));
        bus_.disconnect(kService, QString(), kVoiceInterface, QStringLiteral("CallAdded"), this,
                        SLOT(onCallAdded(QDBusObjectPath)));
        bus_.disconnect(kService, QString(), kVoiceInterface, QStringLiteral("CallDeleted"), this,
                        SLOT(onCallDeleted(QDBusObjectPath)));
    }

public slots:
    void onStateChanged(int, int newState, uint, const QDBusMessage& message)
    {
        report(message.path(), callStateOf(newState));
    }

    // A call comes into being already in a state (an incoming one ringing).
    void onCallAdded(const QDBusObjectPath& call)
    {
        QDBusMessage get = QDBusMessage::createMethodCall(
            kService, call.path(), QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << kCallInterface << QStringLiteral("State");
        const QDBusMessage reply = bus_.call(get, QDBus::Block, kPeerTimeoutMs);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return;
        report(call.path(),
               callStateOf(qvariant_cast<QDBusVariant>(reply.arguments().first()).variant().toInt()));
    }

    void onCallDeleted(const QDBusObjectPath& call) { reported_.remove(call.path()); }

    // A ModemManager that went away (or was replaced) took its calls with it;
    // one that comes back numbers its calls afresh from the same paths, and a
    // new call there must not be taken for the old one's repeat.  Whether the
    // call itself went on is unknown, so nothing is reported for it: a player
    // paused for it stays paused rather than playing into a call.
    void onOwnerChanged(const QString&, const QString&, const QString&) { reported_.clear(); }

private:
    void report(const QString& call, CallState state)
    {
        auto known = reported_.find(call);
        if (known != reported_.end() && *known == state)
            return;
        reported_.insert(call, state);
        if (state != CallState::Other)
            listener_(state);
    }

    QDBusConnection bus_;
    CallLine::Listener listener_;
    QHash<QString, CallState> reported_; // the last state reported per call object
};

class ModemManagerCallLine final : public CallLine {
public:
    ModemManagerCallLine()
        : connectionName_(QStringLiteral("talvo-call-line-%1").arg(nextConnection_.fetch_add(1)))
    {
    }

    ~ModemManagerCallLine() override
    {
        if (watcher_)
            watcher_->Unwatch();
        // The watcher is deleted on its own thread as that thread ends, so
        // what its slots wrote there is never touched from this one; the end
        // comes after the quit through QThread's own lock.
        talvo::HandOffToAnotherThread();
        thread_.quit();
        thread_.wait();
        QDBusConnection::disconnectFromBus(connectionName_);
    }

    bool Open(Listener listener) override
    {
        qRegisterMetaType<QDBusObjectPath>();
        QDBusConnection bus = ConnectToSystemBus(connectionName_);
        if (!bus.isConnected())
            return false;
        watcher_ = new CallWatcher(bus, std::move(listener));
        watcher_->moveToThread(&thread_);
        talvo::DeleteAsThreadEnds(thread_, watcher_);
        thread_.setObjectName(QStringLiteral("call line"));
        thread_.start();
        return watcher_->Watch();
    }

private:
    static inline std::atomic<int> nextConnection_{0};
    QString connectionName_;
    QThread thread_;
    CallWatcher* watcher_ = nullptr; // deleted by its thread as that thread ends
};

} // namespace

std::unique_ptr<CallLine> CreateModemManagerCallLine()
{
    return std::make_unique<ModemManagerCallLine>();
}

} // namespace talvo

#include "ModemManagerCallLine.moc"
