#include "playback/AudioOutput.h"

#include "base/CommandIds.h"
#include "base/DetectPlatform.h"
#include "base/StringTable.h"
#include "library/ProgramLibrary.h"
#include "library/ProgramStateStore.h"
#include "platform/MessageBox.h"
#include "platform/MessageWindow.h"
#include "platform/SystemInfo.h"
#include "platform/Trace.h"
#include "playback/PlayerView.h"
#include "playback/ProgramFile.h"
#include "settings/SettingsStore.h"

#include <QDateTime>
#include <algorithm>
#include <cstring>

namespace talvo {
namespace {

bool deviceIsPalm()
{
    std::optional<std::u16string> oem = HostSystemInfo().OemInfo();
    return oem && QString::fromStdU16String(*oem).contains(QStringLiteral("Palm"));
}

} // namespace

AudioOutput::AudioOutput(MessageWindow& window, PlayerView& view, ProgramLibrary& library,
                         ProgramStateStore& store, SettingsStore& settings,
                         std::function<std::unique_ptr<WaveOut>()> makeWaveOut)
    : window_(window), view_(view), library_(library), store_(store), settings_(settings),
      makeWaveOut_(std::move(makeWaveOut))
{
}

AudioOutput::~AudioOutput()
{
    if (waveOpen_) {
        wave_->Reset();
        wave_->Close();
    }
    if (keepAwake_)
        keepAwake_->Stop();
}

std::size_t AudioOutput::slotStride() const
{
    // Each header must stay aligned for its pointers, whatever the data size.
    constexpr std::size_t align = alignof(WAVEHDR);
    return sizeof(WAVEHDR) + (bufferSize_ + align - 1) / align * align;
}

WAVEHDR* AudioOutput::slot(int index)
{
    return reinterpret_cast<WAVEHDR*>(block_.data() + static_cast<std::size_t>(index) * slotStride());
}

void AudioOutput::decideForeground()
{
    if (!pausedByCall) {
        view_.BringToFront();
        if (callEnded)
            pausedByCall = callEnded = false;
    } else if (deviceIsPalm()) {
        if (callEnded)
            pausedByCall = callEnded = false;
    } else if (callEnded) {
        view_.BringToFront();
        pausedByCall = callEnded = false;
    }
}

void AudioOutput::reportDeviceError(MMRESULT code)
{
    ShowMessageBox(nullptr,
                   QString::asprintf(qPrintable(LoadString(Str::AudioDeviceError)), static_cast<int>(code)),
                   LoadString(Str::ErrorCaption), kErrorBoxStyle);
}

bool AudioOutput::openDevice(const WAVEFORMATEX& format)
{
    if (!wave_)
        wave_ = makeWaveOut_();
    // Every opening is a new device handle, and its notices carry it: a notice
    // of an earlier opening that is still queued when playback restarts inside
    // one handler points into buffers that may be gone, and must be ignored.
    const WPARAM handle = ++openCount_;
    auto done = [this, handle](WAVEHDR* header) {
        window_.PostMessage(MM_WOM_DONE, handle, reinterpret_cast<LPARAM>(header));
    };
    const MMRESULT result = wave_ ? wave_->Open(format, done) : MMSYSERR_NODRIVER;
    if (result != MMSYSERR_NOERROR) {
        // Playback stays stopped: playing on in silence would run the position
        // on and lose the listener's place in every program.
        reportDeviceError(result);
        return false;
    }
    return true;
}

int AudioOutput::StartOrStop()
{
    if (!restarting)
        decideForeground();
    if (waveOpen_) {
        Stop();
        restarting = false;
        return 0;
    }
    queuedCount_ = 0;
    draining = false;
    ProgramFile* program = library_.Current();
    WAVEFORMATEX format{};
    if (!program || !program->Open(store_) || !program->WaveFormat(&format))
        return -1;
    rewindAfterPause(*program);
    block_.clear();
    slotCounter = 0;
    if (!openDevice(format))
        return -1;
    waveOpen_ = true;
    if (DetectPlatform() == 1) {
        keepAwake_ = CreateKeepAwake();
        keepAwake_->Start();
    }
    if (!sleepInhibitor_)
        sleepInhibitor_ = CreateLogindSleepInhibitor();
    sleepInhibitor_->Hold();
    SetVolume(settings_.GetVolume());
    jumpBackSeconds = settings_.GetJumpBack();
    bufferSize_ = (kUnitsPerBuffer * program->DecodeUnit() + 3) & ~3u;
    sampleRate_ = format.nSamplesPerSec;
    // The frame size from the channels alone: nBlockAlign is fixed at 2.
    frameBytes_ = format.nChannels * format.wBitsPerSample / 8u;
    framesPlayed_ = 0;
    if (sleepChoice_ != 0 && sleepChoice_ != kSleepEndOfSection)
        sleepEndFrame_ = std::uint64_t{sleepLeftMs_} * sampleRate_ / 1000;
    block_.assign(kSlotCount * slotStride(), 0);
    Prime();
    window_.SetTimer(Timer::SavePlayingPosition, kSavePlayingPositionPeriodMs);
    view_.RedrawDisplay();
    if (const std::uint32_t powerOffMs = PowerOffDelayMs(settings_.GetPowerOffTime()))
        window_.SetTimer(Timer::ScreenPowerOff, powerOffMs);
    restarting = false;
    return 0;
}

bool AudioOutput::Prime()
{
    queuedCount_ = 0;
    queued_.clear();
    endOfProgramPosted_ = false;
    ProgramFile* program = library_.Current();
    WAVEFORMATEX format{};
    if (!program || !program->WaveFormat(&format) || block_.empty())
        return false;
    std::fill(block_.begin(), block_.end(), 0);
    // Seeking to where it stands resets the SDK's decoder after a device reset.
    program->Seek(program->Position());
    restartProcessing(*program);
    for (int i = 0; i < kSlotCount; ++i) {
        WAVEHDR* header = slot(i);
        header->lpData = reinterpret_cast<char*>(header + 1);
        header->dwBufferLength = 0;
        if (!fillSlot(*program, header)) {
            Stop();
            return false;
        }
        header->dwUser = program->Position();
        if (MMRESULT result = wave_->PrepareHeader(header, sizeof(WAVEHDR)); result != MMSYSERR_NOERROR) {
            Stop();
            reportDeviceError(result);
            return false;
        }
    }
    for (int i = 0; i < kSlotCount; ++i) {
        WAVEHDR* header = slot(i);
        // All four carry the position after the fourth block.
        header->dwUser = program->Position();
        if (MMRESULT result = wave_->Write(header, sizeof(WAVEHDR)); result != MMSYSERR_NOERROR) {
            Stop();
            reportDeviceError(result);
            return false;
        }
        ++queuedCount_;
    }
    markHeard(*program);
    return true;
}

std::uint32_t AudioOutput::SmartRewindMs(std::uint64_t pauseSeconds)
{
    if (pauseSeconds <= kSmartRewindCurve.front().pauseSeconds)
        return 0;
    for (std::size_t i = 1; i < kSmartRewindCurve.size(); ++i) {
        const RewindPoint& low = kSmartRewindCurve[i - 1];
        const RewindPoint& high = kSmartRewindCurve[i];
        if (pauseSeconds < high.pauseSeconds)
            return low.rewindMs + static_cast<std::uint32_t>((pauseSeconds - low.pauseSeconds) *
                                                             (high.rewindMs - low.rewindMs) /
                                                             (high.pauseSeconds - low.pauseSeconds));
    }
    return kSmartRewindCurve.back().rewindMs;
}

void AudioOutput::noteStop(const ProgramFile& program)
{
    if (settings_.GetSmartRewind() == 0)
        return;
    stoppedAt_ = std::chrono::steady_clock::now();
    stoppedKey_ = program.Key();
    store_.SaveStoppedAt(program, static_cast<DWORD>(QDateTime::currentSecsSinceEpoch()));
}

void AudioOutput::rewindAfterPause(ProgramFile& program)
{
    if (settings_.GetSmartRewind() == 0)
        return;
    // The monotonic clock while the player ran since that stop (no clock
    // change can fake a long pause); the stored wall clock across a restart.
    std::uint64_t pauseSeconds = 0;
    DWORD stoppedAt = 0;
    if (!stoppedKey_.isEmpty() && stoppedKey_ == program.Key()) {
        pauseSeconds = static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - stoppedAt_)
                .count());
    } else if (store_.ReadStoppedAt(program, &stoppedAt)) {
        const qint64 now = QDateTime::currentSecsSinceEpoch();
        pauseSeconds = now > stoppedAt ? static_cast<std::uint64_t>(now - stoppedAt) : 0;
    }
    const std::uint32_t rewind = SmartRewindMs(pauseSeconds);
    if (rewind == 0)
        return;
    const std::uint32_t position = program.Position();
    program.Seek(position > rewind ? position - rewind : 0);
    lastPositionMs = program.Position();
}

