// Writes small intact programs of every type, plus damaged variants of them,
// into a folder: the seed corpus of the fuzzer, the replay set of its ctest and
// the sample file of the C smoke test.

#include "SdkTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>

using namespace zqxtest;

namespace {

std::vector<Packet> Mp3Frames(size_t count)
{
    std::vector<Packet> frames(count);
    for (size_t i = 0; i < count; ++i) {
        frames[i].bytes.assign(ZQX_MP3_FRAME_BYTES, uint8_t(i * 7));
        frames[i].bytes[0] = 0xFF;
        frames[i].bytes[1] = 0xF3;
        frames[i].samples = 576;
    }
    return frames;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " FOLDER\n";
        return 2;
    }
    const std::filesystem::path out = argv[1];
    std::filesystem::create_directories(out);
    const std::vector<std::pair<uint32_t, std::string>> sections = {{0, "Opening"}, {200, "Middle"}};

    ProgramShape pcm;
    pcm.sections = sections;
    std::vector<Packet> pcmPackets(3);
    const auto signal = TestSignal(3000, 8000, 1);
    for (size_t k = 0; k < 3; ++k) {
        for (size_t i = 0; i < 1000; ++i) {
            pcmPackets[k].bytes.push_back(uint8_t(signal[k * 1000 + i]));
            pcmPackets[k].bytes.push_back(uint8_t(signal[k * 1000 + i] >> 8));
        }
        pcmPackets[k].samples = 1000;
    }
    WriteProgram((out / "good-pcm.zq").string(), pcm, pcmPackets);

    ProgramShape ima = pcm;
    ima.fileType = ZQX_TYPE_ADPCM_8K;
    WriteProgram((out / "good-ima.zq").string(), ima, EncodeImaBlocks(signal, 300));

    ProgramShape opus = pcm;
    opus.fileType = ZQX_TYPE_OPUS;
    opus.sampleRate = 16000;
    opus.channels = 2;
    WriteProgram((out / "good-opus.zqx").string(), opus,
                 EncodeOpus(TestSignal(8000, 16000, 2), 16000, 2, 320, opus.preSkip));

    ProgramShape mp3 = pcm;
    mp3.fileType = ZQX_TYPE_MP3;
    mp3.sampleRate = 22050;
    WriteProgram((out / "good-mp3.zq").string(), mp3, Mp3Frames(40));
    if (::testing::Test::HasFailure())
        return 1;

    // A few damaged variants per file: cut in half, and one byte flipped in each tenth.
    for (const char* name : {"good-pcm.zq", "good-ima.zq", "good-opus.zqx", "good-mp3.zq"}) {
        const auto bytes = ReadBytes((out / name).string());
        const std::string stem = std::string(name).substr(5);
        WriteBytes((out / ("cut-" + stem)).string(),
                   {bytes.begin(), bytes.begin() + std::ptrdiff_t(bytes.size() / 2)});
        for (size_t part = 0; part < 10; ++part) {
            auto flipped = bytes;
            flipped[bytes.size() * part / 10] ^= 0x5A;
            WriteBytes((out / ("flip" + std::to_string(part) + "-" + stem)).string(), flipped);
        }
    }
    return 0;
}
