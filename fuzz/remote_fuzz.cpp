// Fuzz target over a message of the remote-control queue, of any length as it
// is read: only a record of exactly the record size may ask for anything.

#include "device/RemoteAction.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const talvo::RemoteAction action = talvo::RemoteActionFor(data, size);
    if (size != talvo::kRemoteRecordSize && action != talvo::RemoteAction::None)
        __builtin_trap();
    return 0;
}
