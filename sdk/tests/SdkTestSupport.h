#pragma once
// Helpers shared by the SDK tests: a scratch folder, program files written
// through the real writer, a minimal IMA ADPCM encoder and a replica of the
// player's block-refill loop.

#include "zqx/zqxsdk.h"
#include "zqx/zqxwriter.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace zqxtest {

class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    std::string File(const std::string& name) const { return (root / name).string(); }

private:
    std::filesystem::path root;
};

std::u16string Wide(const std::string& utf8Path);

// A speech-like test signal: two tones under a slow envelope.
std::vector<int16_t> TestSignal(size_t frames, uint32_t sampleRate, uint32_t channels);

// Encodes mono PCM into IMA ADPCM blocks of blockBytes each (the last shorter).
struct Packet {
    std::vector<uint8_t> bytes;
    uint32_t samples = 0;
};
std::vector<Packet> EncodeImaBlocks(const std::vector<int16_t>& pcm, size_t blockBytes);
// Opus packets of frameSamples each, with the encoder's lookahead in preSkip.
std::vector<Packet> EncodeOpus(const std::vector<int16_t>& pcm, uint32_t rate, uint32_t channels,
                               uint32_t frameSamples, uint32_t& preSkip);

struct ProgramShape {
    int32_t fileType = ZQX_TYPE_PCM16;
    uint32_t sampleRate = 8000;
    uint32_t channels = 1;
    std::vector<std::pair<uint32_t, std::string>> sections;
    uint32_t preSkip = 0;
};
// Writes a program from ready packets with a fixed set of metadata; fails the
// calling test on any writer error.
void WriteProgram(const std::string& path, const ProgramShape& choice, const std::vector<Packet>& packets);

// Opens path and fails the test unless it opens.
ZQXHANDLE OpenOrFail(const std::string& path);

// Decodes every block from the read position on, straight through.
std::vector<int16_t> DecodeAll(ZQXHANDLE h);

// What the player's SDK refill loop delivers, buffer by buffer, until it
// reports the end: the same calls in the same order with the same room.
std::vector<int16_t> PlayLikePlayer(ZQXHANDLE h, uint32_t bufferBytes);

double SnrDb(const std::vector<int16_t>& reference, const std::vector<int16_t>& decoded);

std::vector<uint8_t> ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes);

} // namespace zqxtest
