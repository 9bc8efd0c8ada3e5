#include "platform/null/NullWaveOut.h"

#include "platform/Trace.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace talvo {

namespace {

// Pieces of 10 ms keep Reset prompt and the pacing smooth.
constexpr std::uint32_t kChunksPerSecond = 100;
// Unpaced, a whole player buffer goes through in one piece.
constexpr std::uint32_t kUnpacedChunkFrames = 65536;
constexpr std::size_t kWavHeaderBytes = 44;

void PutLe16(std::uint8_t* p, std::uint32_t v)
{
    p[0] = std::uint8_t(v);
    p[1] = std::uint8_t(v >> 8);
}

void PutLe32(std::uint8_t* p, std::uint32_t v)
{
    PutLe16(p, v & 0xFFFF);
    PutLe16(p + 2, v >> 16);
}

std::array<std::uint8_t, kWavHeaderBytes> WavHeader(const WAVEFORMATEX& format, std::uint32_t dataBytes)
{
    // The capture carries a correct block align and byte rate, whatever the
    // player opened the device with.
    const std::uint32_t frameBytes = WaveFrameBytes(format);
    std::array<std::uint8_t, kWavHeaderBytes> h{};
    std::memcpy(&h[0], "RIFF", 4);
    PutLe32(&h[4], 36 + dataBytes);
    std::memcpy(&h[8], "WAVEfmt ", 8);
    PutLe32(&h[16], 16);
    PutLe16(&h[20], WAVE_FORMAT_PCM);
    PutLe16(&h[22], format.nChannels);
    PutLe32(&h[24], format.nSamplesPerSec);
    PutLe32(&h[28], format.nSamplesPerSec * frameBytes);
    PutLe16(&h[32], frameBytes);
    PutLe16(&h[34], format.wBitsPerSample);
    std::memcpy(&h[36], "data", 4);
    PutLe32(&h[40], dataBytes);
    return h;
}

bool SameFormat(const WAVEFORMATEX& a, const WAVEFORMATEX& b)
{
    return a.nChannels == b.nChannels && a.nSamplesPerSec == b.nSamplesPerSec &&
           a.wBitsPerSample == b.wBitsPerSample;
}

} // namespace

NullWaveOut::NullWaveOut(double speed, std::string capturePath)
    : speed_(speed), capturePath_(std::move(capturePath))
{
}

NullWaveOut::~NullWaveOut()
{
    Shutdown();
    if (capture_ != nullptr) {
        std::fclose(capture_);
    }
}

MMRESULT NullWaveOut::DeviceOpen(const WAVEFORMATEX& format)
{
    chunkFrames_ = speed_ > 0 ? std::max<std::uint32_t>(1, format.nSamplesPerSec / kChunksPerSecond)
                              : kUnpacedChunkFrames;
    clock_.reset();
    if (speed_ > 0) {
        clock_.emplace(format.nSamplesPerSec, speed_);
    }
    if (capturePath_.empty()) {
        return MMSYSERR_NOERROR;
    }
    if (capture_ != nullptr && SameFormat(captureFormat_, format)) {
        return MMSYSERR_NOERROR;
    }
    if (capture_ != nullptr) {
        std::fclose(capture_);
    }
    capture_ = std::fopen(capturePath_.c_str(), "w+b");
    if (capture_ == nullptr) {
        return MMSYSERR_ERROR;
    }
    captureFormat_ = format;
    captureDataBytes_ = 0;
    FinishCaptureHeader();
    return MMSYSERR_NOERROR;
}

std::uint32_t NullWaveOut::DeviceChunkFrames() const
{
    return chunkFrames_;
}

std::uint32_t NullWaveOut::DevicePlay(const std::uint8_t* frames, std::uint32_t frameCount)
{
    if (clock_) {
        const std::uint64_t underruns = clock_->Underruns();
        const Clock::time_point heard = clock_->Schedule(frameCount, Clock::now());
        if (clock_->Underruns() != underruns)
            Trace("Null output ran dry (%llu times).", static_cast<unsigned long long>(clock_->Underruns()));
        if (!WaitUntil(heard)) {
            return 0; // reset or closed before this piece was heard
        }
    } else if (StopRequested()) {
        return 0;
    }
    if (capture_ != nullptr) {
        const std::size_t bytes = std::size_t{frameCount} * WaveFrameBytes(Format());
        std::fseek(capture_, 0, SEEK_END);
        std::fwrite(frames, 1, bytes, capture_);
        captureDataBytes_ += std::uint32_t(bytes);
        std::fflush(capture_); // what has been played is in the file at once
    }
    return frameCount;
}

void NullWaveOut::DeviceDrop()
{
    if (clock_) {
        clock_->Restart();
    }
    FinishCaptureHeader();
}

void NullWaveOut::DeviceClose()
{
    FinishCaptureHeader();
}

void NullWaveOut::FinishCaptureHeader()
{
    if (capture_ == nullptr) {
        return;
    }
    const auto header = WavHeader(captureFormat_, captureDataBytes_);
    std::fseek(capture_, 0, SEEK_SET);
    std::fwrite(header.data(), 1, header.size(), capture_);
    std::fflush(capture_);
}

} // namespace talvo
