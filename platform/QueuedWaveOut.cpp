#include "platform/QueuedWaveOut.h"

#include "platform/WaveHeaderRules.h"

#include <algorithm>
#include <cstring>

namespace talvo {

namespace {

// Beyond these the format is a mistake, not a device we might meet.
constexpr std::uint16_t kMaxChannels = 8;
constexpr std::uint32_t kMinRate = 1000;
constexpr std::uint32_t kMaxRate = 384000;
// How often the device thread looks whether handed-over audio has been heard
// while it has nothing more to hand over.
constexpr auto kHeardPollInterval = std::chrono::milliseconds(5);
constexpr DWORD kFullVolume = 0xFFFFFFFF;

bool IsPlayableFormat(const WAVEFORMATEX& format)
{
    return format.wFormatTag == WAVE_FORMAT_PCM && format.nChannels >= 1 &&
           format.nChannels <= kMaxChannels && (format.wBitsPerSample == 8 || format.wBitsPerSample == 16) &&
           format.nSamplesPerSec >= kMinRate && format.nSamplesPerSec <= kMaxRate;
}

} // namespace

QueuedWaveOut::QueuedWaveOut() = default;

QueuedWaveOut::~QueuedWaveOut()
{
    // The adapter's destructor has called Shutdown; this only guards a thread
    // that would otherwise terminate the process.
    if (thread_.joinable()) {
        {
            std::lock_guard lock(mutex_);
            quit_ = true;
        }
        wake_.notify_all();
        thread_.join();
    }
}

void QueuedWaveOut::Shutdown()
{
    if (IsOpen()) {
        Reset();
        Close();
    }
}

MMRESULT QueuedWaveOut::Open(const WAVEFORMATEX& format, DoneCallback done)
{
    std::lock_guard lock(mutex_);
    if (open_) {
        return MMSYSERR_ALLOCATED;
    }
    if (!IsPlayableFormat(format)) {
        return WAVERR_BADFORMAT;
    }
    if (const MMRESULT result = DeviceOpen(format); result != MMSYSERR_NOERROR) {
        return result;
    }
    format_ = format;
    frameBytes_ = WaveFrameBytes(format);
    done_ = std::move(done);
    quit_ = false;
    resetRequested_ = false;
    queue_.clear();
    playing_.clear();
    heard_.clear();
    playOffset_ = 0;
    framesWritten_ = 0;
    completions_ = 0;
    scratch_.assign(std::size_t{DeviceChunkFrames()} * frameBytes_, 0);
    open_ = true;
    thread_ = std::thread(&QueuedWaveOut::Run, this);
    return MMSYSERR_NOERROR;
}

MMRESULT QueuedWaveOut::PrepareHeader(WAVEHDR* header, UINT headerSize)
{
    std::lock_guard lock(mutex_);
    return PrepareWaveHeader(header, headerSize, open_);
}

MMRESULT QueuedWaveOut::Write(WAVEHDR* header, UINT headerSize)
{
    {
        std::lock_guard lock(mutex_);
        if (MMRESULT result = QueueWaveHeader(header, headerSize, open_); result != MMSYSERR_NOERROR)
            return result;
        queue_.push_back(header);
    }
    wake_.notify_all();
    return MMSYSERR_NOERROR;
}

MMRESULT QueuedWaveOut::UnprepareHeader(WAVEHDR* header, UINT headerSize)
{
    std::lock_guard lock(mutex_);
    return UnprepareWaveHeader(header, headerSize, open_);
}

MMRESULT QueuedWaveOut::Reset()
{
    std::unique_lock lock(mutex_);
    if (!open_) {
        return MMSYSERR_INVALHANDLE;
    }
    resetRequested_ = true;
    wake_.notify_all();
    resetDone_.wait(lock, [this] { return !resetRequested_; });
    return MMSYSERR_NOERROR;
}

MMRESULT QueuedWaveOut::Close()
{
    {
        std::lock_guard lock(mutex_);
        if (!open_) {
            return MMSYSERR_INVALHANDLE;
        }
        if (!queue_.empty() || !playing_.empty() || !heard_.empty()) {
            return WAVERR_STILLPLAYING;
        }
        quit_ = true;
    }
    wake_.notify_all();
    thread_.join();
    DeviceClose();
    std::lock_guard lock(mutex_);
    open_ = false;
    done_ = nullptr;
    return MMSYSERR_NOERROR;
}

MMRESULT QueuedWaveOut::SetVolume(DWORD volume)
{
    std::lock_guard lock(mutex_);
    volume_ = volume;
    return MMSYSERR_NOERROR;
}

MMRESULT QueuedWaveOut::GetVolume(DWORD* volume) const
{
    if (volume == nullptr) {
        return MMSYSERR_INVALPARAM;
    }
    std::lock_guard lock(mutex_);
    *volume = volume_;
    return MMSYSERR_NOERROR;
}

bool QueuedWaveOut::IsOpen() const
{
    std::lock_guard lock(mutex_);
    return open_;
}

void QueuedWaveOut::SetMisbehaviour(const WaveOutMisbehaviour& misbehaviour)
{
    std::lock_guard lock(mutex_);
    misbehaviour_ = misbehaviour;
}

bool QueuedWaveOut::WaitUntil(Clock::time_point deadline)
{
    std::unique_lock lock(mutex_);
    return !wake_.wait_until(lock, deadline, [this] { return quit_ || resetRequested_; });
}

bool QueuedWaveOut::StopRequested() const
{
    std::lock_guard lock(mutex_);
    return quit_ || resetRequested_;
}

void QueuedWaveOut::Run()
{
    std::vector<WAVEHDR*> deliver;
    std::unique_lock lock(mutex_);
    while (!quit_) {
        if (resetRequested_) {
            lock.unlock();
            DeviceDrop();
            lock.lock();
            ReturnAll(deliver);
            lock.unlock();
            Deliver(deliver);
            lock.lock();
            resetRequested_ = false;
            resetDone_.notify_all();
            continue;
        }

        if (!queue_.empty()) {
            WAVEHDR* header = queue_.front();
            const std::uint32_t whole = header->dwBufferLength / frameBytes_ * frameBytes_;
            if (playOffset_ >= whole) {
                queue_.pop_front();
                playOffset_ = 0;
                lock.unlock();
                const std::uint64_t delay = DeviceDelayFrames();
                lock.lock();
                const auto untilHeard = std::chrono::duration<double>(double(delay) / format_.nSamplesPerSec);
                playing_.push_back({header, framesWritten_,
                                    Clock::now() + std::chrono::duration_cast<Clock::duration>(untilHeard)});
            } else {
                const std::uint32_t bytes =
                    std::min<std::uint32_t>(whole - playOffset_, DeviceChunkFrames() * frameBytes_);
                const auto* source = reinterpret_cast<const std::uint8_t*>(header->lpData) + playOffset_;
                const DWORD volume = volume_;
                lock.unlock();
                ApplyVolume(source, bytes, scratch_.data(), volume);
                const std::uint32_t accepted = DevicePlay(scratch_.data(), bytes / frameBytes_);
                lock.lock();
                if (resetRequested_ || quit_) {
                    continue; // the buffer goes back whole with the reset
                }
                playOffset_ += accepted * frameBytes_;
                framesWritten_ += accepted;
            }
        }

        if (!playing_.empty() || !heard_.empty()) {
            std::uint64_t delay = 0;
            if (!playing_.empty()) {
                lock.unlock();
                delay = DeviceDelayFrames();
                lock.lock();
            }
            CollectHeard(framesWritten_ - std::min(delay, framesWritten_), deliver);
            if (!deliver.empty()) {
                lock.unlock();
                Deliver(deliver);
                lock.lock();
                continue;
            }
        }

        if (queue_.empty()) {
            const auto ready = [this] {
                return quit_ || resetRequested_ || !queue_.empty();
            };
            const bool lateOnesPending =
                std::any_of(heard_.begin(), heard_.end(), [](const Heard& h) { return !h.lost; });
            if (playing_.empty() && !lateOnesPending) {
                wake_.wait(lock, ready);
            } else {
                wake_.wait_for(lock, kHeardPollInterval, ready);
            }
        }
    }
}

void QueuedWaveOut::CollectHeard(std::uint64_t heardFrames, std::vector<WAVEHDR*>& deliver)
{
    const auto now = Clock::now();
    while (!playing_.empty() &&
           (playing_.front().endFrame <= heardFrames || playing_.front().heardBy <= now)) {
        WAVEHDR* header = playing_.front().header;
        playing_.pop_front();
        ++completions_;
        const bool lost = misbehaviour_.missEvery != 0 && completions_ % misbehaviour_.missEvery == 0;
        heard_.push_back({header, lost, now + std::chrono::milliseconds(misbehaviour_.lateMs)});
    }
    // Completions go out in order: only those due before the first one that is not.
    std::size_t due = 0;
    for (const Heard& h : heard_) {
        if (h.lost) {
            continue;
        }
        if (h.due > now) {
            break;
        }
        ++due;
    }
    // A stalled device catches up once it has nothing more to play, so a burst
    // shorter than asked for still goes out at the end.
    const bool moreToCome = !queue_.empty() || !playing_.empty();
    if (due == 0 || (misbehaviour_.burst != 0 && due < misbehaviour_.burst && moreToCome)) {
        return;
    }
    for (auto it = heard_.begin(); it != heard_.end() && due > 0;) {
        if (it->lost) {
            ++it;
            continue;
        }
        it->header->dwFlags = (it->header->dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
        deliver.push_back(it->header);
        it = heard_.erase(it);
        --due;
    }
}

void QueuedWaveOut::ReturnAll(std::vector<WAVEHDR*>& deliver)
{
    for (const Heard& h : heard_) {
        deliver.push_back(h.header);
    }
    for (const Finished& f : playing_) {
        deliver.push_back(f.header);
    }
    deliver.insert(deliver.end(), queue_.begin(), queue_.end());
    for (WAVEHDR* header : deliver) {
        header->dwFlags = (header->dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
    }
    heard_.clear();
    playing_.clear();
    queue_.clear();
    playOffset_ = 0;
}

void QueuedWaveOut::Deliver(std::vector<WAVEHDR*>& headers)
{
    for (WAVEHDR* header : headers) {
        if (done_) {
            done_(header);
        }
    }
    headers.clear();
}

void QueuedWaveOut::ApplyVolume(const std::uint8_t* in, std::uint32_t bytes, std::uint8_t* out,
                                DWORD volume) const
{
    const std::uint32_t channels = format_.nChannels;
    if (volume == kFullVolume) {
        std::memcpy(out, in, bytes);
        return;
    }
    const std::int32_t left = volume & 0xFFFF;
    const std::int32_t right = volume >> 16;
    // Mono, and every channel past the second, follows the left level.
    const auto level = [&](std::uint32_t sample) {
        return channels >= 2 && sample % channels == 1 ? right : left;
    };
    if (format_.wBitsPerSample == 16) {
        const std::uint32_t samples = bytes / 2;
        for (std::uint32_t i = 0; i < samples; ++i) {
            std::int16_t s;
            std::memcpy(&s, in + 2 * i, 2);
            s = static_cast<std::int16_t>(std::int32_t{s} * level(i) / 0xFFFF);
            std::memcpy(out + 2 * i, &s, 2);
        }
    } else {
        // 8-bit PCM is unsigned around 128.
        for (std::uint32_t i = 0; i < bytes; ++i) {
            out[i] = static_cast<std::uint8_t>((std::int32_t{in[i]} - 128) * level(i) / 0xFFFF + 128);
        }
    }
}

} // namespace talvo