void AudioOutput::restartProcessing(const ProgramFile& program)
{
    processing_.Restart(sampleRate_, program.channels, CurrentSpeedTenths(), settings_.GetSkipSilence() != 0);
    if (sleepChoice_ == kSleepEndOfSection)
        sleepSectionEndMs_ = program.SectionEndMs(program.Position());
}

bool AudioOutput::fillSlot(ProgramFile& program, WAVEHDR* header)
{
    const std::uint32_t room = kUnitsPerBuffer * program.DecodeUnit();
    auto* out = reinterpret_cast<std::uint8_t*>(header->lpData);
    const std::uint64_t firstFrame = framesToCome();
    std::uint32_t programMs = 0;
    if (!processing_.ChangesAudio()) {
        program.DecodeBlock(out, room, &header->dwBufferLength);
        programMs = frameBytes_ && sampleRate_
                        ? static_cast<std::uint32_t>(std::uint64_t{header->dwBufferLength} / frameBytes_ *
                                                     1000 / sampleRate_)
                        : 0;
    } else {
        decoded_.resize(room);
        while (processing_.AvailableBytes() < room && !processing_.Finished()) {
            std::uint32_t length = 0;
            program.DecodeBlock(decoded_.data(), room, &length);
            if (length == 0)
                processing_.Finish();
            else
                processing_.Feed(decoded_.data(), length);
        }
        const SpeechProcessing::Taken taken = processing_.Take(out, room);
        header->dwBufferLength = taken.bytes;
        programMs = taken.programMs;
    }
    if (header->dwBufferLength == 0)
        return false;
    if (sleepChoice_ != 0) {
        const std::uint32_t end =
            program.Position() - std::min(program.Position(), processing_.HeldProgramMs());
        armSleepFade(end - std::min(end, programMs));
        processing_.ApplyFade(out, header->dwBufferLength, firstFrame);
    }
    WAVEFORMATEX format{};
    program.WaveFormat(&format);
    queueHeard(format, header->dwBufferLength, programMs);
    return true;
}

