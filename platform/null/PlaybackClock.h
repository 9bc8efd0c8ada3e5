#pragma once
// Paces a simulated device: the time by which each piece of audio has been
// heard is counted from the moment the stream started, not from when the piece
// was handed over, so the time the device thread spends between pieces does
// not add up into a slower playback.
#include <chrono>
#include <cstdint>

namespace talvo {

class PlaybackClock {
public:
    using Clock = std::chrono::steady_clock;

    // A piece handed over later than this after the previous one was heard
    // found the device run dry: the stream starts afresh from it.  Within it
    // the device catches up, as a real one does from its own buffer.
    static constexpr auto kUnderrunSlack = std::chrono::milliseconds(50);

    // speed: multiple of real time, above 0.
    PlaybackClock(std::uint32_t framesPerSecond, double speed)
        : framesPerSecond_(framesPerSecond), speed_(speed)
    {
    }

    // When a piece of frameCount frames, handed over at now, has been heard.
    Clock::time_point Schedule(std::uint32_t frameCount, Clock::time_point now)
    {
        if (!running_ || now > heardBy() + kUnderrunSlack) {
            underruns_ += running_ ? 1 : 0;
            start_ = now;
            frames_ = 0;
            running_ = true;
        }
        frames_ += frameCount;
        return heardBy();
    }

    // After a reset the next piece starts a new stream.
    void Restart() { running_ = false; }

    // How often a running stream found the device dry (a reset is not one).
    std::uint64_t Underruns() const { return underruns_; }

private:
    Clock::time_point heardBy() const
    {
        const std::chrono::duration<double> seconds(double(frames_) / framesPerSecond_ / speed_);
        return start_ + std::chrono::duration_cast<Clock::duration>(seconds);
    }

    std::uint32_t framesPerSecond_;
    double speed_;
    bool running_ = false;
    Clock::time_point start_{};
    std::uint64_t frames_ = 0;
    std::uint64_t underruns_ = 0;
};

} // namespace talvo
