#pragma once
// What the main window makes of a copy-data request from another process
// (another start of the player, a sync command): the text it forwards always
// ends with its terminator, whatever the sender sent, and only the messages
// that carry a path are forwarded at all.
#include <QByteArray>
#include <cstdint>

namespace talvo {

// The request's bytes cut to whole UTF-16 units and terminated.
QByteArray TerminatedCopyData(const QByteArray& bytes);

// Whether a request with this dwData is forwarded to the window as that message.
bool AcceptsCopyData(std::uintptr_t dwData);

} // namespace talvo
