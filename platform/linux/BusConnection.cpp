#include "platform/BusConnection.h"

namespace talvo {
namespace {

QDBusConnection connectTo(const char* variable, QDBusConnection::BusType standard, const QString& name)
{
    const QString address = qEnvironmentVariable(variable);
    if (address.isEmpty())
        return QDBusConnection::connectToBus(standard, name);
    return QDBusConnection::connectToBus(address, name);
}

} // namespace

QDBusConnection ConnectToSystemBus(const QString& connectionName)
{
    return connectTo("DBUS_SYSTEM_BUS_ADDRESS", QDBusConnection::SystemBus, connectionName);
}

QDBusConnection ConnectToSessionBus(const QString& connectionName)
{
    return connectTo("DBUS_SESSION_BUS_ADDRESS", QDBusConnection::SessionBus, connectionName);
}

} // namespace talvo
