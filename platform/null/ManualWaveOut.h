#pragma once
// A wave output for unit tests: buffers complete only when the test says so.
// There is no device thread; CompleteNext and Reset call the done callback on
// the calling thread, before they return, which is the one difference from
// the contract in WaveOut.h.  Failures can be injected for the player's error
// paths.
#include "platform/WaveOut.h"

#include <deque>

namespace talvo {

class ManualWaveOut final : public WaveOut {
public:
    MMRESULT Open(const WAVEFORMATEX& format, DoneCallback done) override;
    MMRESULT PrepareHeader(WAVEHDR* header, UINT headerSize) override;
    MMRESULT Write(WAVEHDR* header, UINT headerSize) override;
    MMRESULT UnprepareHeader(WAVEHDR* header, UINT headerSize) override;
    MMRESULT Reset() override;
    MMRESULT Close() override;
    MMRESULT SetVolume(DWORD volume) override;
    MMRESULT GetVolume(DWORD* volume) const override;
    bool IsOpen() const override { return open_; }

    // Finishes the oldest queued buffer; false when none is queued.
    bool CompleteNext();
    std::size_t QueuedCount() const { return queue_.size(); }
    const WAVEFORMATEX& OpenedFormat() const { return format_; }
    int VolumeSetCount() const { return volumeSets_; }
    // The next call of that operation fails with the code, once.
    void FailNextOpen(MMRESULT code) { failOpen_ = code; }
    void FailNextWrite(MMRESULT code) { failWrite_ = code; }

private:
    bool open_ = false;
    WAVEFORMATEX format_{};
    DoneCallback done_;
    DWORD volume_ = 0xFFFFFFFF;
    int volumeSets_ = 0;
    std::deque<WAVEHDR*> queue_;
    MMRESULT failOpen_ = MMSYSERR_NOERROR;
    MMRESULT failWrite_ = MMSYSERR_NOERROR;
};

} // namespace talvo
