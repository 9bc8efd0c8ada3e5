#pragma once
// The phone's calls as the player sees them: a watcher on a thread of its own
// reports each change of a call's state.  On Linux the calls come from
// ModemManager on the system bus; a modem that appears later is watched too.
//
// Contract:
// - Open starts the watcher and returns at once; false means there is no
//   telephony to watch at all (no system bus), and nothing will be reported.
// - The listener runs on the watcher's own thread, one report at a time, and
//   may block that thread (the player waits there before a call-ended notice);
//   reports that arrive meanwhile wait their turn.
// - Each call reports a state once when it enters it: a call that goes from
//   dialing to ringing-out is dialling once.
// - Destroying the line stops the thread; the listener is not called after.
#include <functional>
#include <memory>

namespace talvo {

enum class CallState {
    Offering,     // a call comes in (ModemManager's ringing-in)
    Dialling,     // a call goes out (dialing, ringing-out)
    Disconnected, // a call ended (terminated)
    Other,
};

class CallLine {
public:
    using Listener = std::function<void(CallState state)>;
    virtual ~CallLine() = default;
    virtual bool Open(Listener listener) = 0;
};

// ModemManager on the system bus (DBUS_SYSTEM_BUS_ADDRESS moves it).
std::unique_ptr<CallLine> CreateModemManagerCallLine();

} // namespace talvo
