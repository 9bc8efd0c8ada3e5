// Decode speed through the SDK, in times real time, beside the same packets
// decoded directly in the same run: libopus for type 3, libmpg123 for type 4
// (which the player decodes itself; the SDK only reads the frames), the SDK's
// own block decoder inline for IMA ADPCM, and memcpy for 16-bit PCM. The ratio
// of the two times is what reading through the SDK costs.
#include "SdkDecodeLoop.h"
#include "codec/ImaAdpcm.h"
#include "zqx/zqxsdk.h"
#include "zqx/zqxwriter.h"
#include "zqxauthor/PacketEncoderFactory.h"

#include <mpg123.h>
#include <opus.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>

namespace {

constexpr double kSeconds = 60; // audio per file
constexpr int kRounds = 3;      // best of, to shed scheduling noise

using Clock = std::chrono::steady_clock;
using Packets = std::vector<zqxauthor::EncodedPacket>;

struct Subject {
    const char* label;
    zqxauthor::EncoderRequest request;
};

std::vector<std::int16_t> Speechlike(std::uint32_t rate, std::uint32_t channels)
{
    std::vector<std::int16_t> pcm(std::size_t(kSeconds * rate) * channels);
    double phase = 0;
    for (std::size_t i = 0; i < pcm.size() / channels; ++i) {
        const double t = double(i) / rate;
        phase += 2 * M_PI * (140 + 60 * std::sin(t * 2.3)) / rate;
        const double v = (0.5 * std::sin(phase) + 0.25 * std::sin(3 * phase)) * (std::fmod(t, 1.0) < 0.7);
        for (std::uint32_t c = 0; c < channels; ++c)
            pcm[i * channels + c] = std::int16_t(v * 20000);
    }
    return pcm;
}

double Best(const std::function<void()>& run)
{
    double best = 1e30;
    for (int i = 0; i < kRounds; ++i) {
        const auto t0 = Clock::now();
        run();
        best = std::min(best, std::chrono::duration<double>(Clock::now() - t0).count());
    }
    return best;
}

// The same packets from memory through the codec alone.
std::uint64_t DecodeRaw(const Packets& packets, const zqxauthor::PacketEncoder& enc, int type)
{
    std::vector<std::uint8_t> pcm(bench::kDecodeRoom);
    std::uint64_t bytes = 0;
    const std::uint32_t channels = enc.Channels();
    switch (type) {
    case 1:
    case 2:
        for (const auto& p : packets)
            bytes += 2 * std::uint64_t(zqx::ImaDecodeBlock(p.bytes.data(), p.bytes.size(),
                                                           reinterpret_cast<std::int16_t*>(pcm.data()),
                                                           bench::kDecodeRoom / 2));
        break;
    case 3: {
        int err = 0;
        OpusDecoder* dec = opus_decoder_create(opus_int32(enc.SampleRate()), int(channels), &err);
        for (const auto& p : packets)
            bytes += 2 * channels *
                     std::uint64_t(std::max(0, opus_decode(dec, p.bytes.data(), opus_int32(p.bytes.size()),
                                                           reinterpret_cast<std::int16_t*>(pcm.data()),
                                                           int(bench::kDecodeRoom / 2 / channels), 0)));
        opus_decoder_destroy(dec);
        break;
    }
    case 4: {
        mpg123_handle* mh = mpg123_new(nullptr, nullptr);
        mpg123_param(mh, MPG123_FLAGS, MPG123_QUIET, 0);
        mpg123_open_feed(mh);
        for (const auto& p : packets) {
            size_t done = 0;
            mpg123_decode(mh, p.bytes.data(), p.bytes.size(), pcm.data(), pcm.size(), &done);
            bytes += done;
        }
        mpg123_delete(mh);
        break;
    }
    default:
        for (const auto& p : packets) {
            std::memcpy(pcm.data(), p.bytes.data(), p.bytes.size());
            bytes += p.bytes.size();
        }
        break;
    }
    return bytes;
}

} // namespace

int main()
{
    const Subject subjects[] = {
        {"type 1 IMA ADPCM 8 kHz", {.fileType = 1}},
        {"type 2 IMA ADPCM 16 kHz", {.fileType = 2}},
        {"type 3 Opus 48 kHz mono", {.fileType = 3, .sampleRate = 48000, .channels = 1}},
        {"type 3 Opus 24 kHz stereo", {.fileType = 3, .sampleRate = 24000, .channels = 2}},
        {"type 4 MP3 22050 Hz", {.fileType = 4}},
        {"type 5 PCM 22050 Hz stereo", {.fileType = 5, .sampleRate = 22050, .channels = 2}},
    };
    const auto dir =
        std::filesystem::temp_directory_path() / ("sdk-decode-bench-" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    std::printf("Decode speed in times real time; the last column is the time through the SDK\n"
                "divided by the time of the direct decode of the same packets in memory.\n");
    std::printf("%-28s %12s %12s %10s\n", "", "SDK x RT", "direct x RT", "SDK/direct");
    int status = 0;
    for (const Subject& s : subjects) {
        std::string error;
        auto enc = zqxauthor::CreatePacketEncoder(s.request, error);
        if (!enc) {
            std::fprintf(stderr, "%s: %s\n", s.label, error.c_str());
            return 1;
        }
        const auto pcm = Speechlike(enc->SampleRate(), enc->Channels());
        Packets packets;
        enc->Encode(pcm, packets);
        enc->Finish(packets);

        const std::string path = (dir / ("bench" + std::to_string(&s - subjects) + ".zq")).string();
        CZQXWriter writer;
        writer.Create(path, s.request.fileType, enc->SampleRate(), enc->Channels());
        if (enc->PreSkip())
            writer.SetPreSkip(enc->PreSkip());
        for (const auto& p : packets)
            writer.AddPacket(p.bytes.data(), std::uint32_t(p.bytes.size()), p.skip + p.samples);
        if (const int st = writer.Finish(); st != ZQX_OK) {
            std::fprintf(stderr, "%s: writing the program failed: %s\n", s.label, ZQXStatusName(st));
            status = 1;
            continue;
        }

        const std::u16string wide(path.begin(), path.end());
        std::uint64_t sdkBytes = 0, rawBytes = 0;
        const double sdk = Best([&] { sdkBytes = bench::DecodeThroughSdk(wide, s.request.fileType); });
        const double raw = Best([&] { rawBytes = DecodeRaw(packets, *enc, s.request.fileType); });
        if (sdkBytes == 0 || rawBytes == 0) {
            std::fprintf(stderr, "%s: nothing decoded\n", s.label);
            status = 1;
            continue;
        }
        const double bytesPerSecond = 2.0 * enc->SampleRate() * enc->Channels();
        std::printf("%-28s %12.0f %12.0f %10.2f\n", s.label, sdkBytes / bytesPerSecond / sdk,
                    rawBytes / bytesPerSecond / raw, sdk / raw);
    }
    std::filesystem::remove_all(dir);
    return status;
}
