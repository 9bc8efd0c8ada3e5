// Fuzz target over the input the desktop leaves for a sync command in
// "_DataIn": the path it names and the bytes the add command hands to the
// running player.  Traps on a path longer than the input, and on a payload
// that lost the input's bytes or has no terminator for the player to stop at.

#include "sync/SyncInput.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::uint8_t> input(data, data + size);
    const std::optional<QString> path = talvo::SyncPathFromInput(input);
    if (path && (path->isEmpty() || static_cast<size_t>(path->size()) * 2 > size))
        __builtin_trap();
    const QByteArray payload = talvo::AddProgramPayload(input);
    if (!payload.startsWith(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size))) ||
        !payload.endsWith(QByteArray(2, '\0')))
        __builtin_trap();
    return 0;
}
