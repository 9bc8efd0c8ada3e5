// The simulated device's pacing: the time spent between pieces must not slow
// playback down, and a device that ran dry starts afresh.
#include "platform/null/PlaybackClock.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using Clock = PlaybackClock::Clock;

// Hands over pieces of 10 ms of audio, each one `overhead` after the previous
// one was heard, and returns when the last was heard, from the first hand-over.
Clock::duration playPieces(PlaybackClock& clock, int pieces, Clock::duration overhead)
{
    const Clock::time_point start = Clock::time_point{} + 1h;
    Clock::time_point now = start;
    Clock::time_point heard = start;
    for (int i = 0; i < pieces; ++i) {
        heard = clock.Schedule(441, now);
        now = heard + overhead;
    }
    return heard - start;
}

TEST(PlaybackClock, TheTimeBetweenPiecesDoesNotAddUpAtAnySpeed)
{
    for (double speed : {1.0, 8.0}) {
        PlaybackClock clock(44100, speed);
        // 100 s of audio, 150 microseconds of work after every piece.
        const auto took = playPieces(clock, 10000, 150us);
        const auto expected =
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(100.0 / speed));
        EXPECT_LT(std::chrono::abs(took - expected), 1ms) << "at " << speed << "x";
    }
}

TEST(PlaybackClock, ADeviceThatRanDryOrWasResetStartsAfresh)
{
    PlaybackClock clock(1000, 1.0);
    const Clock::time_point t0 = Clock::time_point{} + 1h;
    EXPECT_EQ(clock.Schedule(1000, t0), t0 + 1s);
    // Handed over long after the first second was heard: nothing to catch up.
    const Clock::time_point late = t0 + 1s + PlaybackClock::kUnderrunSlack + 1ms;
    EXPECT_EQ(clock.Schedule(1000, late), late + 1s);
    EXPECT_EQ(clock.Underruns(), 1u);
    // A reset drops what was queued; the next piece plays from when it comes,
    // and that is no underrun.
    clock.Restart();
    EXPECT_EQ(clock.Schedule(500, late + 100ms), late + 600ms);
    EXPECT_EQ(clock.Underruns(), 1u);
}

} // namespace
} // namespace talvo
