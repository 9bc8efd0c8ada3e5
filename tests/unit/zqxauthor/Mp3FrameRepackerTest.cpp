#include "zqxauthor/Mp3FrameRepacker.h"
#include "zqxauthor/Mp3PacketEncoder.h"

#include <gtest/gtest.h>
#include <lame/lame.h>
#include <mpg123.h>

#include <cmath>
#include <random>

using namespace zqxauthor;

namespace {

// Decodes a whole MPEG stream the way the player does (libmpg123 in feed mode).
std::vector<std::int16_t> DecodeMp3(std::span<const std::uint8_t> stream)
{
    mpg123_handle* mh = mpg123_new(nullptr, nullptr);
    mpg123_param(mh, MPG123_FLAGS, MPG123_QUIET, 0);
    mpg123_format_none(mh);
    mpg123_format(mh, 22050, MPG123_MONO, MPG123_ENC_SIGNED_16);
    mpg123_open_feed(mh);
    std::vector<std::int16_t> pcm;
    std::vector<unsigned char> out(8192);
    mpg123_feed(mh, stream.data(), stream.size());
    for (;;) {
        size_t done = 0;
        const int r = mpg123_read(mh, out.data(), out.size(), &done);
        const auto* s = reinterpret_cast<const std::int16_t*>(out.data());
        pcm.insert(pcm.end(), s, s + done / 2);
        if (r != MPG123_OK && r != MPG123_NEW_FORMAT)
            break;
    }
    mpg123_delete(mh);
    return pcm;
}

// Speech-like test signal: gliding voiced tones with noise bursts and pauses.
std::vector<std::int16_t> SpeechLike(double seconds, double loudness, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<std::int16_t> pcm(std::size_t(seconds * 22050));
    double phase = 0;
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        const double t = double(i) / 22050;
        const double pitch = 120 + 60 * std::sin(t * 3.1);
        phase += 2 * M_PI * pitch / 22050;
        const double envelope = std::fmod(t, 0.9) < 0.6 ? 1.0 : 0.0;
        double v = 0;
        for (int h = 1; h <= 12; ++h)
            v += std::sin(phase * h) / h;
        if (std::fmod(t, 1.7) > 1.5)
            v = noise(rng);
        pcm[i] = std::int16_t(std::clamp(v * envelope * loudness * 8000, -32768.0, 32767.0));
    }
    return pcm;
}

std::vector<std::uint8_t> Join(const std::vector<EncodedPacket>& packets)
{
    std::vector<std::uint8_t> all;
    for (const auto& p : packets)
        all.insert(all.end(), p.bytes.begin(), p.bytes.end());
    return all;
}

std::vector<std::uint8_t> LameEncode(std::span<const std::int16_t> pcm, int kbps)
{
    lame_global_flags* gf = lame_init();
    lame_set_num_channels(gf, 1);
    lame_set_in_samplerate(gf, 22050);
    lame_set_out_samplerate(gf, 22050);
    lame_set_mode(gf, MONO);
    lame_set_brate(gf, kbps);
    lame_set_bWriteVbrTag(gf, 0);
    lame_set_write_id3tag_automatic(gf, 0);
    lame_init_params(gf);
    std::vector<std::uint8_t> out(pcm.size() * 2 + 7200);
    int n = lame_encode_buffer(gf, pcm.data(), nullptr, int(pcm.size()), out.data(), int(out.size()));
    n += lame_encode_flush(gf, out.data() + n, int(out.size()) - n);
    lame_close(gf);
    out.resize(std::size_t(n));
    return out;
}

} // namespace

