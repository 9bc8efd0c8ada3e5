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
#include "playback/SpeechProcessing.h"

#include <QString>
#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
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
    // The sleep timer's last seconds fade the samples out, never the
    // device's volume, so the listener's volume setting is left as it was.
    static constexpr std::uint32_t kSleepFadeMs = 10000;
    // The sleep timer's choice that ends at the end of the section playing.
    static constexpr std::uint32_t kSleepEndOfSection = 0xFFFFFFFFu;

    // Smart rewind: how much earlier playing starts again after a pause.
    // No rewind for a pause of a minute or less; then 5 s after a minute,
    // 15 s after ten minutes, 30 s after an hour and longer, in straight lines
    // between those points.
    struct RewindPoint {
        std::uint32_t pauseSeconds;
        std::uint32_t rewindMs;
    };
    static constexpr std::array<RewindPoint, 3> kSmartRewindCurve{{{60, 5000}, {600, 15000}, {3600, 30000}}};
    static std::uint32_t SmartRewindMs(std::uint64_t pauseSeconds);

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
    // The speed stored for the current program, in tenths (10 when none).
    int CurrentSpeedTenths() const;
    // Stores the current program's speed and, while playing, goes on at the
    // new speed from the position heard.
    void SetSpeed(int tenths);
    // Minutes of listening, kSleepEndOfSection, or 0 for off.
    void SetSleepTimer(std::uint32_t choice);
    // Listening time left before the sleep timer stops playback; none when off.
    std::optional<std::uint32_t> SleepRemainingMs() const;
    // A control action during the fade: the timer is off and the audio plays
    // at full volume again at once.  True when there was a fade to cancel.
    bool CancelSleepIfFading();
    // The position heard now, in program time.
    std::uint32_t HeardPositionMs() const;
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
    // Fills a slot with the next block to play; false at the end of the program.
    bool fillSlot(ProgramFile& program, WAVEHDR* header);
    void queueHeard(const WAVEFORMATEX& format, DWORD bytes, std::uint32_t programMs);
    void markHeard(const ProgramFile& program);
    std::uint64_t heardFrame() const;
    std::uint64_t framesToCome() const;
    void restartProcessing(const ProgramFile& program);
    void armSleepFade(std::uint32_t bufferStartMs);
    // Renders the queued audio again from the position heard (a new speed, a
    // fade undone).
    void reprime();
    void rewindAfterPause(ProgramFile& program);
    void noteStop(const ProgramFile& program);
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
    // Each buffer in flight, oldest first, and where the oldest began to
    // play: what was heard is known without asking the device.
    struct QueuedBuffer {
        std::uint32_t playedMs;
        std::uint32_t programMs; // the same as playedMs unless the chain changed the audio
        std::uint32_t frames;
    };
    std::deque<QueuedBuffer> queued_;
    std::uint32_t heardMs_ = 0;
    std::chrono::steady_clock::time_point heardAt_{};
    std::uint32_t frameBytes_ = 0;
    std::uint32_t sampleRate_ = 0;
    // Frames of the buffers the device finished since playback started.
    std::uint64_t framesPlayed_ = 0;
    SpeechProcessing processing_;
    std::vector<std::uint8_t> decoded_; // one decoded block on its way into the chain
    // The sleep timer: its choice, the listening time left while stopped, and
    // while playing the played frame where it ends (and for the end of a
    // section, the program time where that section ends).
    std::uint32_t sleepChoice_ = 0;
    std::uint32_t sleepLeftMs_ = 0;
    std::uint64_t sleepEndFrame_ = 0;
    std::uint32_t sleepSectionEndMs_ = 0;
    // The last stop on the monotonic clock, and of which program; a pause
    // across a restart of the player is measured by the record's wall-clock
    // "stopped_at" instead.
    std::chrono::steady_clock::time_point stoppedAt_{};
    QString stoppedKey_;
    std::unique_ptr<KeepAwake> keepAwake_;
    // Held exactly while playing, on every platform type; made at the first start.
    std::unique_ptr<SleepInhibitor> sleepInhibitor_;
};

} // namespace talvo
