// The speech chain on generated audio: the speed keeps the pitch and the
// program time, silences are shortened by what they should be, the fade
// ramps where it should, and the smart rewind's curve.
#include "playback/SpeechProcessing.h"
#include "playback/AudioOutput.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace talvo {
namespace {

constexpr std::uint32_t kRate = 16000;

void appendTone(std::vector<std::int16_t>& pcm, double hz, double seconds, double amplitude = 8000)
{
    const auto frames = static_cast<std::size_t>(seconds * kRate);
    for (std::size_t i = 0; i < frames; ++i)
        pcm.push_back(static_cast<std::int16_t>(amplitude * std::sin(2 * std::numbers::pi * hz * i / kRate)));
}

void appendSilence(std::vector<std::int16_t>& pcm, double seconds)
{
    pcm.insert(pcm.end(), static_cast<std::size_t>(seconds * kRate), 0);
}

struct Played {
    std::vector<std::int16_t> pcm;
    std::uint32_t programMs = 0;
};

// Feeds the program in blocks as the player decodes them and takes the output
// in buffers of the same size.
Played run(SpeechProcessing& chain, const std::vector<std::int16_t>& program)
{
    constexpr std::size_t kBlock = 4000;
    Played played;
    std::vector<std::uint8_t> buffer(kBlock * 2);
    std::size_t fed = 0;
    while (true) {
        while (chain.AvailableBytes() < buffer.size() && !chain.Finished()) {
            const std::size_t n = std::min(kBlock, program.size() - fed);
            if (n == 0)
                chain.Finish();
            else
                chain.Feed(reinterpret_cast<const std::uint8_t*>(program.data() + fed),
                           static_cast<std::uint32_t>(n * 2));
            fed += n;
        }
        const SpeechProcessing::Taken taken =
            chain.Take(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
        if (taken.bytes == 0)
            return played;
        const auto* samples = reinterpret_cast<const std::int16_t*>(buffer.data());
        played.pcm.insert(played.pcm.end(), samples, samples + taken.bytes / 2);
        played.programMs += taken.programMs;
    }
}

double dominantHz(const std::vector<std::int16_t>& pcm)
{
    std::size_t crossings = 0;
    for (std::size_t i = 1; i < pcm.size(); ++i)
        crossings += (pcm[i - 1] < 0) != (pcm[i] < 0);
    return crossings / 2.0 / (double(pcm.size()) / kRate);
}

TEST(SpeechProcessing, TwiceTheSpeedHalvesTheLengthKeepsThePitchAndAccountsForEveryProgramSecond)
{
    std::vector<std::int16_t> program;
    appendTone(program, 220, 10);
    SpeechProcessing chain;
    chain.Restart(kRate, 1, 20, false);
    ASSERT_TRUE(chain.ChangesAudio());

    const Played played = run(chain, program);
    EXPECT_NEAR(double(played.pcm.size()) / program.size(), 0.5, 0.02);
    EXPECT_NEAR(dominantHz(played.pcm), 220, 220 * 0.03);
    EXPECT_EQ(played.programMs, 10000u);
    EXPECT_EQ(chain.HeldProgramMs(), 0u);
}

TEST(SpeechProcessing, HalfSpeedDoublesTheLengthAtTheSamePitch)
{
    std::vector<std::int16_t> program;
    appendTone(program, 300, 4);
    SpeechProcessing chain;
    chain.Restart(kRate, 1, 5, false);
    const Played played = run(chain, program);
    EXPECT_NEAR(double(played.pcm.size()) / program.size(), 2.0, 0.05);
    EXPECT_NEAR(dominantHz(played.pcm), 300, 300 * 0.03);
    EXPECT_EQ(played.programMs, 4000u);
}

TEST(SpeechProcessing, OnlyGapsLongerThanHalfASecondAreShortenedToAQuarter)
{
    std::vector<std::int16_t> program;
    appendTone(program, 200, 1);
    appendSilence(program, 2.0); // becomes 0.25 s
    appendTone(program, 200, 1);
    appendSilence(program, 0.4); // stays
    appendTone(program, 200, 1);
    appendSilence(program, 1.0); // trailing: becomes 0.25 s
    SpeechProcessing chain;
    chain.Restart(kRate, 1, SpeechProcessing::kNormalSpeed, true);

    const Played played = run(chain, program);
    const double expectedSeconds = 6.4 - 1.75 - 0.75;
    // One 10 ms window either side of a gap may count as sound.
    EXPECT_NEAR(double(played.pcm.size()) / kRate, expectedSeconds, 0.03);
    EXPECT_EQ(played.programMs, 6400u);
    // What is kept of a tone is the tone itself, sample for sample.
    EXPECT_TRUE(std::equal(program.begin(), program.begin() + kRate, played.pcm.begin()));
}

TEST(SpeechProcessing, TheMapGivesProgramTimePastASkippedGapAsSoonAsItIsPlayed)
{
    std::vector<std::int16_t> program;
    appendTone(program, 200, 1);
    appendSilence(program, 3.0);
    appendTone(program, 200, 1);
    SpeechProcessing chain;
    chain.Restart(kRate, 1, SpeechProcessing::kNormalSpeed, true);
    chain.Feed(reinterpret_cast<const std::uint8_t*>(program.data()),
               static_cast<std::uint32_t>(program.size() * 2));
    // The first 1.25 s played are the tone and the quarter second kept; the
    // next frame played is 4 s into the program.
    std::vector<std::uint8_t> out(kRate * 2 * 5 / 4 + 2 * 160);
    const SpeechProcessing::Taken taken = chain.Take(out.data(), static_cast<std::uint32_t>(out.size()));
    EXPECT_NEAR(taken.programMs, 4010, 20);
    EXPECT_LE(chain.HeldProgramMs(), 1000u);
}

TEST(SpeechProcessing, TheFadeRampsTheLastStretchDownAndSilencesWhatFollows)
{
    SpeechProcessing chain;
    chain.Restart(kRate, 2, SpeechProcessing::kNormalSpeed, false);
    chain.SetFade(1000, 100);
    std::vector<std::int16_t> pcm(2 * 1200, 10000);
    chain.ApplyFade(reinterpret_cast<std::uint8_t*>(pcm.data()), static_cast<std::uint32_t>(pcm.size() * 2),
                    0);
    EXPECT_EQ(pcm[2 * 899], 10000);    // before the fade: untouched
    EXPECT_EQ(pcm[2 * 950 + 1], 5000); // half way, on both channels
    EXPECT_EQ(pcm[2 * 950], 5000);
    EXPECT_EQ(pcm[2 * 999], 100);
    EXPECT_EQ(pcm[2 * 1000], 0);
    EXPECT_EQ(pcm[2 * 1199 + 1], 0);

    // A block wholly before the fade is left as it is.
    std::vector<std::int16_t> early(2 * 100, -7);
    chain.ApplyFade(reinterpret_cast<std::uint8_t*>(early.data()), 400, 800);
    EXPECT_EQ(early.back(), -7);
}

TEST(SpeechProcessing, NormalSpeedWithoutSkippingChangesNothing)
{
    SpeechProcessing chain;
    chain.Restart(kRate, 1, SpeechProcessing::kNormalSpeed, false);
    EXPECT_FALSE(chain.ChangesAudio());
    // A stored speed out of range plays at normal speed.
    chain.Restart(kRate, 1, 31, false);
    EXPECT_FALSE(chain.ChangesAudio());
}

TEST(SmartRewind, GrowsWithThePauseFromAMinuteAndStopsAtThirtySeconds)
{
    EXPECT_EQ(AudioOutput::SmartRewindMs(0), 0u);
    EXPECT_EQ(AudioOutput::SmartRewindMs(60), 0u);
    EXPECT_EQ(AudioOutput::SmartRewindMs(61), 5018u);
    EXPECT_EQ(AudioOutput::SmartRewindMs(330), 10000u);
    EXPECT_EQ(AudioOutput::SmartRewindMs(600), 15000u);
    EXPECT_EQ(AudioOutput::SmartRewindMs(2100), 22500u);
    EXPECT_EQ(AudioOutput::SmartRewindMs(3600), 30000u);
    EXPECT_EQ(AudioOutput::SmartRewindMs(86400 * 400), 30000u);
}

} // namespace
} // namespace talvo
