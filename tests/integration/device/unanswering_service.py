'''A system service that hangs: it takes a service's name and never answers.

  modemmanager: announces an incoming call every 200 ms and never answers a
                read of the call's properties, as a ModemManager stuck waiting
                on its modem would.
  logind:       never answers a request for an inhibitor lock.

Run with Debian's /usr/bin/python3 on the bus DBUS_SYSTEM_BUS_ADDRESS names.
'''

import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

CALL = '/org/freedesktop/ModemManager1/Call/0'


class Modem(dbus.service.Object):
    @dbus.service.signal('org.freedesktop.ModemManager1.Modem.Voice', signature='o')
    def CallAdded(self, path):
        pass


class SilentCall(dbus.service.Object):
    # The callbacks are kept, never called: the reader waits for its timeout.
    unanswered = []

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature='ss', out_signature='v',
                         async_callbacks=('reply', 'error'))
    def Get(self, interface, name, reply, error):
        self.unanswered.append(reply)


class SilentLogind(dbus.service.Object):
    unanswered = []

    @dbus.service.method('org.freedesktop.login1.Manager', in_signature='ssss', out_signature='h',
                         async_callbacks=('reply', 'error'))
    def Inhibit(self, what, who, why, mode, reply, error):
        self.unanswered.append(reply)


def announce(modem):
    modem.CallAdded(dbus.ObjectPath(CALL))
    return True


DBusGMainLoop(set_as_default=True)
bus = dbus.SystemBus()
if sys.argv[1] == 'modemmanager':
    name = dbus.service.BusName('org.freedesktop.ModemManager1', bus)
    modem = Modem(bus, '/org/freedesktop/ModemManager1/Modem/0')
    call = SilentCall(bus, CALL)
    GLib.timeout_add(200, announce, modem)
else:
    name = dbus.service.BusName('org.freedesktop.login1', bus)
    logind = SilentLogind(bus, '/org/freedesktop/login1')
GLib.MainLoop().run()