void AudioOutput::OnBufferDone(WPARAM device, WAVEHDR* header)
{
    if (!waveOpen_ || device != openCount_)
        return;
    if (MMRESULT result = wave_->UnprepareHeader(header, sizeof(WAVEHDR)); result != MMSYSERR_NOERROR)
        Trace("waveOutUnprepareHeader failed with error %d.", static_cast<int>(result));
    --queuedCount_;
    if (!queued_.empty()) {
        framesPlayed_ += queued_.front().frames;
        queued_.pop_front();
    }
    if (sleepChoice_ != 0 && framesPlayed_ >= sleepEndFrame_) {
        // The timer has run out: it is over before the stop, which is the
        // player's own and no control action.  Until the stop arrives the
        // buffers still coming back are not refilled, as while draining, so
        // nothing is heard past the end.
        sleepChoice_ = 0;
        processing_.ClearFade();
        draining = true;
        window_.PostMessage(Message::StopIfPlaying, 0, 0);
        return;
    }
    if (!draining) {
        ProgramFile* program = library_.Current();
        WAVEFORMATEX format{};
        if (!program || !program->WaveFormat(&format)) {
            Stop();
            return;
        }
        header->dwBufferLength = 0;
        if (!fillSlot(*program, header)) {
            // The end of the program.  The other buffers in flight come back
            // empty too, and a burst of them must not skip programs: one end
            // advances the library by one.
            if (!endOfProgramPosted_) {
                endOfProgramPosted_ = true;
                window_.PostCommand(Command::NextProgram);
            }
            return;
        }
        header->dwBytesRecorded = 0;
        header->dwUser = program->Position();
        header->dwFlags = 0;
        header->dwLoops = 0;
        header->lpNext = nullptr;
        header->reserved = 0;
        MMRESULT result = wave_->PrepareHeader(header, sizeof(WAVEHDR));
        if (result == MMSYSERR_NOERROR)
            result = wave_->Write(header, sizeof(WAVEHDR));
        if (result != MMSYSERR_NOERROR) {
            queued_.pop_back();
            reportDeviceError(result);
            return;
        }
        ++queuedCount_;
    }
    if (ProgramFile* program = library_.Current())
        markHeard(*program);
    if (!seeking)
        window_.PostCommand(Command::UpdatePosition);
}

