#pragma once
// The parsed contents of a program file and the rules every file type obeys,
// shared by the reader and the writer so both accept exactly the same files.

#include <cstdint>
#include <string>
#include <vector>

namespace zqx {

struct SectionRecord {
    uint32_t startMs = 0;
    std::string title; // UTF-8
};

// One entry of the picture table: what the picture is and where its bytes lie.
struct PictureRecord {
    uint32_t startMs = 0;
    uint32_t kind = 0;
    uint32_t byteLength = 0;
    uint64_t offset = 0; // absolute file offset of its first byte
};

// Where a chunk's payload lies and the CRC-32 it must match.
struct ChunkExtent {
    uint64_t payloadOffset = 0;
    uint64_t payloadBytes = 0;
    uint32_t crc = 0;
};

struct ProgramInfo {
    int32_t fileType = 0;
    uint32_t sampleRate = 0;
    uint32_t channels = 0;
    uint64_t totalSamples = 0; // sample frames delivered by the whole file
    uint32_t lengthMs = 0;
    uint32_t preSkip = 0; // decoded samples dropped from the first packet
    uint32_t timeOffsetMs = 0;
    uint32_t spanFlag = 0;
    uint32_t spanStartMs = 0;
    uint32_t spanEndMs = 0;
    std::string programId, title, author, narrator, provider, description;
    std::vector<SectionRecord> sections;
    std::vector<PictureRecord> pictures;
    ChunkExtent pictureChunk;
    ChunkExtent indexChunk;
    // Its CRC-32 covers all packets.
    ChunkExtent audioChunk;
};

// One audio packet, located through the index.
struct PacketEntry {
    uint64_t offset = 0;      // absolute file offset
    uint64_t startSample = 0; // first sample frame it delivers
    uint32_t crc = 0;
    uint16_t bytes = 0;
    uint16_t samples = 0;
};

// ZQX_OK or ZQX_ERR_UNSUPPORTED for a type / rate / channel combination.
int CheckStreamFormat(int32_t fileType, uint32_t sampleRate, uint32_t channels);
// Whether a packet of this size delivering these samples (after skip) fits the type.
bool PacketShapeValid(const ProgramInfo& info, uint32_t bytes, uint32_t samples, uint32_t skip);
// Length in ms of a sample count, rounded down.
uint32_t SamplesToMs(uint64_t samples, uint32_t sampleRate);
uint64_t MsToSamples(uint32_t ms, uint32_t sampleRate);
bool PictureSignatureMatches(uint32_t kind, const std::vector<uint8_t>& bytes);

} // namespace zqx
