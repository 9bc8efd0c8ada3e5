#pragma once
// What a button of the wireless remote asks of the player, read from a message
// of the remote-control queue.  A pure function of the message's bytes, shared
// by the main window and the fuzzer.
#include "platform/RemoteControlQueue.h"

#include <cstddef>
#include <cstdint>

namespace talvo {

enum class RemoteAction { None, PlayStop, ForwardHold, BackwardHold, ForwardRelease, BackwardRelease };

// The operation code is the u32 at offset 4 of a record of exactly
// kRemoteRecordSize bytes; any other size or an unknown code asks for nothing.
RemoteAction RemoteActionFor(const std::uint8_t* message, std::size_t size);

} // namespace talvo
