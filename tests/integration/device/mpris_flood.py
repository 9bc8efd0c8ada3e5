'''An MPRIS client that floods the player for SECONDS: calls as fast as the
bus takes them, with many in flight at once (property reads, GetAll,
introspection and SetPosition with a stale track, which the player ignores).
Then waits for the answers of the calls in flight, and prints "answered N of
M" once every call has had its answer (or error).  The time, not a count,
bounds the flood, so it outlasts a measurement on a fast machine as well.

  /usr/bin/python3 mpris_flood.py SECONDS
'''

import sys
import time

import dbus
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

SERVICE = 'org.mpris.MediaPlayer2.talvoplayer'
PATH = '/org/mpris/MediaPlayer2'
PLAYER = 'org.mpris.MediaPlayer2.Player'
IN_FLIGHT = 256

CALLS = [
    (dbus.PROPERTIES_IFACE, 'Get', 'ss', (PLAYER, 'Position')),
    (dbus.PROPERTIES_IFACE, 'Get', 'ss', (PLAYER, 'Metadata')),
    (dbus.PROPERTIES_IFACE, 'Get', 'ss', (PLAYER, 'PlaybackStatus')),
    (dbus.PROPERTIES_IFACE, 'GetAll', 's', (PLAYER,)),
    ('org.freedesktop.DBus.Introspectable', 'Introspect', '', ()),
    (PLAYER, 'SetPosition', 'ox', (dbus.ObjectPath('/org/talvoplayer/program/gone'), dbus.Int64(0))),
]

DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
deadline = time.monotonic() + float(sys.argv[1])
loop = GLib.MainLoop()
sent = answered = errors = 0


def send_next():
    global sent
    interface, method, signature, arguments = CALLS[sent % len(CALLS)]
    sent += 1
    bus.call_async(SERVICE, PATH, interface, method, signature, arguments, on_answer, on_error)


def on_done():
    if time.monotonic() < deadline:
        send_next()
    elif answered + errors == sent:
        loop.quit()


def on_answer(*_):
    global answered
    answered += 1
    on_done()


def on_error(error):
    global errors
    errors += 1
    print('error:', error, file=sys.stderr)
    on_done()


for _ in range(IN_FLIGHT):
    send_next()
loop.run()
print('answered', answered, 'of', sent)
