#pragma once
// A private D-Bus daemon standing in for the system or the session bus, with
// python3-dbusmock services on it and a connection of the test's own.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>
#include <gtest/gtest.h>
#include <list>

namespace talvo::test {

class PrivateBus {
public:
    // variable: DBUS_SYSTEM_BUS_ADDRESS or DBUS_SESSION_BUS_ADDRESS, pointed
    // at the new bus for the player and the mocks alike.
    explicit PrivateBus(const char* variable)
        : variable_(variable), name_(QStringLiteral("test-%1").arg(variable))
    {
        daemon_.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                      QStringLiteral("--print-address=1")});
        EXPECT_TRUE(daemon_.waitForReadyRead(10000)) << "dbus-daemon did not start";
        address_ = QString::fromUtf8(daemon_.readLine()).trimmed();
        qputenv(variable_, address_.toUtf8());
        connection_ = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(address_, name_));
        EXPECT_TRUE(connection_->isConnected());
    }

    ~PrivateBus()
    {
        for (QProcess& mock : mocks_) {
            mock.terminate();
            mock.waitForFinished();
        }
        connection_.reset();
        QDBusConnection::disconnectFromBus(name_);
        daemon_.kill();
        daemon_.waitForFinished();
        qunsetenv(variable_);
    }

    QDBusConnection& Connection() { return *connection_; }

    // Starts python3-dbusmock with a template (a name or a file) and waits
    // until it owns busName.
    bool StartMock(const QString& busName, const QString& templ, bool systemBus)
    {
        return StartService(busName, {QStringLiteral("-m"), QStringLiteral("dbusmock"),
                                      systemBus ? QStringLiteral("--system") : QStringLiteral("--session"),
                                      QStringLiteral("-t"), templ});
    }

    // Starts a service of Python's (a script and its arguments, or -m and a
    // module) and waits until it owns busName.
    bool StartService(const QString& busName, const QStringList& pythonArguments)
    {
        QProcess& mock = mocks_.emplace_back();
        mock.setProcessChannelMode(QProcess::ForwardedChannels);
        mock.start(QStringLiteral("/usr/bin/python3"), pythonArguments);
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 20000) {
            if (connection_->interface()->isServiceRegistered(busName))
                return true;
            if (mock.state() == QProcess::NotRunning)
                return false;
            QThread::msleep(20);
        }
        return false;
    }

    // Kills every service started so far, as a crash would: no goodbye on the bus.
    void KillServices()
    {
        for (QProcess& mock : mocks_) {
            mock.kill();
            mock.waitForFinished();
        }
        mocks_.clear();
    }

    // Calls a method of a mock's org.freedesktop.DBus.Mock interface.
    QDBusMessage CallMock(const QString& busName, const QString& path, const QString& method,
                          const QVariantList& arguments = {})
    {
        QDBusMessage call = QDBusMessage::createMethodCall(
            busName, path, QStringLiteral("org.freedesktop.DBus.Mock"), method);
        call.setArguments(arguments);
        QDBusMessage reply = connection_->call(call);
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return reply;
    }

private:
    const char* variable_;
    QString name_;
    QString address_;
    QProcess daemon_;
    std::list<QProcess> mocks_;
    std::unique_ptr<QDBusConnection> connection_;
};

} // namespace talvo::test
