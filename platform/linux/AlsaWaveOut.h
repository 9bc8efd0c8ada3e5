#pragma once
// Wave output on an ALSA PCM device ("default" reaches PipeWire or PulseAudio
// through their ALSA plugins).  All PCM calls other than open and close are
// made on the device thread, so the handle needs no lock; Reset is therefore
// as quick as one period of the device, after which snd_pcm_drop discards what
// the device still holds.
#include "platform/QueuedWaveOut.h"

#include <string>

struct _snd_pcm;

namespace talvo {

class AlsaWaveOut final : public QueuedWaveOut {
public:
    explicit AlsaWaveOut(std::string device = "default");
    ~AlsaWaveOut() override;

protected:
    MMRESULT DeviceOpen(const WAVEFORMATEX& format) override;
    std::uint32_t DeviceChunkFrames() const override { return periodFrames_; }
    std::uint32_t DevicePlay(const std::uint8_t* frames, std::uint32_t frameCount) override;
    std::uint64_t DeviceDelayFrames() override;
    void DeviceDrop() override;
    void DeviceClose() override;

private:
    std::string device_;
    _snd_pcm* pcm_ = nullptr;
    std::uint32_t periodFrames_ = 0;
    bool failed_ = false; // the device broke while open; play on as a clock
};

} // namespace talvo
