#pragma once
// Plays the current program: opens the wave output with the program's PCM
// format, keeps four buffers in flight and refills each one, on the
// user-interface thread, when the device hands it back.  There is no decoding
// thread; the device's completion callback only posts MM_WOM_DONE to the main
// window, whose handler calls OnBufferDone.
#include "platform/KeepAwake.h"
#include "platform/MessageWindow.h"
#include "platform/SleepInhibitor.h"
#include "platform/WaveOut.h"

#include <QString>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace talvo {

class MessageWindow;
class PlayerView;
class ProgramLibrary;
class ProgramStateStore;
class SettingsStore;

class ProgramFile;

class AudioOutput {
public:
    static constexpr int kSlotCount = 4;
    // A buffer holds five decode units.
    static constexpr std::uint32_t kUnitsPerBuffer = 5;
    // What Stop rewinds for each buffer that was decoded but not heard.
    static constexpr std::uint32_t kRewindPerQueuedBufferMs = 1000;
    // While playing, the position heard is kept this often, so that a player
    // that is killed resumes at most this much before where it was.
    static constexpr unsigned kSavePlayingPositionPeriodMs = 2000;

    AudioOutput(MessageWindow& window, PlayerView& view, ProgramLibrary& library, ProgramStateStore& store,
                SettingsStore& settings, std::function<std::unique_ptr<WaveOut>()> makeWaveOut);
    ~AudioOutput();

    int StartOrStop();
    bool Prime();
    // device: the handle the notice came with; notices of an earlier opening are ignored.
    void OnBufferDone(WPARAM device, WAVEHDR* header);
    bool Stop();
    void ResetAndDrain();
    void SetVolume(DWORD level);
    // Keeps the position heard by now in the program's record.
    void SavePlayingPosition();

    bool IsPlaying() const { return waveOpen_; }
    int QueuedCount() const { return queuedCount_; }

    // State shared with the transport and the main window.
    bool draining = false;
    bool restarting = false;
    bool seeking = false;
    bool pausedByCall = false;
    bool callEnded = false;
    std::uint32_t lastPositionMs = 0;
    std::uint32_t jumpBackSeconds = 30;
    int slotCounter = 0;

private:
    std::size_t slotStride() const;
    WAVEHDR* slot(int index);
    void decideForeground();
    void reportDeviceError(MMRESULT code);
    void queueHeard(const WAVEFORMATEX& format, DWORD bytes);
    void markHeard(const ProgramFile& program);
    bool openDevice(const WAVEFORMATEX& format);

    MessageWindow& window_;
    PlayerView& view_;
    ProgramLibrary& library_;
    ProgramStateStore& store_;
    SettingsStore& settings_;
    std::function<std::unique_ptr<WaveOut>()> makeWaveOut_;
    std::unique_ptr<WaveOut> wave_;
    bool waveOpen_ = false;
    WPARAM openCount_ = 0; // the handle of the latest opening, carried by its notices
    bool endOfProgramPosted_ = false;
    // Four slots, each a header followed by its PCM; vector storage is aligned for the headers.
    std::vector<std::uint8_t> block_;
    std::uint32_t bufferSize_ = 0;
    int queuedCount_ = 0;
    // The length of each buffer in flight, oldest first, and where the oldest
    // began to play: what was heard is known without asking the device.
    std::deque<std::uint32_t> queuedMs_;
    std::uint32_t heardMs_ = 0;
    std::chrono::steady_clock::time_point heardAt_{};
    std::unique_ptr<KeepAwake> keepAwake_;
    // Held exactly while playing, on every platform type; made at the first start.
    std::unique_ptr<SleepInhibitor> sleepInhibitor_;
};

} // namespace talvo
