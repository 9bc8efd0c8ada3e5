#include "codec/ImaAdpcm.h"
#include "zqxauthor/PacketEncoderFactory.h"

#include <gtest/gtest.h>
#include <opus.h>

#include <cmath>

using namespace zqxauthor;

namespace {

std::vector<std::int16_t> Tones(std::uint32_t rate, std::uint32_t channels, double seconds)
{
    std::vector<std::int16_t> pcm(std::size_t(seconds * rate) * channels);
    for (std::size_t i = 0; i < pcm.size() / channels; ++i) {
        const double t = double(i) / rate;
        for (std::uint32_t c = 0; c < channels; ++c) {
            const double v =
                std::sin(2 * M_PI * (220 + 110 * c) * t) * 0.4 + std::sin(2 * M_PI * 1250 * t) * 0.2;
            pcm[i * channels + c] = std::int16_t(v * (0.5 + 0.5 * std::sin(t * 5)) * 32767);
        }
    }
    return pcm;
}

std::vector<EncodedPacket> EncodeAll(PacketEncoder& enc, std::span<const std::int16_t> pcm)
{
    std::vector<EncodedPacket> packets;
    // Uneven pieces, as a file reader delivers them.
    for (std::size_t at = 0; at < pcm.size();) {
        const std::size_t n = std::min<std::size_t>(pcm.size() - at, 777 * enc.Channels());
        EXPECT_TRUE(enc.Encode(pcm.subspan(at, n), packets)) << enc.Error();
        at += n;
    }
    EXPECT_TRUE(enc.Finish(packets)) << enc.Error();
    return packets;
}

// Signal-to-noise ratio in dB of `decoded` against `original`.
double Snr(std::span<const std::int16_t> original, std::span<const std::int16_t> decoded)
{
    double signal = 0, noise = 0;
    for (std::size_t i = 0; i < original.size(); ++i) {
        signal += double(original[i]) * original[i];
        noise += (double(original[i]) - decoded[i]) * (double(original[i]) - decoded[i]);
    }
    return 10 * std::log10(signal / std::max(noise, 1.0));
}

void ExpectEqualSizedPackets(const std::vector<EncodedPacket>& packets)
{
    ASSERT_GT(packets.size(), 2u);
    for (std::size_t i = 1; i + 1 < packets.size(); ++i) {
        EXPECT_EQ(packets[i].samples, packets[1].samples) << "packet " << i;
        EXPECT_LE(packets[i].bytes.size(), kMaxPacketBytes);
    }
}

} // namespace

TEST(ImaAdpcmPacketEncoder, BlocksDecodeThroughTheSdkDecoderCloseToTheInput)
{
    for (int type : {1, 2}) {
        std::string error;
        auto enc = CreatePacketEncoder({.fileType = type}, error);
        ASSERT_TRUE(enc) << error;
        const auto pcm = Tones(enc->SampleRate(), 1, 3.01);
        const auto packets = EncodeAll(*enc, pcm);
        ExpectEqualSizedPackets(packets);
        std::vector<std::int16_t> decoded;
        for (const auto& p : packets) {
            std::vector<std::int16_t> block(zqx::ImaMaxSamples(p.bytes.size()));
            const int n = zqx::ImaDecodeBlock(p.bytes.data(), p.bytes.size(), block.data(), block.size());
            ASSERT_GE(n, int(p.samples));
            decoded.insert(decoded.end(), block.begin(), block.begin() + p.samples);
        }
        ASSERT_EQ(decoded.size(), pcm.size());
        EXPECT_GT(Snr(pcm, decoded), 20.0) << "type " << type;
    }
}

TEST(OpusPacketEncoder, DeliversExactlyTheInputLengthWithPreSkipOnTheFirstPacket)
{
    for (auto [rate, channels] : {std::pair{48000u, 1u}, std::pair{16000u, 2u}, std::pair{24000u, 1u}}) {
        SCOPED_TRACE(rate);
        std::string error;
        auto enc = CreatePacketEncoder({.fileType = 3, .sampleRate = rate, .channels = channels}, error);
        ASSERT_TRUE(enc) << error;
        const auto pcm = Tones(rate, channels, 2.013);
        const auto packets = EncodeAll(*enc, pcm);
        ExpectEqualSizedPackets(packets);
        EXPECT_EQ(packets.front().skip, enc->PreSkip());
        EXPECT_GT(enc->PreSkip(), 0u);

        int err = 0;
        OpusDecoder* dec = opus_decoder_create(opus_int32(rate), int(channels), &err);
        ASSERT_EQ(err, OPUS_OK);
        std::vector<std::int16_t> decoded;
        std::vector<std::int16_t> frame(rate / 50 * channels);
        for (const auto& p : packets) {
            const int n =
                opus_decode(dec, p.bytes.data(), opus_int32(p.bytes.size()), frame.data(), int(rate / 50), 0);
            ASSERT_EQ(n, int(rate / 50));
            ASSERT_LE(p.skip + p.samples, std::uint32_t(n));
            decoded.insert(decoded.end(), frame.begin() + p.skip * channels,
                           frame.begin() + (p.skip + p.samples) * channels);
        }
        opus_decoder_destroy(dec);
        ASSERT_EQ(decoded.size(), pcm.size());
        // A lossy codec, but aligned: the waveforms must match closely once the pre-skip is dropped.
        EXPECT_GT(Snr(pcm, decoded), 10.0);
    }
}

TEST(PacketEncoderFactory, RefusesFormatsATypeCannotHold)
{
    std::string error;
    EXPECT_FALSE(CreatePacketEncoder({.fileType = 6}, error));
    EXPECT_NE(error.find("unsupported file type 6"), std::string::npos);
    EXPECT_FALSE(CreatePacketEncoder({.fileType = 1, .sampleRate = 16000}, error));
    EXPECT_FALSE(CreatePacketEncoder({.fileType = 4, .channels = 2}, error));
    EXPECT_FALSE(CreatePacketEncoder({.fileType = 3, .sampleRate = 44100}, error));
    EXPECT_NE(error.find("44100"), std::string::npos);
    EXPECT_TRUE(CreatePacketEncoder({.fileType = 5, .sampleRate = 44100, .channels = 2}, error));
}
