#pragma once
// A wave output without a sound card: the device thread "plays" each buffer
// for its duration divided by the speed and then reports it done, through the
// same queue, callback and Reset path as the ALSA output.  It can also write
// everything it plays to a WAV file, and misbehave on request.
#include "platform/QueuedWaveOut.h"
#include "platform/null/PlaybackClock.h"

#include <cstdio>
#include <optional>
#include <string>

namespace talvo {

class NullWaveOut final : public QueuedWaveOut {
public:
    // speed: multiple of real time; 0 plays as fast as the buffers come.
    // capturePath: when not empty, the WAV file that receives what is played,
    // after volume.  The file is kept across Close and Open while the format
    // stays the same and started afresh when it changes; its header is brought
    // up to date at every Reset and Close.
    explicit NullWaveOut(double speed = 1.0, std::string capturePath = {});
    ~NullWaveOut() override;

    static constexpr double kUnpaced = 0.0;

protected:
    MMRESULT DeviceOpen(const WAVEFORMATEX& format) override;
    std::uint32_t DeviceChunkFrames() const override;
    std::uint32_t DevicePlay(const std::uint8_t* frames, std::uint32_t frameCount) override;
    std::uint64_t DeviceDelayFrames() override { return 0; }
    void DeviceDrop() override;
    void DeviceClose() override;

private:
    void FinishCaptureHeader();

    double speed_;
    std::string capturePath_;
    std::FILE* capture_ = nullptr;
    WAVEFORMATEX captureFormat_{};
    std::uint32_t captureDataBytes_ = 0;
    std::uint32_t chunkFrames_ = 0;
    std::optional<PlaybackClock> clock_; // none when unpaced
};

} // namespace talvo
