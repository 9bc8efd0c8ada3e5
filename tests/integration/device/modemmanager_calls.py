'''ModemManager with voice calls, for python3-dbusmock

The manager object, modems with the Modem.Voice interface, and call objects
whose State changes as a test says, with the CallAdded and StateChanged signals
ModemManager sends.  Load with: python3 -m dbusmock --system -t THIS_FILE
'''

import dbus
import dbusmock

from dbusmock import MOCK_IFACE

SYSTEM_BUS = True
BUS_NAME = 'org.freedesktop.ModemManager1'
MAIN_OBJ = '/org/freedesktop/ModemManager1'
IS_OBJECT_MANAGER = True
MODEM_IFACE = 'org.freedesktop.ModemManager1.Modem'
VOICE_IFACE = 'org.freedesktop.ModemManager1.Modem.Voice'
CALL_IFACE = 'org.freedesktop.ModemManager1.Call'

# MMCallDirection
INCOMING, OUTGOING = 1, 2


def load(mock, parameters):
    mock.modems = 0
    mock.calls = 0


@dbus.service.method(MOCK_IFACE, in_signature='', out_signature='o')
def AddModem(self):
    '''Adds a modem that can carry voice calls; returns its path.'''
    path = '/org/freedesktop/ModemManager1/Modem/%d' % self.modems
    self.modems += 1
    self.AddObject(path, MODEM_IFACE, {'State': dbus.Int32(8)}, [])
    modem = dbusmock.get_object(path)
    modem.AddProperties(VOICE_IFACE, {'Calls': dbus.Array([], signature='o')})
    return path


@dbus.service.method(MOCK_IFACE, in_signature='oui', out_signature='o')
def AddCall(self, modem_path, direction, state):
    '''Adds a call to a modem in the given MMCallState; returns its path.'''
    path = '/org/freedesktop/ModemManager1/Call/%d' % self.calls
    self.calls += 1
    self.AddObject(path, CALL_IFACE, {
        'State': dbus.Int32(state),
        'Direction': dbus.Int32(direction),
        'Number': '5550100',
    }, [])
    modem = dbusmock.get_object(modem_path)
    calls = modem.Get(VOICE_IFACE, 'Calls')
    modem.Set(VOICE_IFACE, 'Calls', dbus.Array(list(calls) + [dbus.ObjectPath(path)], signature='o'))
    modem.EmitSignal(VOICE_IFACE, 'CallAdded', 'o', [dbus.ObjectPath(path)])
    return path


@dbus.service.method(MOCK_IFACE, in_signature='oi', out_signature='')
def SetCallState(self, call_path, state):
    '''Moves a call to another MMCallState, as ModemManager announces it.'''
    call = dbusmock.get_object(call_path)
    old = call.Get(CALL_IFACE, 'State')
    call.Set(CALL_IFACE, 'State', dbus.Int32(state))
    call.EmitSignal(CALL_IFACE, 'StateChanged', 'iiu', [dbus.Int32(old), dbus.Int32(state), dbus.UInt32(0)])