bool AudioOutput::Stop()
{
    if (sleepChoice_ != 0 && sleepChoice_ != kSleepEndOfSection && waveOpen_) {
        const std::uint64_t heard = heardFrame();
        sleepLeftMs_ = sleepEndFrame_ > heard && sampleRate_
                           ? static_cast<std::uint32_t>((sleepEndFrame_ - heard) * 1000 / sampleRate_)
                           : 0;
    }
    if (wave_) {
        if (MMRESULT result = wave_->Reset(); result != MMSYSERR_NOERROR)
            Trace("waveOutReset failed with error %d.", static_cast<int>(result));
        if (MMRESULT result = wave_->Close(); result != MMSYSERR_NOERROR)
            Trace("waveOutClose failed with error %d.", static_cast<int>(result));
    }
    waveOpen_ = false;
    if (keepAwake_) {
        keepAwake_->Stop();
        keepAwake_.reset();
    }
    if (sleepInhibitor_)
        sleepInhibitor_->Release();
    view_.ScreenOnIfOff();
    window_.KillTimer(Timer::ScreenPowerOff);
    window_.KillTimer(Timer::SavePlayingPosition);
    view_.ShowVolumeIndicator(false);
    window_.KillTimer(Timer::HideVolume);
    view_.RedrawDisplay();
    bool sought = false;
    if (ProgramFile* program = library_.Current()) {
        noteStop(*program);
        // Rewind by what was decoded but not heard; the buffer-done notices of
        // the reset buffers are still waiting, so the queued count is exact.
        // A stop in the first seconds rewinds to 0: an unsigned difference
        // would wrap to the end of the program.  The rule is one second of
        // program time per queued buffer at any speed, and what the speech
        // chain still held was never queued, so it goes back too.
        std::uint32_t position = program->Position();
        std::uint32_t rewind =
            kRewindPerQueuedBufferMs * static_cast<std::uint32_t>(std::max(queuedCount_, 0)) +
            processing_.HeldProgramMs();
        sought = program->Seek(position > rewind ? position - rewind : 0);
    } else {
        lastPositionMs = 0;
    }
    queuedCount_ = 0;
    queued_.clear();
    processing_.Restart(sampleRate_, 1, SpeechProcessing::kNormalSpeed, false);
    return sought;
}

void AudioOutput::queueHeard(const WAVEFORMATEX& format, DWORD bytes, std::uint32_t programMs)
{
    const std::uint64_t bytesPerSecond =
        std::uint64_t{format.nSamplesPerSec} * format.nChannels * format.wBitsPerSample / 8;
    const std::uint32_t playedMs =
        bytesPerSecond ? static_cast<std::uint32_t>(bytes * 1000ull / bytesPerSecond) : 0;
    queued_.push_back({playedMs, processing_.ChangesAudio() ? programMs : playedMs,
                       frameBytes_ ? static_cast<std::uint32_t>(bytes / frameBytes_) : 0});
}

void AudioOutput::markHeard(const ProgramFile& program)
{
    // The read position is past every buffer in flight and what the speech
    // chain holds; the oldest buffer starts to play now.
    std::uint32_t ahead = processing_.HeldProgramMs();
    for (const QueuedBuffer& buffer : queued_)
        ahead += buffer.programMs;
    const std::uint32_t position = program.Position();
    heardMs_ = position > ahead ? position - ahead : 0;
    heardAt_ = std::chrono::steady_clock::now();
}

std::uint32_t AudioOutput::HeardPositionMs() const
{
    if (queued_.empty())
        return heardMs_;
    // Never past the end of the buffer now playing: a late device must not
    // make the record claim audio that was not heard.
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - heardAt_);
    const QueuedBuffer& front = queued_.front();
    const std::uint32_t played =
        std::min<std::uint32_t>(static_cast<std::uint32_t>(elapsed.count()), front.playedMs);
    return heardMs_ + (front.playedMs ? static_cast<std::uint32_t>(std::uint64_t{played} * front.programMs /
                                                                   front.playedMs)
                                      : 0);
}

std::uint64_t AudioOutput::heardFrame() const
{
    if (queued_.empty())
        return framesPlayed_;
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - heardAt_);
    const std::uint64_t frames = static_cast<std::uint64_t>(elapsed.count()) * sampleRate_ / 1000;
    return framesPlayed_ + std::min<std::uint64_t>(frames, queued_.front().frames);
}

std::uint64_t AudioOutput::framesToCome() const
{
    std::uint64_t frames = framesPlayed_;
    for (const QueuedBuffer& buffer : queued_)
        frames += buffer.frames;
    return frames;
}

void AudioOutput::SavePlayingPosition()
{
    ProgramFile* program = library_.Current();
    if (!waveOpen_ || seeking || draining || !program || queued_.empty())
        return;
    store_.SavePlayingPosition(*program, HeardPositionMs());
}

