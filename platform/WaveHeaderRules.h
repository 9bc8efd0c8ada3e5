#pragma once
// The header rules of the wave-output contract, shared by every device so that
// they cannot drift apart: what each call refuses, and the flags it sets.
// Callers hold whatever lock guards `open` and the header.
#include "platform/WaveOut.h"

namespace talvo {

inline MMRESULT PrepareWaveHeader(WAVEHDR* header, UINT headerSize, bool open)
{
    if (header == nullptr || headerSize < sizeof(WAVEHDR))
        return MMSYSERR_INVALPARAM;
    if (!open)
        return MMSYSERR_INVALHANDLE;
    if (header->dwFlags & WHDR_INQUEUE)
        return WAVERR_STILLPLAYING;
    header->dwFlags |= WHDR_PREPARED;
    return MMSYSERR_NOERROR;
}

// Checks a header for Write and marks it queued; the caller then queues it.
inline MMRESULT QueueWaveHeader(WAVEHDR* header, UINT headerSize, bool open)
{
    if (header == nullptr || headerSize < sizeof(WAVEHDR))
        return MMSYSERR_INVALPARAM;
    if (!open)
        return MMSYSERR_INVALHANDLE;
    if (!(header->dwFlags & WHDR_PREPARED))
        return WAVERR_UNPREPARED;
    if (header->dwFlags & WHDR_INQUEUE)
        return WAVERR_STILLPLAYING;
    header->dwFlags = (header->dwFlags & ~WHDR_DONE) | WHDR_INQUEUE;
    return MMSYSERR_NOERROR;
}

inline MMRESULT UnprepareWaveHeader(WAVEHDR* header, UINT headerSize, bool open)
{
    if (header == nullptr || headerSize < sizeof(WAVEHDR))
        return MMSYSERR_INVALPARAM;
    if (!open)
        return MMSYSERR_INVALHANDLE;
    if (header->dwFlags & WHDR_INQUEUE)
        return WAVERR_STILLPLAYING;
    header->dwFlags &= ~WHDR_PREPARED;
    return MMSYSERR_NOERROR;
}

} // namespace talvo
