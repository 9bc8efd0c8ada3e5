// CMp3 on libmpg123 with real type-4 frames: a tone encoded by the authoring
// tools' MP3 encoder and re-packed into 104-byte frames.
#include "playback/CMp3.h"
#include "zqxauthor/Mp3PacketEncoder.h"

#include <gtest/gtest.h>
#include <mpg123.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace talvo {
namespace {

constexpr double kToneHz = 440.0;
constexpr int kRate = 22050;

std::vector<std::int16_t> Tone(double seconds)
{
    std::vector<std::int16_t> pcm(std::size_t(seconds * kRate));
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        pcm[i] = std::int16_t(12000 * std::sin(2 * std::numbers::pi * kToneHz * double(i) / kRate));
    }
    return pcm;
}

// A whole stream through libmpg123 in one go: the reference for frame-by-frame decoding.
std::vector<std::int16_t> DecodeWhole(const std::vector<std::uint8_t>& stream)
{
    mpg123_handle* mh = mpg123_new(nullptr, nullptr);
    mpg123_param(mh, MPG123_ADD_FLAGS, MPG123_QUIET, 0);
    mpg123_param(mh, MPG123_REMOVE_FLAGS, MPG123_GAPLESS, 0);
    mpg123_format_none(mh);
    mpg123_format(mh, kRate, MPG123_MONO, MPG123_ENC_SIGNED_16);
    mpg123_open_feed(mh);
    mpg123_feed(mh, stream.data(), stream.size());
    std::vector<std::int16_t> pcm;
    std::vector<std::uint8_t> out(8192);
    for (;;) {
        std::size_t done = 0;
        const int r = mpg123_read(mh, out.data(), out.size(), &done);
        const auto* s = reinterpret_cast<const std::int16_t*>(out.data());
        pcm.insert(pcm.end(), s, s + done / 2);
        if (r != MPG123_OK && r != MPG123_NEW_FORMAT) {
            break;
        }
    }
    mpg123_delete(mh);
    return pcm;
}

// Share of the signal's energy that lies in the tone.
double ToneShare(const std::int16_t* pcm, std::size_t n)
{
    double c = 0, s = 0, total = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double phase = 2 * std::numbers::pi * kToneHz * double(i) / kRate;
        c += pcm[i] * std::cos(phase);
        s += pcm[i] * std::sin(phase);
        total += double(pcm[i]) * pcm[i];
    }
    return total == 0 ? 0 : 2 * (c * c + s * s) / (double(n) * total);
}

TEST(CMp3Mpg123, EveryFrameGivesItsSamplesAsTheWholeStreamDoes)
{
    zqxauthor::Mp3PacketEncoder encoder(zqxauthor::Mp3PacketEncoder::Rate::Constant);
    encoder.KeepRawStream(true);
    std::vector<zqxauthor::EncodedPacket> packets;
    ASSERT_TRUE(encoder.Encode(Tone(2.0), packets)) << encoder.Error();
    ASSERT_TRUE(encoder.Finish(packets)) << encoder.Error();
    ASSERT_GT(packets.size(), 60u);

    auto mp3 = CMp3::Create();
    ASSERT_TRUE(mp3) << std::hex << GetLastError();
    std::vector<std::int16_t> decoded;
    std::array<std::uint8_t, CMp3::kPcmBytes> pcm{};
    for (const auto& packet : packets) {
        ASSERT_EQ(packet.bytes.size(), CMp3::kFrameBytes);
        ASSERT_TRUE(mp3->DecodeFrame(packet.bytes.data(), pcm.data())) << std::hex << GetLastError();
        const auto* s = reinterpret_cast<const std::int16_t*>(pcm.data());
        decoded.insert(decoded.end(), s, s + CMp3::kPcmBytes / 2);
    }

    // Re-packing moves main data only, so the encoder's own stream decodes to
    // the same samples; one frame at a time loses nothing.
    const auto reference = DecodeWhole(encoder.RawStream());
    ASSERT_EQ(decoded.size(), reference.size());
    EXPECT_EQ(decoded, reference);
    const std::size_t middle = decoded.size() / 4;
    EXPECT_GT(ToneShare(decoded.data() + middle, decoded.size() / 2), 0.9);

    // Bytes without a frame header decode to nothing, which plays as silence.
    const std::array<std::uint8_t, CMp3::kFrameBytes> zeros{};
    pcm.fill(0x77);
    EXPECT_TRUE(mp3->DecodeFrame(zeros.data(), pcm.data()));
    EXPECT_EQ(pcm, (std::array<std::uint8_t, CMp3::kPcmBytes>{}));
}

} // namespace
} // namespace talvo
