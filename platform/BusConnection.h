#pragma once
// Private connections to the system and session buses, one per service that
// needs its own thread or lifetime.  The bus is looked up afresh at every
// connection (DBUS_SYSTEM_BUS_ADDRESS, DBUS_SESSION_BUS_ADDRESS, else the
// standard bus), whereas the bus library remembers the first address it saw
// for the life of the process.  Close with QDBusConnection::disconnectFromBus
// and the same name.
#include <QDBusConnection>

namespace talvo {

QDBusConnection ConnectToSystemBus(const QString& connectionName);
QDBusConnection ConnectToSessionBus(const QString& connectionName);

} // namespace talvo
