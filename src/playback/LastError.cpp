#include "playback/LastError.h"

namespace talvo {

namespace {
thread_local std::uint32_t lastError = 0;
} // namespace

std::uint32_t GetLastError()
{
    return lastError;
}

void SetLastError(std::uint32_t code)
{
    lastError = code;
}

} // namespace talvo