TEST(Mp3PacketEncoder, FramesAre104BytesAndDecodeExactlyLikeTheEncoderOutput)
{
    for (auto rate : {Mp3PacketEncoder::Rate::Average, Mp3PacketEncoder::Rate::Constant}) {
        for (double loudness : {0.2, 1.0, 3.0}) {
            SCOPED_TRACE(loudness);
            Mp3PacketEncoder enc(rate);
            enc.KeepRawStream(true);
            const auto pcm = SpeechLike(6.0, loudness, 7);
            std::vector<EncodedPacket> packets;
            ASSERT_TRUE(enc.Encode(pcm, packets)) << enc.Error();
            ASSERT_TRUE(enc.Finish(packets)) << enc.Error();

            ASSERT_GE(packets.size() * 576, pcm.size());
            for (const auto& p : packets) {
                ASSERT_EQ(p.bytes.size(), 104u);
                EXPECT_EQ(p.samples, 576u);
                // MPEG-2 Layer III, no CRC, 32 kbit/s, 22050 Hz, no padding, mono.
                EXPECT_EQ(p.bytes[0], 0xFF);
                EXPECT_EQ(p.bytes[1], 0xF3);
                EXPECT_EQ(p.bytes[2] & 0xFE, 0x40);
                EXPECT_EQ(p.bytes[3] >> 6, 3);
            }
            EXPECT_EQ(packets.front().bytes[4], 0) << "the first frame cannot point into a reservoir";

            const auto original = DecodeMp3(enc.RawStream());
            const auto repacked = DecodeMp3(Join(packets));
            ASSERT_GT(original.size(), pcm.size());
            ASSERT_EQ(original.size(), repacked.size());
            EXPECT_TRUE(original == repacked);
        }
    }
}

TEST(Mp3PacketEncoder, WhiteNoiseAtConstantRateStillFits)
{
    std::mt19937 rng(3);
    std::uniform_int_distribution<int> full(-32768, 32767);
    std::vector<std::int16_t> pcm(22050 * 20);
    for (auto& s : pcm)
        s = std::int16_t(full(rng));
    Mp3PacketEncoder enc(Mp3PacketEncoder::Rate::Constant);
    std::vector<EncodedPacket> packets;
    EXPECT_TRUE(enc.Encode(pcm, packets) && enc.Finish(packets)) << enc.Error();
}

TEST(Mp3FrameRepacker, RejectsStreamsItCannotCarry)
{
    const auto pcm = SpeechLike(4.0, 1.0, 1);
    {
        // 64 kbit/s frames carry twice the main data of a 104-byte frame.
        Mp3FrameRepacker r;
        const auto stream = LameEncode(pcm, 64);
        EXPECT_FALSE(r.Push(stream) && r.Finish());
        EXPECT_NE(r.Error().find("reservoir overflow"), std::string::npos) << r.Error();
    }
    {
        Mp3FrameRepacker r;
        auto stream = LameEncode(pcm, 24);
        stream.resize(stream.size() - 10);
        ASSERT_TRUE(r.Push(stream));
        EXPECT_FALSE(r.Finish());
        EXPECT_NE(r.Error().find("ends inside a frame"), std::string::npos);
    }
    {
        Mp3FrameRepacker r;
        const std::vector<std::uint8_t> junk = {'R', 'I', 'F', 'F', 0, 0, 0, 0};
        EXPECT_FALSE(r.Push(junk));
        EXPECT_FALSE(r.Push(LameEncode(pcm, 24))) << "stays failed";
    }
}

TEST(Mp3FrameRepacker, OutputDoesNotDependOnHowTheInputIsSplit)
{
    const auto stream = LameEncode(SpeechLike(3.0, 1.0, 5), 24);
    Mp3FrameRepacker whole, bytewise;
    ASSERT_TRUE(whole.Push(stream) && whole.Finish()) << whole.Error();
    std::vector<Mp3FrameRepacker::Frame> pieces;
    for (std::uint8_t b : stream) {
        ASSERT_TRUE(bytewise.Push(std::span(&b, 1))) << bytewise.Error();
        for (const auto& f : bytewise.TakeFrames())
            pieces.push_back(f);
    }
    ASSERT_TRUE(bytewise.Finish());
    for (const auto& f : bytewise.TakeFrames())
        pieces.push_back(f);
    const auto frames = whole.TakeFrames();
    EXPECT_EQ(frames.size(), whole.InputFrames());
    EXPECT_TRUE(frames == pieces);
}
