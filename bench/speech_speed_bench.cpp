// What playing at twice the speed costs: the speech chain at 2.0x beside the
// 1.0x path (the decoded blocks copied into the wave buffers as they are),
// both on the same ten minutes of generated speech-like audio, block by block
// as the player refills.  Prints CPU ms per program minute and the ratio.
#include "CpuTiming.h"
#include "playback/SpeechProcessing.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <numbers>
#include <vector>

namespace {

constexpr std::uint32_t kRate = 22050;
constexpr int kMinutes = 10;
// The player's buffer: five half-second decode units.
constexpr std::size_t kBlockFrames = kRate * 5 / 2;

// Syllables: a voiced tone with a moving pitch, 200 ms on, a short gap,
// and a longer pause every few seconds.
std::vector<std::int16_t> speechLike()
{
    std::vector<std::int16_t> pcm(std::size_t{kRate} * 60 * kMinutes);
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        const double t = double(i) / kRate;
        const double syllable = std::fmod(t, 0.25);
        const bool pause = std::fmod(t, 4.0) > 3.4;
        const double pitch = 120 + 40 * std::sin(2 * std::numbers::pi * 0.5 * t);
        const double level = pause || syllable > 0.2 ? 0 : std::sin(std::numbers::pi * syllable / 0.2);
        pcm[i] = static_cast<std::int16_t>(9000 * level * std::sin(2 * std::numbers::pi * pitch * t));
    }
    return pcm;
}

std::size_t playAtNormalSpeed(const std::vector<std::int16_t>& program, std::vector<std::uint8_t>& slot)
{
    std::size_t played = 0;
    for (std::size_t at = 0; at < program.size(); at += kBlockFrames) {
        const std::size_t frames = std::min(kBlockFrames, program.size() - at);
        std::memcpy(slot.data(), program.data() + at, frames * 2);
        played += frames;
    }
    return played;
}

std::size_t playThroughTheChain(const std::vector<std::int16_t>& program, std::vector<std::uint8_t>& slot,
                                int speedTenths)
{
    talvo::SpeechProcessing chain;
    chain.Restart(kRate, 1, speedTenths, false);
    std::size_t played = 0;
    std::size_t fed = 0;
    const auto room = static_cast<std::uint32_t>(slot.size());
    while (true) {
        while (chain.AvailableBytes() < room && !chain.Finished()) {
            const std::size_t frames = std::min(kBlockFrames, program.size() - fed);
            if (frames == 0)
                chain.Finish();
            else
                chain.Feed(reinterpret_cast<const std::uint8_t*>(program.data() + fed),
                           static_cast<std::uint32_t>(frames * 2));
            fed += frames;
        }
        const std::uint32_t bytes = chain.Take(slot.data(), room).bytes;
        if (bytes == 0)
            return played;
        played += bytes / 2;
    }
}

} // namespace

int main()
{
    const std::vector<std::int16_t> program = speechLike();
    std::vector<std::uint8_t> slot(kBlockFrames * 2);
    std::size_t normalFrames = 0, doubleFrames = 0;
    const std::vector<double> best =
        bench::BestMilliseconds({[&] { normalFrames = playAtNormalSpeed(program, slot); },
                                 [&] {
                                     doubleFrames = playThroughTheChain(program, slot, 20);
                                 }},
                                3);
    const double normalPerMinute = best[0] / kMinutes;
    const double doublePerMinute = best[1] / kMinutes;
    std::printf("speech at 1.0x: %.3f ms CPU per program minute (%zu frames played)\n", normalPerMinute,
                normalFrames);
    std::printf("speech at 2.0x: %.3f ms CPU per program minute (%zu frames played, %.3f of the input)\n",
                doublePerMinute, doubleFrames, double(doubleFrames) / program.size());
    std::printf("2.0x / 1.0x CPU ratio: %.1f; at 2.0x one core plays %.0f times faster than real time\n",
                doublePerMinute / std::max(normalPerMinute, 1e-6), 30000.0 / std::max(doublePerMinute, 1e-6));
    return 0;
}
