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
    queuedMs_.clear();
    endOfProgramPosted_ = false;
    ProgramFile* program = library_.Current();
    WAVEFORMATEX format{};
    if (!program || !program->WaveFormat(&format) || block_.empty())
        return false;
    std::fill(block_.begin(), block_.end(), 0);
    // Seeking to where it stands resets the SDK's decoder after a device reset.
    program->Seek(program->Position());
    const std::uint32_t room = kUnitsPerBuffer * program->DecodeUnit();
    for (int i = 0; i < kSlotCount; ++i) {
        WAVEHDR* header = slot(i);
        header->lpData = reinterpret_cast<char*>(header + 1);
        header->dwBufferLength = 0;
        program->DecodeBlock(reinterpret_cast<std::uint8_t*>(header->lpData), room, &header->dwBufferLength);
        if (header->dwBufferLength == 0) {
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
        queueHeard(format, header->dwBufferLength);
    }
    markHeard(*program);
    return true;
}

void AudioOutput::OnBufferDone(WPARAM device, WAVEHDR* header)
{
    if (!waveOpen_ || device != openCount_)
        return;
    if (MMRESULT result = wave_->UnprepareHeader(header, sizeof(WAVEHDR)); result != MMSYSERR_NOERROR)
        Trace("waveOutUnprepareHeader failed with error %d.", static_cast<int>(result));
    --queuedCount_;
    if (!queuedMs_.empty())
        queuedMs_.pop_front();
    if (!draining) {
        ProgramFile* program = library_.Current();
        WAVEFORMATEX format{};
        if (!program || !program->WaveFormat(&format)) {
            Stop();
            return;
        }
        header->dwBufferLength = 0;
        program->DecodeBlock(reinterpret_cast<std::uint8_t*>(header->lpData),
                             kUnitsPerBuffer * program->DecodeUnit(), &header->dwBufferLength);
        if (header->dwBufferLength == 0) {
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
            reportDeviceError(result);
            return;
        }
        ++queuedCount_;
        queueHeard(format, header->dwBufferLength);
    }
    if (ProgramFile* program = library_.Current())
        markHeard(*program);
    if (!seeking)
        window_.PostCommand(Command::UpdatePosition);
}

bool AudioOutput::Stop()
{
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
        // Rewind by what was decoded but not heard; the buffer-done notices of
        // the reset buffers are still waiting, so the queued count is exact.
        // A stop in the first seconds rewinds to 0: an unsigned difference
        // would wrap to the end of the program.
        std::uint32_t position = program->Position();
        std::uint32_t rewind =
            kRewindPerQueuedBufferMs * static_cast<std::uint32_t>(std::max(queuedCount_, 0));
        sought = program->Seek(position > rewind ? position - rewind : 0);
    } else {
        lastPositionMs = 0;
    }
    queuedCount_ = 0;
    queuedMs_.clear();
    return sought;
}

void AudioOutput::queueHeard(const WAVEFORMATEX& format, DWORD bytes)
{
    const std::uint64_t bytesPerSecond =
        std::uint64_t{format.nSamplesPerSec} * format.nChannels * format.wBitsPerSample / 8;
    queuedMs_.push_back(bytesPerSecond ? static_cast<std::uint32_t>(bytes * 1000ull / bytesPerSecond) : 0);
}

void AudioOutput::markHeard(const ProgramFile& program)
{
    // The read position is past every buffer in flight; the oldest of them
    // starts to play now.
    std::uint32_t ahead = 0;
    for (std::uint32_t ms : queuedMs_)
        ahead += ms;
    const std::uint32_t position = program.Position();
    heardMs_ = position > ahead ? position - ahead : 0;
    heardAt_ = std::chrono::steady_clock::now();
}

void AudioOutput::SavePlayingPosition()
{
    ProgramFile* program = library_.Current();
    if (!waveOpen_ || seeking || draining || !program || queuedMs_.empty())
        return;
    // Never past the end of the buffer now playing: a late device must not
    // make the record claim audio that was not heard.
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - heardAt_);
    const std::uint32_t playing =
        std::min<std::uint32_t>(static_cast<std::uint32_t>(elapsed.count()), queuedMs_.front());
    store_.SavePlayingPosition(*program, heardMs_ + playing);
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
