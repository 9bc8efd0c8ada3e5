#include "platform/linux/AlsaWaveOut.h"

#include <alsa/asoundlib.h>

#include <cerrno>

namespace talvo {

namespace {

// Enough to ride out a busy user-interface thread between refills, small
// enough that the buffer-done notices track what is heard.
constexpr unsigned kLatencyUs = 200000;

} // namespace

AlsaWaveOut::AlsaWaveOut(std::string device) : device_(std::move(device))
{
}

AlsaWaveOut::~AlsaWaveOut()
{
    Shutdown();
}

MMRESULT AlsaWaveOut::DeviceOpen(const WAVEFORMATEX& format)
{
    snd_pcm_t* pcm = nullptr;
    if (const int err = snd_pcm_open(&pcm, device_.c_str(), SND_PCM_STREAM_PLAYBACK, 0); err < 0) {
        return err == -EBUSY ? MMSYSERR_ALLOCATED : MMSYSERR_BADDEVICEID;
    }
    const snd_pcm_format_t sampleFormat =
        format.wBitsPerSample == 8 ? SND_PCM_FORMAT_U8 : SND_PCM_FORMAT_S16_LE;
    if (snd_pcm_set_params(pcm, sampleFormat, SND_PCM_ACCESS_RW_INTERLEAVED, format.nChannels,
                           format.nSamplesPerSec, 1, kLatencyUs) < 0) {
        snd_pcm_close(pcm);
        return WAVERR_BADFORMAT;
    }
    snd_pcm_uframes_t bufferFrames = 0;
    snd_pcm_uframes_t periodFrames = 0;
    if (snd_pcm_get_params(pcm, &bufferFrames, &periodFrames) < 0 || periodFrames == 0) {
        snd_pcm_close(pcm);
        return MMSYSERR_ERROR;
    }
    pcm_ = pcm;
    periodFrames_ = std::uint32_t(periodFrames);
    failed_ = false;
    return MMSYSERR_NOERROR;
}

std::uint32_t AlsaWaveOut::DevicePlay(const std::uint8_t* frames, std::uint32_t frameCount)
{
    const std::uint32_t frameBytes = WaveFrameBytes(Format());
    std::uint32_t done = 0;
    while (done < frameCount && !failed_) {
        const snd_pcm_sframes_t n =
            snd_pcm_writei(pcm_, frames + std::size_t{done} * frameBytes, frameCount - done);
        if (n >= 0) {
            done += std::uint32_t(n);
        } else if (snd_pcm_recover(pcm_, int(n), 1) < 0) {
            failed_ = true;
        }
    }
    if (failed_) {
        // A device that went away must not stall the player: the rest plays
        // as silence on the clock.
        const double seconds = double(frameCount - done) / Format().nSamplesPerSec;
        if (!WaitUntil(Clock::now() +
                       std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)))) {
            return done;
        }
    }
    return frameCount;
}

std::uint64_t AlsaWaveOut::DeviceDelayFrames()
{
    if (failed_) {
        return 0;
    }
    // A last buffer shorter than the start threshold would never start.
    if (snd_pcm_state(pcm_) == SND_PCM_STATE_PREPARED) {
        snd_pcm_start(pcm_);
    }
    snd_pcm_sframes_t delay = 0;
    if (snd_pcm_delay(pcm_, &delay) < 0 || delay < 0) {
        return 0; // underrun: everything handed over has been heard
    }
    return std::uint64_t(delay);
}

void AlsaWaveOut::DeviceDrop()
{
    if (!failed_) {
        snd_pcm_drop(pcm_);
        snd_pcm_prepare(pcm_);
    }
}

void AlsaWaveOut::DeviceClose()
{
    snd_pcm_close(pcm_);
    pcm_ = nullptr;
}

} // namespace talvo
