// The real display adapter against a stand-in compositor on a private session
// bus (python3-dbusmock serving org.gnome.Mutter.DisplayConfig), and with no
// service and no X server at all.
#include "platform/ScreenPower.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QProcess>
#include <functional>
#include <gtest/gtest.h>

namespace talvo {
namespace {

const QString kService = QStringLiteral("org.gnome.Mutter.DisplayConfig");
const QString kPath = QStringLiteral("/org/gnome/Mutter/DisplayConfig");

bool waitFor(const std::function<bool()>& condition)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > 10000)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

class DisplayScreenPowerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // No X server: only the compositor can answer.
        qunsetenv("DISPLAY");
        bus_.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                   QStringLiteral("--print-address=1")});
        ASSERT_TRUE(bus_.waitForReadyRead(10000)) << "dbus-daemon did not start";
        address_ = QString::fromUtf8(bus_.readLine()).trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address_.toUtf8());
        observer_ = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(address_, QStringLiteral("observer")));
        ASSERT_TRUE(observer_->isConnected());
    }

    void TearDown() override
    {
        if (compositor_.state() != QProcess::NotRunning) {
            compositor_.kill();
            compositor_.waitForFinished();
        }
        observer_.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("observer"));
        bus_.kill();
        bus_.waitForFinished();
    }

    void startCompositor()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address_);
        compositor_.setProcessEnvironment(environment);
        compositor_.start(QStringLiteral("/usr/bin/python3"),
                          {QStringLiteral("-m"), QStringLiteral("dbusmock"), kService, kPath, kService});
        ASSERT_TRUE(waitFor([&] { return observer_->interface()->isServiceRegistered(kService).value(); }));
        QDBusMessage add = QDBusMessage::createMethodCall(
            kService, kPath, QStringLiteral("org.freedesktop.DBus.Mock"), QStringLiteral("AddProperty"));
        add << kService << QStringLiteral("PowerSaveMode") << QVariant::fromValue(QDBusVariant(0));
        ASSERT_EQ(observer_->call(add).type(), QDBusMessage::ReplyMessage);
    }

    void setPowerSaveMode(int mode)
    {
        QDBusMessage set = QDBusMessage::createMethodCall(
            kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Set"));
        set << kService << QStringLiteral("PowerSaveMode") << QVariant::fromValue(QDBusVariant(mode));
        ASSERT_EQ(observer_->call(set).type(), QDBusMessage::ReplyMessage);
    }

    int powerSaveMode()
    {
        QDBusMessage get = QDBusMessage::createMethodCall(
            kService, kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
        get << kService << QStringLiteral("PowerSaveMode");
        const QDBusMessage reply = observer_->call(get);
        if (reply.type() != QDBusMessage::ReplyMessage)
            return -1;
        return reply.arguments().value(0).value<QDBusVariant>().variant().toInt();
    }

    QProcess bus_;
    QProcess compositor_;
    QString address_;
    std::unique_ptr<QDBusConnection> observer_;
};

// One case: the adapter's session bus is the process's, made once.
TEST_F(DisplayScreenPowerTest, TheCompositorAnswersOnceItIsThereAndSwitchesTheScreen)
{
    std::unique_ptr<ScreenPower> power = CreateDisplayScreenPower();
    int woken = 0;
    power->WatchForWaking([&] { ++woken; });
    EXPECT_FALSE(power->IsSupported());
    power->SetScreenPower(false); // goes nowhere, and does not fail
    EXPECT_EQ(power->IsScreenOn(), std::nullopt);

    // A compositor that appears later is found at the next question.
    startCompositor();
    ASSERT_TRUE(power->IsSupported());
    power->SetScreenPower(false);
    EXPECT_TRUE(waitFor([&] { return powerSaveMode() == 3; }));
    EXPECT_EQ(power->IsScreenOn(), false);
    // The compositor lights the screen on its own (a notification).
    setPowerSaveMode(0);
    EXPECT_TRUE(waitFor([&] { return woken == 1; })) << "the compositor's announcement was not heard";
    EXPECT_EQ(power->IsScreenOn(), true);
    power->SetScreenPower(false);
    EXPECT_TRUE(waitFor([&] { return powerSaveMode() == 3; }));
    power->SetScreenPower(true);
    EXPECT_TRUE(waitFor([&] { return powerSaveMode() == 0; }));

    // A compositor that went away cannot tell.
    compositor_.kill();
    compositor_.waitForFinished();
    EXPECT_EQ(power->IsScreenOn(), std::nullopt);
}

} // namespace
} // namespace talvo
