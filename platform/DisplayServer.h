#pragma once
// Whether a display server answers, judged before any window toolkit starts:
// without one Qt aborts the process, so the player checks first and says so.
//
// Contract: each check connects to the server's socket, as its client library
// would, and closes it again; nothing is sent.  A check takes at most
// kDisplayConnectTimeoutMs for a display on another host, and returns at once
// for a local one.
#include <QString>

namespace talvo {

inline constexpr int kDisplayConnectTimeoutMs = 3000;

// $WAYLAND_DISPLAY (a name in $XDG_RUNTIME_DIR, or an absolute path) accepts a connection.
bool WaylandDisplayAnswers();
// $DISPLAY (":N", "unix:N" or "host:N", with an optional ".SCREEN") accepts a connection.
bool X11DisplayAnswers();

} // namespace talvo