int AudioOutput::CurrentSpeedTenths() const
{
    const ProgramFile* program = library_.Current();
    return program ? store_.ReadPlaySpeed(*program) : SpeechProcessing::kNormalSpeed;
}

void AudioOutput::SetSpeed(int tenths)
{
    ProgramFile* program = library_.Current();
    if (!program || !SpeechProcessing::IsSpeed(tenths) || tenths == CurrentSpeedTenths())
        return;
    store_.SavePlaySpeed(*program, tenths);
    if (waveOpen_)
        reprime();
}

void AudioOutput::reprime()
{
    ProgramFile* program = library_.Current();
    if (!program)
        return;
    const std::uint32_t heard = HeardPositionMs();
    ResetAndDrain();
    program->Seek(heard);
    lastPositionMs = program->Position();
    Prime();
}

void AudioOutput::SetSleepTimer(std::uint32_t choice)
{
    // Audio already faded in the queue must not play once the timer is off
    // or further away.
    const bool fadeQueued =
        sleepChoice_ != 0 && waveOpen_ &&
        framesToCome() + std::uint64_t{kSleepFadeMs} * sampleRate_ / 1000 > sleepEndFrame_;
    sleepChoice_ = choice;
    processing_.ClearFade();
    if (choice != 0 && choice != kSleepEndOfSection) {
        sleepLeftMs_ = choice * 60000;
        sleepEndFrame_ = heardFrame() + std::uint64_t{sleepLeftMs_} * sampleRate_ / 1000;
    }
    if (choice == kSleepEndOfSection) {
        if (ProgramFile* program = library_.Current())
            sleepSectionEndMs_ = program->SectionEndMs(waveOpen_ ? HeardPositionMs() : program->Position());
    }
    if (fadeQueued)
        reprime();
}

void AudioOutput::armSleepFade(std::uint32_t bufferStartMs)
{
    if (sleepChoice_ == kSleepEndOfSection) {
        // Listening time to the section's end from this buffer's start, at the speed playing.
        const std::uint64_t programLeftMs =
            sleepSectionEndMs_ > bufferStartMs ? sleepSectionEndMs_ - bufferStartMs : 0;
        sleepEndFrame_ =
            framesToCome() + programLeftMs * sampleRate_ * SpeechProcessing::kNormalSpeed /
                                 (1000ull * static_cast<std::uint64_t>(processing_.SpeedTenths()));
    }
    processing_.SetFade(sleepEndFrame_, std::uint64_t{kSleepFadeMs} * sampleRate_ / 1000);
}

std::optional<std::uint32_t> AudioOutput::SleepRemainingMs() const
{
    if (sleepChoice_ == 0)
        return std::nullopt;
    if (!waveOpen_) {
        if (sleepChoice_ != kSleepEndOfSection)
            return sleepLeftMs_;
        const ProgramFile* program = library_.Current();
        const std::uint32_t at = program ? program->Position() : 0;
        return sleepSectionEndMs_ > at ? (sleepSectionEndMs_ - at) * SpeechProcessing::kNormalSpeed /
                                             static_cast<std::uint32_t>(CurrentSpeedTenths())
                                       : 0;
    }
    const std::uint64_t heard = heardFrame();
    return sleepEndFrame_ > heard && sampleRate_
               ? static_cast<std::uint32_t>((sleepEndFrame_ - heard) * 1000 / sampleRate_)
               : 0;
}

bool AudioOutput::CancelSleepIfFading()
{
    if (sleepChoice_ == 0 || !waveOpen_)
        return false;
    if (heardFrame() + std::uint64_t{kSleepFadeMs} * sampleRate_ / 1000 < sleepEndFrame_)
        return false;
    SetSleepTimer(0);
    return true;
}

void AudioOutput::ResetAndDrain()
{
    if (waveOpen_) {
        if (MMRESULT result = wave_->Reset(); result != MMSYSERR_NOERROR)
            Trace("CMainFrame::WaveOutReset:\twaveOutReset failed with error %d.", static_cast<int>(result));
    }
    window_.RemovePostedBufferDone();
}

void AudioOutput::SetVolume(DWORD level)
{
    if (!wave_)
        wave_ = makeWaveOut_();
    if (wave_) {
        if (MMRESULT result = wave_->SetVolume(level * 0x10001); result != MMSYSERR_NOERROR)
            Trace("waveOutSetVolume failed with error %d.", static_cast<int>(result));
    }
    settings_.SetVolume(level);
}

} // namespace talvo
