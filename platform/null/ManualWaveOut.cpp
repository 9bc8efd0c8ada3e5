#include "platform/null/ManualWaveOut.h"

#include "platform/WaveHeaderRules.h"

#include <utility>

namespace talvo {

MMRESULT ManualWaveOut::Open(const WAVEFORMATEX& format, DoneCallback done)
{
    if (open_) {
        return MMSYSERR_ALLOCATED;
    }
    if (const MMRESULT code = std::exchange(failOpen_, MMSYSERR_NOERROR); code != MMSYSERR_NOERROR) {
        return code;
    }
    if (format.wFormatTag != WAVE_FORMAT_PCM || WaveFrameBytes(format) == 0) {
        return WAVERR_BADFORMAT;
    }
    format_ = format;
    done_ = std::move(done);
    open_ = true;
    return MMSYSERR_NOERROR;
}

MMRESULT ManualWaveOut::PrepareHeader(WAVEHDR* header, UINT headerSize)
{
    return PrepareWaveHeader(header, headerSize, open_);
}

MMRESULT ManualWaveOut::Write(WAVEHDR* header, UINT headerSize)
{
    if (open_ && header != nullptr) {
        if (const MMRESULT code = std::exchange(failWrite_, MMSYSERR_NOERROR); code != MMSYSERR_NOERROR)
            return code;
    }
    if (MMRESULT result = QueueWaveHeader(header, headerSize, open_); result != MMSYSERR_NOERROR)
        return result;
    queue_.push_back(header);
    return MMSYSERR_NOERROR;
}

MMRESULT ManualWaveOut::UnprepareHeader(WAVEHDR* header, UINT headerSize)
{
    return UnprepareWaveHeader(header, headerSize, open_);
}

MMRESULT ManualWaveOut::Reset()
{
    if (!open_) {
        return MMSYSERR_INVALHANDLE;
    }
    while (CompleteNext()) {
    }
    return MMSYSERR_NOERROR;
}

MMRESULT ManualWaveOut::Close()
{
    if (!open_) {
        return MMSYSERR_INVALHANDLE;
    }
    if (!queue_.empty()) {
        return WAVERR_STILLPLAYING;
    }
    open_ = false;
    done_ = nullptr;
    return MMSYSERR_NOERROR;
}

MMRESULT ManualWaveOut::SetVolume(DWORD volume)
{
    volume_ = volume;
    ++volumeSets_;
    return MMSYSERR_NOERROR;
}

MMRESULT ManualWaveOut::GetVolume(DWORD* volume) const
{
    if (volume == nullptr) {
        return MMSYSERR_INVALPARAM;
    }
    *volume = volume_;
    return MMSYSERR_NOERROR;
}

bool ManualWaveOut::CompleteNext()
{
    if (queue_.empty()) {
        return false;
    }
    WAVEHDR* header = queue_.front();
    queue_.pop_front();
    header->dwFlags = (header->dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
    if (done_) {
        done_(header);
    }
    return true;
}

} // namespace talvo
