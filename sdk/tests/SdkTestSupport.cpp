#include "SdkTestSupport.h"

#include "codec/ImaAdpcm.h"

#include <gtest/gtest.h>
#include <opus.h>

#include <cmath>
#include <fstream>
#include <random>

namespace zqxtest {

ScratchFolder::ScratchFolder()
{
    std::random_device rd;
    root = std::filesystem::temp_directory_path() / ("zqxsdk-test-" + std::to_string(rd()));
    std::filesystem::create_directories(root);
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

std::u16string Wide(const std::string& utf8Path)
{
    // Test paths are ASCII apart from deliberate cases, which use this helper's
    // caller-provided UTF-16 instead.
    return std::u16string(utf8Path.begin(), utf8Path.end());
}

std::vector<int16_t> TestSignal(size_t frames, uint32_t sampleRate, uint32_t channels)
{
    std::vector<int16_t> out(frames * channels);
    const double pi = std::acos(-1.0);
    for (size_t i = 0; i < frames; ++i) {
        const double t = double(i) / sampleRate;
        const double envelope = 0.6 + 0.4 * std::sin(2 * pi * 1.5 * t);
        for (uint32_t c = 0; c < channels; ++c) {
            const double v =
                envelope * (0.5 * std::sin(2 * pi * (220 + 110 * c) * t) + 0.25 * std::sin(2 * pi * 660 * t));
            out[i * channels + c] = static_cast<int16_t>(v * 12000);
        }
    }
    return out;
}

std::vector<Packet> EncodeImaBlocks(const std::vector<int16_t>& pcm, size_t blockBytes)
{
    std::vector<Packet> packets;
    const size_t perBlock = zqx::ImaMaxSamples(blockBytes);
    for (size_t first = 0; first < pcm.size(); first += perBlock) {
        const size_t count = std::min(perBlock, pcm.size() - first);
        Packet p;
        p.samples = static_cast<uint32_t>(count);
        p.bytes.resize(zqx::kImaBlockHeaderBytes + count / 2);
        zqx::ImaState state;
        state.predictor = pcm[first];
        state.stepIndex = 20;
        p.bytes[0] = uint8_t(pcm[first] & 0xFF);
        p.bytes[1] = uint8_t((pcm[first] >> 8) & 0xFF);
        p.bytes[2] = uint8_t(state.stepIndex);
        for (size_t i = 1; i < count; ++i) {
            const int32_t step = zqx::kImaStepTable[size_t(state.stepIndex)];
            int32_t diff = pcm[first + i] - state.predictor;
            uint8_t code = 0;
            if (diff < 0) {
                code = 8;
                diff = -diff;
            }
            if (diff >= step) {
                code |= 4;
                diff -= step;
            }
            if (diff >= step / 2) {
                code |= 2;
                diff -= step / 2;
            }
            if (diff >= step / 4)
                code |= 1;
            zqx::ImaDecodeNibble(state, code);
            const size_t at = zqx::kImaBlockHeaderBytes + (i - 1) / 2;
            p.bytes[at] |= ((i - 1) % 2 == 0) ? code : uint8_t(code << 4);
        }
        packets.push_back(std::move(p));
    }
    return packets;
}

std::vector<Packet> EncodeOpus(const std::vector<int16_t>& pcm, uint32_t rate, uint32_t channels,
                               uint32_t frameSamples, uint32_t& preSkip)
{
    int error = 0;
    OpusEncoder* enc = opus_encoder_create(int(rate), int(channels), OPUS_APPLICATION_AUDIO, &error);
    EXPECT_EQ(error, OPUS_OK);
    opus_encoder_ctl(enc, OPUS_SET_BITRATE(64000));
    opus_int32 lookahead = 0;
    opus_encoder_ctl(enc, OPUS_GET_LOOKAHEAD(&lookahead));
    preSkip = static_cast<uint32_t>(lookahead);
    const size_t frames = pcm.size() / channels;
    // Pad by the lookahead so the tail of the input comes out of the decoder.
    std::vector<int16_t> padded(pcm);
    const size_t total = frames + preSkip;
    const size_t packetCount = (total + frameSamples - 1) / frameSamples;
    padded.resize(packetCount * frameSamples * channels, 0);
    std::vector<Packet> packets;
    size_t delivered = 0;
    for (size_t k = 0; k < packetCount; ++k) {
        Packet p;
        p.bytes.resize(4000);
        const int n = opus_encode(enc, padded.data() + k * frameSamples * channels, int(frameSamples),
                                  p.bytes.data(), 4000);
        EXPECT_GT(n, 0);
        p.bytes.resize(size_t(n));
        // The last packet keeps only what reaches the input's end.
        const size_t wanted = total - delivered;
        p.samples = static_cast<uint32_t>(std::min<size_t>(frameSamples, wanted));
        delivered += p.samples;
        packets.push_back(std::move(p));
    }
    opus_encoder_destroy(enc);
    return packets;
}

void WriteProgram(const std::string& path, const ProgramShape& choice, const std::vector<Packet>& packets)
{
    CZQXWriter w;
    ASSERT_EQ(w.Create(path, choice.fileType, choice.sampleRate, choice.channels), ZQX_OK);
    ASSERT_EQ(w.SetProgramId("PRG-0042"), ZQX_OK);
    ASSERT_EQ(w.SetTitle("Title \xC3\xA9t\xC3\xA9"), ZQX_OK);
    ASSERT_EQ(w.SetAuthor("An Author"), ZQX_OK);
    ASSERT_EQ(w.SetNarrator("A Narrator"), ZQX_OK);
    ASSERT_EQ(w.SetProvider("A Provider"), ZQX_OK);
    ASSERT_EQ(w.SetDescription("Long description"), ZQX_OK);
    for (const auto& [start, title] : choice.sections)
        ASSERT_EQ(w.AddSection(start, title), ZQX_OK);
    if (choice.preSkip) {
        ASSERT_EQ(w.SetPreSkip(choice.preSkip), ZQX_OK);
    }
    for (const Packet& p : packets)
        ASSERT_EQ(w.AddPacket(p.bytes.data(), uint32_t(p.bytes.size()), p.samples), ZQX_OK);
    ASSERT_EQ(w.Finish(), ZQX_OK);
}

ZQXHANDLE OpenOrFail(const std::string& path)
{
    ZQXHANDLE h = 0;
    const std::u16string wide = Wide(path);
    EXPECT_EQ(ZQXOpenFileWinW(&h, wide.c_str()), ZQX_OK) << path;
    return h;
}

namespace {

void AppendPcm(std::vector<int16_t>& out, const uint8_t* bytes, uint32_t count)
{
    for (uint32_t i = 0; i + 1 < count; i += 2)
        out.push_back(static_cast<int16_t>(bytes[i] | bytes[i + 1] << 8));
}

} // namespace

std::vector<int16_t> DecodeAll(ZQXHANDLE h)
{
    std::vector<int16_t> out;
    std::vector<uint8_t> block(ZQX_MAX_BLOCK_BYTES);
    std::vector<uint8_t> pcm(1 << 16);
    uint32_t length = 0;
    int rc = 0;
    while ((rc = ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &length)) == ZQX_OK) {
        uint32_t produced = 0;
        EXPECT_EQ(ZQXDecodePCMFrame(h, block.data(), length, pcm.data(), uint32_t(pcm.size()), &produced),
                  ZQX_OK);
        AppendPcm(out, pcm.data(), produced);
    }
    EXPECT_EQ(rc, ZQX_ERR_END_OF_AUDIO);
    return out;
}

std::vector<int16_t> PlayLikePlayer(ZQXHANDLE h, uint32_t bufferBytes)
{
    std::vector<int16_t> out;
    std::vector<uint8_t> buffer(bufferBytes);
    std::vector<uint8_t> block(ZQX_MAX_BLOCK_BYTES);
    for (;;) {
        // One refill: read, then decode blocks while another of the same size fits.
        uint32_t encLen = 0;
        if (ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &encLen) != ZQX_OK)
            return out;
        uint32_t filled = 0;
        bool delivered = false;
        for (;;) {
            uint32_t produced = 0;
            const int rc = ZQXDecodePCMFrame(h, block.data(), encLen, buffer.data() + filled,
                                             bufferBytes - filled, &produced);
            filled += produced;
            if (rc == ZQX_ERR_END_OF_AUDIO)
                return out;
            if (rc == ZQX_OK && (produced == 0 || int64_t(bufferBytes) - produced - filled <= 0)) {
                delivered = true;
                break;
            }
            encLen = 0;
            if (ZQXGetEncodedAudio(h, block.data(), ZQX_MAX_BLOCK_BYTES, &encLen) != ZQX_OK)
                return out; // the partial buffer is dropped, as the player does
        }
        if (delivered) {
            if (filled == 0)
                return out;
            AppendPcm(out, buffer.data(), filled);
        }
    }
}

double SnrDb(const std::vector<int16_t>& reference, const std::vector<int16_t>& decoded)
{
    const size_t n = std::min(reference.size(), decoded.size());
    double signal = 0;
    double noise = 0;
    for (size_t i = 0; i < n; ++i) {
        signal += double(reference[i]) * reference[i];
        const double d = double(reference[i]) - decoded[i];
        noise += d * d;
    }
    return 10 * std::log10(signal / std::max(noise, 1.0));
}

std::vector<uint8_t> ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

} // namespace zqxtest
