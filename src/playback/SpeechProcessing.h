#pragma once
// The chain between the decoder and the wave output, made for speech: long
// silences shortened, then the speed changed with the pitch kept, then the
// sleep timer's fade.  It takes decoded PCM in program time and gives PCM to
// play, and knows which stretch of program time each block it gives covers,
// so that positions, bookmarks and the Stop rewind stay in program time
// whatever was played.
//
// Contract:
// - 16-bit interleaved PCM of the format given to Restart; UI thread only.
// - At speed 1.0 with silence skipping off nothing of the chain runs
//   (ChangesAudio is false): the output queues the decoded blocks as they
//   are, so the audio is the decoder's to the bit.  The fade is applied in
//   place to whatever is queued, and leaves samples before it untouched.
// - The map from played samples back to program time is exact for skipped
//   silence and follows the speed to within the speed changer's own latency
//   (a few tens of milliseconds); at the end of the program it meets the
//   program time fed exactly.
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

struct sonicStreamStruct;

namespace talvo {

class SpeechProcessing {
public:
    // Speed in tenths: 0.5x to 3.0x in steps of 0.1x.
    static constexpr int kNormalSpeed = 10;
    static constexpr int kMinimumSpeed = 5;
    static constexpr int kMaximumSpeed = 30;
    // A 10 ms window is silent when no sample in it reaches -45 dBFS
    // (32768 x 10^(-45/20)): below the breath and room noise of a recording,
    // above what speech ever drops to inside a word.
    static constexpr int kSilencePeak = 184;
    static constexpr std::uint32_t kSilenceWindowMs = 10;
    // Gaps of silence longer than this are shortened to kSilenceKeptMs:
    // pauses between sentences stay, long ones stop wasting the listener's time.
    static constexpr std::uint32_t kSilenceLongerThanMs = 500;
    static constexpr std::uint32_t kSilenceKeptMs = 250;

    // One block given to play and the program time it covers.
    struct Taken {
        std::uint32_t bytes = 0;
        std::uint32_t programMs = 0;
    };

    SpeechProcessing();
    ~SpeechProcessing();
    SpeechProcessing(const SpeechProcessing&) = delete;
    SpeechProcessing& operator=(const SpeechProcessing&) = delete;

    static constexpr bool IsSpeed(int tenths) { return tenths >= kMinimumSpeed && tenths <= kMaximumSpeed; }

    // Starts a new stream (a start of playback, every seek): whatever was held
    // is dropped, program time starts again from the caller's position.
    void Restart(std::uint32_t sampleRate, std::uint32_t channels, int speedTenths, bool skipSilence);
    bool ChangesAudio() const { return speedTenths_ != kNormalSpeed || skipSilence_; }
    int SpeedTenths() const { return speedTenths_; }

    void Feed(const std::uint8_t* pcm, std::uint32_t bytes);
    // The end of the program: whatever is held comes out.
    void Finish();
    bool Finished() const { return finished_; }
    std::uint32_t AvailableBytes() const;
    // Up to room bytes (whole frames) of what is ready.
    Taken Take(std::uint8_t* out, std::uint32_t room);
    // Program time fed in but not yet given out.
    std::uint32_t HeldProgramMs() const;

    // The fade stage.  Frames are counted from the start of playback in played
    // time; the gain falls linearly from 1 at endFrame - fadeFrames to 0 at
    // endFrame and stays 0 after it.
    void SetFade(std::uint64_t endFrame, std::uint64_t fadeFrames);
    void ClearFade() { fade_.reset(); }
    void ApplyFade(std::uint8_t* pcm, std::uint32_t bytes, std::uint64_t firstFrame) const;

private:
    struct Skip {
        std::uint64_t atFrame; // frame of the speed stage's input where the skip lies
        std::uint64_t frames;  // program frames left out there
    };
    struct Fade {
        std::uint64_t endFrame;
        std::uint64_t frames;
    };

    void feedSilenceStage(const std::int16_t* frames, std::uint64_t count);
    void passWindow(const std::int16_t* frames, std::uint64_t count);
    void skipFrames(std::uint64_t count);
    void feedSpeedStage(const std::int16_t* frames, std::uint64_t count);
    void drainSpeedStage();
    void compactReady();
    std::uint64_t programFrameAtOutput(std::uint64_t outputFrame);
    std::uint32_t framesToMs(std::uint64_t frames) const;

    std::uint32_t sampleRate_ = 0;
    std::uint32_t channels_ = 1;
    int speedTenths_ = kNormalSpeed;
    bool skipSilence_ = false;
    bool finished_ = false;
    sonicStreamStruct* sonic_ = nullptr;

    // The silence stage: a partial window, the length of the silent run so
    // far, and the frames of a run held back until it proves long or short.
    std::vector<std::int16_t> window_;
    std::uint64_t silentRunFrames_ = 0;
    std::vector<std::int16_t> heldSilence_;

    // What is ready to play, from readOffset_ on.
    std::vector<std::int16_t> ready_;
    std::size_t readOffset_ = 0;

    // The map: program frames fed, frames handed to the speed stage, skips
    // not yet passed by the output, frames given out, program frames covered.
    std::uint64_t programFed_ = 0;
    std::uint64_t speedInput_ = 0;
    std::deque<Skip> skips_;
    std::uint64_t skippedPassed_ = 0;
    std::uint64_t framesOut_ = 0;
    std::uint64_t programTaken_ = 0;
    std::vector<std::int16_t> scratch_;

    std::optional<Fade> fade_;
};

} // namespace talvo
