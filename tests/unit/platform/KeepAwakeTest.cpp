// Keeping the session awake through its screen saver service, on a private
// session bus with a stand-in service that counts what reaches it.
#include "platform/KeepAwake.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QElapsedTimer>
#include <QProcess>
#include <gtest/gtest.h>

namespace talvo {
namespace {

class ScreenSaverStandIn : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    int activities = 0;
public slots:
    Q_SCRIPTABLE void SimulateUserActivity() { ++activities; }
};

class KeepAwakeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        bus_.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                   QStringLiteral("--print-address=1")});
        ASSERT_TRUE(bus_.waitForReadyRead(10000)) << "dbus-daemon did not start";
        const QString address = QString::fromUtf8(bus_.readLine()).trimmed();
        // The player's side reaches the service through the default session bus.
        qputenv("DBUS_SESSION_BUS_ADDRESS", address.toUtf8());
        service_ = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(address, QStringLiteral("screensaver-stand-in")));
        ASSERT_TRUE(service_->isConnected());
        ASSERT_TRUE(service_->registerObject(QStringLiteral("/ScreenSaver"), &screenSaver_,
                                             QDBusConnection::ExportScriptableSlots));
        ASSERT_TRUE(service_->registerService(QStringLiteral("org.freedesktop.ScreenSaver")));
    }

    void TearDown() override
    {
        // Unregistered from this thread, so the bus thread's own cleanup of
        // the connection never reaches the stand-in this thread destroys.
        service_->unregisterObject(QStringLiteral("/ScreenSaver"));
        service_.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("screensaver-stand-in"));
        bus_.kill();
        bus_.waitForFinished();
    }

    // Lets the calls in flight arrive.
    void settle()
    {
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 500)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }

    QProcess bus_;
    std::unique_ptr<QDBusConnection> service_;
    ScreenSaverStandIn screenSaver_;
};

TEST_F(KeepAwakeTest, ResetsAfterEveryBufferReachTheSessionAsOne)
{
    // A minute of refills at the player's usual pace comes in a burst here.
    for (int i = 0; i < 500; ++i)
        ResetSystemIdleTimer();
    settle();
    EXPECT_EQ(screenSaver_.activities, 1);
}

} // namespace
} // namespace talvo

#include "KeepAwakeTest.moc"
